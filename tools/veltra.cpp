/* The command-line client: each command is one operation of the public API. */

#include <CLI/CLI.hpp>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "download_command.h"
#include "session.h"
#include "veltra/veltra.h"

namespace
{

typedef nlohmann::ordered_json JSON_t;
typedef std::map<std::string, APPBIN_SERVER_INFO_t> INFO_MAP_t;

struct OPTIONS_t
{
    DEVICE_IDENTITY_t tIdentity;
    WQCurl::TRANSFER_DEFAULTS_t tTransfer;
    bool bVerbose = false;
    bool bJson = false;
    std::string strUrl;
    std::list<std::string> lstHeader;
    std::string strData;
    std::vector<std::string> vecId;
    bool bCert = false;
    bool bDefault = false;
    DOWNLOAD_OPTIONS_t tDownload;
    int (*pfnCommand)(const OPTIONS_t&) = nullptr; /**< the command that was chosen */
};

constexpr struct
{
    const char* pszName;
    std::string APPBIN_SERVER_INFO_t::*pField;
} INFO_FIELDS[] = {{"id", &APPBIN_SERVER_INFO_t::strId},           {"name", &APPBIN_SERVER_INFO_t::strName},
                   {"version", &APPBIN_SERVER_INFO_t::strVersion}, {"url", &APPBIN_SERVER_INFO_t::strUrl},
                   {"size", &APPBIN_SERVER_INFO_t::strSize},       {"signature", &APPBIN_SERVER_INFO_t::strSignature},
                   {"type", &APPBIN_SERVER_INFO_t::strType},       {"boot", &APPBIN_SERVER_INFO_t::strBoot}};

/** What a server sent, without the characters that could drive a terminal. */
std::string Printable(std::string strText)
{
    for (char& c : strText)
    {
        c = static_cast<unsigned char>(c) < ' ' || c == '\x7f' ? '?' : c;
    }
    return strText;
}

void PrintJson(const JSON_t& tJson)
{
    puts(tJson.dump(2, ' ', false, JSON_t::error_handler_t::replace).c_str());
}

int RunServers(const OPTIONS_t& tOptions)
{
    CSession tSession(tOptions.bVerbose);
    std::vector<std::string> vecUrl;
    if (!ICVeltra().GetAppBinaryServerUrl(vecUrl))
    {
        return PrintError("cannot get the server list", tSession.TakeCause());
    }
    if (tOptions.bJson)
    {
        PrintJson(vecUrl);
        return 0;
    }
    for (const std::string& strUrl : vecUrl)
    {
        puts(Printable(strUrl).c_str());
    }
    return 0;
}

bool GetInfo(const OPTIONS_t& tOptions, INFO_MAP_t& mapInfo)
{
    ICVeltra tQuery;
    std::vector<std::string> vecFoundId;
    if (tOptions.bCert)
    {
        return tQuery.GetCERTAppBinaryInfo(tOptions.strUrl, mapInfo, vecFoundId);
    }
    if (tOptions.bDefault)
    {
        return tQuery.GetDefaultAppBinaryInfo(tOptions.strUrl, vecFoundId, mapInfo);
    }
    return tQuery.GetServerAppBinaryInfo(tOptions.strUrl, mapInfo, tOptions.vecId);
}

void PrintInfo(const INFO_MAP_t& mapInfo, bool bJson)
{
    JSON_t tEntries = JSON_t::array();
    for (const auto& [strId, tInfo] : mapInfo)
    {
        JSON_t tEntry;
        for (const auto& tField : INFO_FIELDS)
        {
            tEntry[tField.pszName] = tInfo.*tField.pField;
            if (!bJson)
            {
                printf("%-10s %s\n", tField.pszName, Printable(tInfo.*tField.pField).c_str());
            }
        }
        tEntries.push_back(tEntry);
        if (!bJson)
        {
            puts("");
        }
    }
    if (bJson)
    {
        PrintJson(tEntries);
    }
}

int RunInfo(const OPTIONS_t& tOptions)
{
    if (tOptions.vecId.empty() && !tOptions.bCert && !tOptions.bDefault)
    {
        return PrintError("info", "one of --id, --cert and --default must say which entries");
    }
    CSession tSession(tOptions.bVerbose);
    INFO_MAP_t mapInfo;
    if (!GetInfo(tOptions, mapInfo))
    {
        return PrintError("cannot get the information document", tSession.TakeCause());
    }
    PrintInfo(mapInfo, tOptions.bJson);
    int nStatus = 0;
    for (const std::string& strId : tOptions.vecId)
    {
        if (mapInfo.count(strId) == 0)
        {
            nStatus = PrintError(strId, "the document has no such entry");
        }
    }
    return nStatus;
}

int RunRequest(const OPTIONS_t& tOptions, HTTP_METHOD_e eMethod, const std::string& strBody)
{
    CSession tSession(tOptions.bVerbose);
    _HTTP_REQ_INFO_t tReqInfo;
    tReqInfo.eMethod = eMethod;
    tReqInfo.strUrl = tOptions.strUrl;
    tReqInfo.lstHeader = tOptions.lstHeader;
    tReqInfo.strPostData = strBody;
    CWebConnector& tEngine = tSession.Engine();
    if (!(eMethod == HTTP_METHOD_POST ? tEngine.Post(&tReqInfo, true) : tEngine.Get(&tReqInfo, true)))
    {
        return PrintError(tOptions.strUrl, tSession.TakeCause());
    }
    static_cast<void>(fwrite(tReqInfo.strResponse.data(), 1, tReqInfo.strResponse.size(), stdout));
    return 0;
}

int RunGet(const OPTIONS_t& tOptions)
{
    return RunRequest(tOptions, HTTP_METHOD_GET, "");
}

int RunPost(const OPTIONS_t& tOptions)
{
    if (tOptions.strData.empty() || tOptions.strData.front() != '@')
    {
        return RunRequest(tOptions, HTTP_METHOD_POST, tOptions.strData);
    }
    const std::string strPath = tOptions.strData.substr(1);
    std::ifstream tFile(strPath, std::ios::binary);
    const std::string strBody{std::istreambuf_iterator<char>(tFile), std::istreambuf_iterator<char>()};
    return tFile.is_open() ? RunRequest(tOptions, HTTP_METHOD_POST, strBody) : PrintError(strPath, "cannot be read");
}

int RunDownload(const OPTIONS_t& tOptions)
{
    return RunDownloads(tOptions.tDownload, tOptions.bVerbose);
}

void AddGlobalOptions(CLI::App& tApp, OPTIONS_t& tOptions)
{
    tApp.set_version_flag("--version", VELTRA_VERSION);
    tApp.add_flag("-v", tOptions.bVerbose, "Print the library's log on standard error");
    tApp.add_option("--cacert", tOptions.tTransfer.strCaFile, "CA bundle to trust instead of the system's")
        ->check(CLI::ExistingFile);
    tApp.add_option("--connect-to", tOptions.tTransfer.lstConnectTo, "Connect elsewhere for one host; repeatable")
        ->type_name("HOST:PORT:CHOST:CPORT")
        ->allow_extra_args(false);
    const std::string strGroup = "Device identity";
    tApp.add_option("--chipset", tOptions.tIdentity.strChipset)->group(strGroup);
    tApp.add_option("--duid", tOptions.tIdentity.strDUID)->group(strGroup);
    tApp.add_option("--mac", tOptions.tIdentity.strMAC)->group(strGroup);
    tApp.add_option("--country", tOptions.tIdentity.strCountryCode)->group(strGroup);
    tApp.add_option("--model", tOptions.tIdentity.strModelID)->group(strGroup);
    tApp.add_option("--server-type", tOptions.tIdentity.nServerType, "0: production, others: test")->group(strGroup);
}

CLI::App* AddCommand(CLI::App& tApp, OPTIONS_t& tOptions, const char* pszName, const char* pszDescription,
                     int (*pfnCommand)(const OPTIONS_t&))
{
    CLI::App* pCommand = tApp.add_subcommand(pszName, pszDescription);
    pCommand->callback([&tOptions, pfnCommand] { tOptions.pfnCommand = pfnCommand; });
    return pCommand;
}

void AddQueryCommands(CLI::App& tApp, OPTIONS_t& tOptions)
{
    CLI::App* pServers = AddCommand(tApp, tOptions, "servers", "List the servers for this device", &RunServers);
    CLI::App* pInfo = AddCommand(tApp, tOptions, "info", "Show entries of a server's document", &RunInfo);
    pInfo->add_option("URL", tOptions.strUrl, "The document, as the server list names it")->required();
    CLI::Option* pId = pInfo->add_option("--id", tOptions.vecId, "Those with these identifiers")->type_name("ID");
    CLI::Option* pCert = pInfo->add_flag("--cert", tOptions.bCert, "The CERT entries")->excludes(pId);
    pInfo->add_flag("--default", tOptions.bDefault, "The entries that are marked for boot")->excludes(pId, pCert);
    for (CLI::App* pCommand : {pServers, pInfo})
    {
        pCommand->add_flag("--json", tOptions.bJson, "Print JSON");
    }
}

void AddRequestCommands(CLI::App& tApp, OPTIONS_t& tOptions)
{
    CLI::App* pGet = AddCommand(tApp, tOptions, "get", "Print what a GET answers, whatever its HTTP status", &RunGet);
    CLI::App* pPost =
        AddCommand(tApp, tOptions, "post", "Print what a POST answers, whatever its HTTP status", &RunPost);
    pPost->add_option("--data", tOptions.strData, "The body")->type_name("TEXT|@FILE")->required();
    for (CLI::App* pCommand : {pGet, pPost})
    {
        pCommand->add_option("URL", tOptions.strUrl)->required();
        pCommand->add_option("-H", tOptions.lstHeader, "One more header line; repeatable")
            ->type_name("'NAME: VALUE'")
            ->allow_extra_args(false);
    }
}

void AddDownloadCommand(CLI::App& tApp, OPTIONS_t& tOptions)
{
    DOWNLOAD_OPTIONS_t& tDownload = tOptions.tDownload;
    CLI::App* pDownload =
        AddCommand(tApp, tOptions, "download", "Download files, whatever the HTTP status of each", &RunDownload);
    pDownload->add_option("URL", tDownload.vecUrlAndFile, "Pairs of what to download and where to put it")
        ->type_name("FILE")
        ->required();
    CLI::Option* pSync = pDownload->add_flag("--sync", tDownload.bSync, "One after the other, flushed to the disk");
    pDownload->add_option("--timeout", tDownload.nTimeoutSeconds, "With --sync: for each file, 0: none")
        ->type_name("SECONDS")
        ->needs(pSync);
    pDownload->add_option("--connect-timeout", tDownload.nConnectTimeoutSeconds, "With --sync: to connect, at most")
        ->type_name("SECONDS")
        ->capture_default_str()
        ->needs(pSync);
}

int Main(int argc, char** argv)
{
    OPTIONS_t tOptions;
    CLI::App tApp("Asks the query service, reads its servers' documents and downloads files.", "veltra");
    tApp.fallthrough();
    tApp.require_subcommand(1);
    AddGlobalOptions(tApp, tOptions);
    AddQueryCommands(tApp, tOptions);
    AddRequestCommands(tApp, tOptions);
    AddDownloadCommand(tApp, tOptions);
    CLI11_PARSE(tApp, argc, argv);

    CAIAuth::SetIdentity(tOptions.tIdentity);
    WQCurl::SetTransferDefaults(tOptions.tTransfer);
    const int nStatus = tOptions.pfnCommand(tOptions);
    if (fflush(stdout) != 0 || ferror(stdout) != 0)
    {
        return PrintError("standard output", "cannot be written");
    }
    return nStatus;
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        return Main(argc, argv);
    }
    catch (const std::exception& tException)
    {
        return PrintError("cannot go on", tException.what());
    }
}
