#include "command_line.h"

#include <CLI/CLI.hpp>
#include <climits>

#include "commands.h"
#include "option_values.h"
#include "text.h"
#include "url.h"

namespace
{

constexpr int STATUS_USAGE = 2;
constexpr long long LARGEST = LLONG_MAX;
constexpr long long USUAL_LARGEST_ANSWER = 64000000; /* bytes: an answer is kept in memory */

/** The results that the declarations of all commands fill. */
struct PARSER_t
{
    CLI::App& tApp;
    OPTIONS_t& tOptions;
    COMMAND_t& pfnCommand;

    CLI::App* AddCommand(const char* pszName, const char* pszDescription, COMMAND_t pfnRun)
    {
        CLI::App* pCommand = tApp.add_subcommand(pszName, pszDescription);
        pCommand->callback([this, pfnRun] { pfnCommand = pfnRun; });
        pCommand->footer("The options of 'veltra --help' may stand here, too.");
        return pCommand;
    }
};

void AddIdentityOptions(CLI::App& tApp, OPTIONS_t& tOptions)
{
    const std::string strGroup = "Device identity";
    tApp.add_option("--chipset", tOptions.tIdentity.strChipset, "Chipset name, without which nothing is asked")
        ->check(Line())
        ->group(strGroup);
    tApp.add_option("--duid", tOptions.tIdentity.strDUID, "Unique identifier")->check(Line())->group(strGroup);
    tApp.add_option("--mac", tOptions.tIdentity.strMAC, "MAC address")->check(Line())->group(strGroup);
    tApp.add_option("--country", tOptions.tIdentity.strCountryCode, "Country code")->check(Line())->group(strGroup);
    tApp.add_option("--model", tOptions.tIdentity.strModelID, "Model identifier")->check(Line())->group(strGroup);
    tApp.add_option("--server-type", tOptions.tIdentity.nServerType,
                    "Which service is asked; 0: production, others: test")
        ->check(Number(INT_MIN, INT_MAX))
        ->group(strGroup);
    tApp.add_option("--query-host", tOptions.strQueryHost,
                    "Connect here for the query service; the certificate must be for the service's own name")
        ->type_name("HOST[:PORT]")
        ->check(HostAndPort())
        ->group(strGroup);
}

void AddFamilyOptions(CLI::App& tApp, WQCurl::TRANSFER_DEFAULTS_t& tTransfer, const std::string& strGroup)
{
    const auto fnAdd = [&](const char* pszName, WQCurl::IP_FAMILY_e eFamily, const char* pszDescription)
    {
        const auto fnSet = [&tTransfer, eFamily]
        {
            if (tTransfer.eIpFamily == WQCurl::IP_FAMILY_4 + WQCurl::IP_FAMILY_6 - eFamily)
            {
                throw CLI::ValidationError("-4 excludes -6");
            }
            tTransfer.eIpFamily = eFamily;
        };
        tApp.add_flag_callback(pszName, fnSet, pszDescription)->group(strGroup);
    };
    fnAdd("-4,--ipv4", WQCurl::IP_FAMILY_4, "Use IPv4 only");
    fnAdd("-6,--ipv6", WQCurl::IP_FAMILY_6, "Use IPv6 only");
}

void AddConnectionOptions(CLI::App& tApp, WQCurl::TRANSFER_DEFAULTS_t& tTransfer)
{
    const std::string strGroup = "Connections";
    tApp.add_option("--cacert", tTransfer.strCaFile, "CA bundle to trust instead of the system's")
        ->type_name("FILE")
        ->check(ReadableFile())
        ->group(strGroup);
    tApp.add_option("--capath", tTransfer.strCaFolder, "Hashed folder of CA certificates to trust")
        ->type_name("FOLDER")
        ->check(ReadableFile())
        ->group(strGroup);
    tApp.add_option("--client-cert", tTransfer.strClientCertificate, "The client's own certificate")
        ->type_name("FILE|URI")
        ->group(strGroup);
    tApp.add_option("--client-key", tTransfer.strClientKey, "Its key, if that is not in the same file")
        ->type_name("FILE|URI")
        ->group(strGroup);
    tApp.add_option("--connect-to", tTransfer.lstConnectTo, "Connect elsewhere for one host; repeatable")
        ->type_name("HOST:PORT:CHOST:CPORT")
        ->check(ConnectTo())
        ->allow_extra_args(false)
        ->group(strGroup);
    tApp.add_option("--proxy", tTransfer.strProxy, "A proxy for all hosts")
        ->type_name("[SCHEME://][USER:PASSWORD@]HOST[:PORT]")
        ->check(Proxy())
        ->group(strGroup);
    tApp.add_flag("--http2", tTransfer.bHttp2, "Speak HTTP/2 with https servers that do")->group(strGroup);
    AddFamilyOptions(tApp, tTransfer, strGroup);
    tApp.add_option("--connect-timeout", tTransfer.nConnectTimeout, "Look-up, TCP and TLS together, at most")
        ->type_name("SECONDS")
        ->capture_default_str()
        ->check(Number(1, 86400))
        ->group(strGroup);
    tApp.add_option("--max-connections", tTransfer.nMostConnections, "At the same time, in all; 0: any number")
        ->type_name("N")
        ->check(Number(0, INT_MAX))
        ->group(strGroup);
    tApp.add_option("--max-per-host", tTransfer.nMostConnectionsPerHost, "The same for one host")
        ->type_name("N")
        ->check(Number(0, INT_MAX))
        ->group(strGroup);
}

void AddTransferOptions(CLI::App& tApp, WQCurl::TRANSFER_DEFAULTS_t& tTransfer)
{
    const std::string strGroup = "Transfers";
    tApp.add_option("--limit-rate", tTransfer.nMostBytesPerSecond,
                    "At most so many a second for each transfer, such as 64k or 2M")
        ->type_name("BYTES")
        ->transform(Bytes(4096))
        ->group(strGroup);
    tApp.add_option_function<long long>(
            "--max-size",
            [&tTransfer](const long long& nBytes) { tTransfer.nLargestAnswer = tTransfer.nLargestFile = nBytes; },
            "Fail a larger answer or file, such as 20M or 1G; by default an answer above 64M")
        ->type_name("BYTES")
        ->transform(Bytes(1))
        ->group(strGroup);
    tApp.add_option("--retry", tTransfer.nResumeAttempts,
                    "How often in a row the rest of a download that broke is asked for; 0: never")
        ->type_name("N")
        ->capture_default_str()
        ->check(Number(0, 1000000))
        ->group(strGroup);
    tApp.add_option("--retry-time", tTransfer.nResumeSeconds, "Not later than this after its begin; 0: any time")
        ->type_name("SECONDS")
        ->check(Number(0, INT_MAX))
        ->group(strGroup);
}

void AddFailFlags(CLI::App* pCommand, OPTIONS_t& tOptions, const std::string& strFault, bool bUsual)
{
    pCommand->add_flag_callback(
        "--fail", [&tOptions] { tOptions.nFail = 1; }, "Fail with " + strFault + (bUsual ? " (the default)" : ""));
    pCommand->add_flag_callback(
        "--no-fail", [&tOptions] { tOptions.nFail = -1; },
        std::string("Do not look at the status") + (bUsual ? "" : " (the default)"));
}

void AddEntryOptions(CLI::App* pCommand, OPTIONS_t& tOptions)
{
    CLI::Option* pId = pCommand->add_option("--id", tOptions.vecId, "Entries with these identifiers; repeatable")
                           ->type_name("ID[,ID]")
                           ->delimiter(',')
                           ->allow_extra_args(false);
    CLI::Option* pCert = pCommand->add_flag("--cert", tOptions.bCert, "The CERT entries")->excludes(pId);
    pCommand->add_flag("--default", tOptions.bDefault, "The entries that are marked for boot")->excludes(pId, pCert);
}

void AddQueryCommands(PARSER_t& tParser)
{
    OPTIONS_t& tOptions = tParser.tOptions;
    CLI::App* pServers = tParser.AddCommand("servers", "List the servers for this device", &RunServers);
    CLI::App* pInfo = tParser.AddCommand("info", "Show entries of a server's document", &RunInfo);
    pInfo->add_option("URL", tOptions.strUrl, "The document, as the server list names it")
        ->required()
        ->check(NotEmpty());
    AddEntryOptions(pInfo, tOptions);
    for (CLI::App* pCommand : {pServers, pInfo})
    {
        pCommand->add_flag("--json", tOptions.bJson, "Print JSON");
    }
}

void AddRequestCommands(PARSER_t& tParser)
{
    OPTIONS_t& tOptions = tParser.tOptions;
    CLI::App* pGet = tParser.AddCommand("get", "Print what a GET answers, within 30 seconds", &RunGet);
    CLI::App* pPost = tParser.AddCommand("post", "Print what a POST answers, within 30 seconds", &RunPost);
    pPost->add_option("--data", tOptions.strData, "The body")->type_name("TEXT|@FILE")->required();
    for (CLI::App* pCommand : {pGet, pPost})
    {
        pCommand->add_option("URL", tOptions.strUrl, "http or https; without either http")
            ->required()
            ->check(NotEmpty());
        pCommand->add_option("-H", tOptions.lstHeader, "One more header line; repeatable")
            ->type_name("'NAME: VALUE'")
            ->check(HeaderLine())
            ->allow_extra_args(false);
        pCommand->add_option("-o", tOptions.strOutput, "Where the answer goes")->type_name("FILE");
        pCommand->add_flag("-i", tOptions.bHeadings, "Print status, type, length, peer and times before the answer");
        AddFailFlags(pCommand, tOptions, "a redirect or a status of 400 and more", false);
    }
}

/** CLI11 does not know positional arguments that come in pairs. */
class CPairFormatter : public CLI::Formatter
{
public:
    std::string make_option_usage(const CLI::Option* /*pOption*/) const override { return "URL FILE [URL FILE]..."; }
};

/** The options that download and fetch share. */
void AddRunOptions(CLI::App* pCommand, OPTIONS_t& tOptions)
{
    DOWNLOAD_OPTIONS_t& tDownload = tOptions.tDownload;
    pCommand->add_option("--jobs", tDownload.nJobs, "Files at the same time")
        ->type_name("N")
        ->capture_default_str()
        ->check(Number(1, 1000));
    pCommand->add_flag("--durable", tDownload.bDurable, "Done means that a power cut costs nothing of it");
    pCommand->add_flag("-q", tOptions.bQuiet, "Print nothing but errors");
    pCommand->add_flag("--json", tOptions.bJson, "Print JSON, at the end");
    AddFailFlags(pCommand, tOptions, "a redirect or a status of 400 and more", true);
}

void AddDownloadCommand(PARSER_t& tParser)
{
    OPTIONS_t& tOptions = tParser.tOptions;
    DOWNLOAD_OPTIONS_t& tDownload = tOptions.tDownload;
    CLI::App* pDownload = tParser.AddCommand("download", "Download each URL into the FILE after it", &RunDownload);
    pDownload->formatter(std::make_shared<CPairFormatter>());
    pDownload->add_option("URL", tOptions.vecUrlAndFile, "A URL and the file that it is downloaded into; repeatable")
        ->type_name("FILE")
        ->required()
        ->check(NotEmpty());
    pDownload->add_option("--sha256", tOptions.strSha256, "Of a single file: what it must have")
        ->type_name("HEX")
        ->transform(Sha256Digits());
    pDownload->add_option("--size", tOptions.nSize, "Of a single file: how many bytes it must have")
        ->type_name("N")
        ->check(Number(0, LARGEST));
    pDownload->add_flag("--force", tDownload.bForce, "Take over temporary files that are there");
    AddRunOptions(pDownload, tOptions);
    CLI::Option* pSync = pDownload->add_flag("--sync", tDownload.bSync, "One after the other, flushed to the disk");
    pDownload->add_option("--timeout", tDownload.nTimeoutSeconds, "With --sync: for each file, 0: none")
        ->type_name("SECONDS")
        ->check(Number(0, INT_MAX))
        ->needs(pSync);
}

void AddOtherCommands(PARSER_t& tParser)
{
    OPTIONS_t& tOptions = tParser.tOptions;
    CLI::App* pFetch = tParser.AddCommand(
        "fetch", "The main job: ask for the servers, and download entries of a document of theirs", &RunFetch);
    pFetch->add_option("DIR", tOptions.strFolder, "Where the files go, named after the entries")->required();
    AddEntryOptions(pFetch, tOptions);
    pFetch->add_flag("--force", tOptions.tDownload.bForce,
                     "Replace files that are there, and take over temporary ones");
    AddRunOptions(pFetch, tOptions);
    CLI::App* pDoctor = tParser.AddCommand("doctor", "Say what is wrong when nothing works", &RunDoctor);
    pDoctor->add_option("URL", tOptions.strUrl, "What to try; by default the query service")->check(NotEmpty());
}

std::string CheckDownload(const OPTIONS_t& tOptions)
{
    const std::vector<std::string>& vecArgument = tOptions.vecUrlAndFile;
    if (vecArgument.size() % 2 != 0)
    {
        return "download: this URL has no FILE: " + WithoutCredentials(vecArgument.back());
    }
    for (size_t nIndex = 1; nIndex < vecArgument.size(); nIndex += 2)
    {
        if (vecArgument[nIndex] == "-")
        {
            return "download: -: a download goes into a file, not to standard output";
        }
    }
    const bool bChecked = tOptions.nSize >= 0 || !tOptions.strSha256.empty();
    return bChecked && vecArgument.size() > 2 ? "download: --sha256 and --size are for a single file" : "";
}

/** Checks what CLI11 cannot know from the declarations. @return the fault; empty if there is none */
std::string CheckUsage(const OPTIONS_t& tOptions, COMMAND_t pfnCommand)
{
    if (pfnCommand == nullptr)
    {
        return "a command is missing";
    }
    const bool bEntries = !tOptions.vecId.empty() || tOptions.bCert || tOptions.bDefault;
    if ((pfnCommand == &RunInfo || pfnCommand == &RunFetch) && !bEntries)
    {
        return "one of --id, --cert and --default must say which entries";
    }
    return pfnCommand == &RunDownload ? CheckDownload(tOptions) : "";
}

int PrintUsageError(const CLI::App& tApp, const std::string& strFault)
{
    const std::vector<CLI::App*> vecCommand = tApp.get_subcommands();
    const std::string strCommand = vecCommand.empty() ? "" : vecCommand.front()->get_name() + " ";
    static_cast<void>(
        fprintf(stderr, "veltra: %s\nTry 'veltra %s--help'.\n", Printable(strFault).c_str(), strCommand.c_str()));
    return STATUS_USAGE;
}

/** Names an unknown argument first: it is often the cause of a missing one. */
std::string Fault(const CLI::App& tApp, const CLI::ParseError& tError)
{
    const std::vector<std::string> vecUnknown = tApp.remaining(true);
    if (vecUnknown.empty())
    {
        return tError.what();
    }
    const std::string& strUnknown = vecUnknown.front();
    const bool bCommand = tApp.get_subcommands().empty();
    const char* pszKind = bCommand ? "no such command: " : "unexpected argument: ";
    return (strUnknown.front() == '-' && strUnknown != "-" ? "no such option: " : pszKind) +
           WithoutCredentials(strUnknown);
}

/** Sets the values that follow from several options together. */
void Complete(OPTIONS_t& tOptions, COMMAND_t pfnCommand)
{
    const bool bRequest = pfnCommand == &RunGet || pfnCommand == &RunPost || pfnCommand == &RunDoctor;
    tOptions.tTransfer.bFailOnHttpError = bRequest ? tOptions.nFail > 0 : tOptions.nFail >= 0;
    tOptions.tTransfer.bFailOnRedirect = tOptions.tTransfer.bFailOnHttpError;
    tOptions.tDownload.nConnectTimeoutSeconds = tOptions.tTransfer.nConnectTimeout;
    if (pfnCommand == &RunFetch)
    {
        tOptions.tDownload.eView = VIEW_BARS_ALONE;
    }
    if (tOptions.bQuiet || tOptions.bJson)
    {
        tOptions.tDownload.eView = VIEW_NOTHING;
    }
    else if (tOptions.bVerbose)
    {
        tOptions.tDownload.eView = VIEW_LINES;
    }
    if (!tOptions.strQueryHost.empty())
    {
        const bool bPort = tOptions.strQueryHost.find(':', tOptions.strQueryHost.rfind(']') + 1) != std::string::npos;
        for (const char* pszHost : {VELTRA_QUERY_HOST, VELTRA_QUERY_HOST_TEST})
        {
            tOptions.tTransfer.lstConnectTo.push_front(std::string(pszHost) + ":443:" + tOptions.strQueryHost +
                                                       (bPort ? "" : ":443"));
        }
    }
}

} // namespace

int ParseCommandLine(int argc, char** argv, OPTIONS_t& tOptions, COMMAND_t& pfnCommand)
{
    tOptions.tTransfer.nResumeAttempts = 5;
    tOptions.tTransfer.nLargestAnswer = USUAL_LARGEST_ANSWER;
    CLI::App tApp("Asks the query service, reads its servers' documents and downloads files.", "veltra");
    PARSER_t tParser{tApp, tOptions, pfnCommand};
    tApp.fallthrough();
    tApp.require_subcommand(0, 1);
    tApp.set_version_flag("--version", VELTRA_VERSION);
    tApp.add_flag("-v", tOptions.bVerbose, "Print the library's log on standard error");
    AddIdentityOptions(tApp, tOptions);
    AddConnectionOptions(tApp, tOptions.tTransfer);
    AddTransferOptions(tApp, tOptions.tTransfer);
    AddQueryCommands(tParser);
    AddOtherCommands(tParser);
    AddDownloadCommand(tParser);
    AddRequestCommands(tParser);
    for (CLI::App* pCommand : tApp.get_subcommands(nullptr))
    {
        /* CLI11 takes "-4" for an argument where the command itself has no such option. */
        AddFamilyOptions(*pCommand, tOptions.tTransfer, "");
    }
    try
    {
        tApp.parse(argc, argv);
    }
    catch (const CLI::ParseError& tError)
    {
        pfnCommand = nullptr;
        return tError.get_exit_code() == 0 ? tApp.exit(tError) : PrintUsageError(tApp, Fault(tApp, tError));
    }
    const std::string strFault = CheckUsage(tOptions, pfnCommand);
    if (!strFault.empty())
    {
        pfnCommand = nullptr;
        return PrintUsageError(tApp, strFault);
    }
    Complete(tOptions, pfnCommand);
    return 0;
}
