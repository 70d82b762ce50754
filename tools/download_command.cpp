#include <climits>

#include "commands.h"
#include "download_list.h"
#include "download_target.h"
#include "file_content.h"
#include "json.h"
#include "messages.h"
#include "options.h"
#include "url.h"

namespace
{

struct DOWNLOAD_COMMAND_t
{
    std::vector<std::string> vecUrlAndFile;
    std::string strList;    /**< the path of a list; empty: none */
    std::string strBaseUrl; /**< empty: the list names URLs */
    long long nSize = -1;
    std::string strSha256;
    DOWNLOAD_OPTIONS_t tRun;
};

/** CLI11 does not know positional arguments that come in pairs. */
class CPairFormatter : public CLI::Formatter
{
public:
    std::string make_option_usage(const CLI::Option* /*pOption*/) const override { return "[URL FILE]..."; }
};

/** @return the fault of the arguments; empty: none */
std::string TakeArguments(const DOWNLOAD_COMMAND_t& tCommand, std::vector<DOWNLOAD_t>& vecDownload)
{
    const std::vector<std::string>& vecArgument = tCommand.vecUrlAndFile;
    if (vecArgument.empty())
    {
        return "a URL with its FILE, or -i, is missing";
    }
    if (vecArgument.size() % 2 != 0)
    {
        return "this URL has no FILE: " + WithoutCredentials(vecArgument.back());
    }
    for (size_t nIndex = 0; nIndex < vecArgument.size(); nIndex += 2)
    {
        vecDownload.push_back({vecArgument[nIndex], vecArgument[nIndex + 1], tCommand.nSize, tCommand.strSha256});
    }
    const bool bChecked = tCommand.nSize >= 0 || !tCommand.strSha256.empty();
    return bChecked && vecDownload.size() > 1 ? "--sha256 and --size are for a single file" : "";
}

int RunDownload(const OPTIONS_t& tOptions, const DOWNLOAD_COMMAND_t& tCommand)
{
    const std::string& strPath = tCommand.strList;
    std::string strList;
    if (const int nError = strPath.empty() ? 0 : ReadContent(strPath, strList); nError != 0)
    {
        return PrintError(strPath, SystemText(nError));
    }
    std::vector<DOWNLOAD_t> vecDownload;
    std::string strFault = strPath.empty() ? TakeArguments(tCommand, vecDownload)
                                           : ParseDownloadList(strList, tCommand.strBaseUrl, vecDownload);
    for (DOWNLOAD_t& tDownload : vecDownload)
    {
        tDownload.bDurable = tCommand.tRun.bDurable;
        strFault = tDownload.strFile == "-" ? "-: a download goes into a file, not to standard output" : strFault;
    }
    if (!strFault.empty())
    {
        return PrintUsageError("download: " + (strPath.empty() ? "" : strPath + ": ") + strFault, "download");
    }
    if (!CheckTargets(vecDownload, tCommand.tRun.bForce))
    {
        return 1;
    }
    CSession tSession(tOptions, tCommand.tRun.bFailOnHttpError);
    const int nStatus = RunDownloads(tSession, vecDownload, tCommand.tRun);
    if (tCommand.tRun.bJson)
    {
        PrintResults(vecDownload);
    }
    return nStatus;
}

} // namespace

void AddDownloadCommand(const ADD_COMMAND_t& fnAdd, WQCurl::TRANSFER_SETTINGS_t& tTransfer)
{
    const auto ptCommand = std::make_shared<DOWNLOAD_COMMAND_t>();
    DOWNLOAD_OPTIONS_t& tRun = ptCommand->tRun;
    CLI::App& tApp = fnAdd("download", "Download each URL into the FILE after it",
                           [ptCommand](const OPTIONS_t& tOptions) { return RunDownload(tOptions, *ptCommand); });
    tApp.formatter(std::make_shared<CPairFormatter>());
    CLI::Option* pUrl =
        AddValue(tApp, "URL", ptCommand->vecUrlAndFile, "FILE", NotEmpty(), "A URL and its file; repeatable");
    CLI::Option* pSum = AddValue(tApp, "--sha256", ptCommand->strSha256, "HEX", Sha256Digits(),
                                 "The expected checksum of a single file");
    CLI::Option* pSize = AddValue(tApp, "--size", ptCommand->nSize, "N", CLI::Range(0LL, LLONG_MAX),
                                  "The expected size of a single file in bytes");
    CLI::Option* pList = AddValue(tApp, "-i", ptCommand->strList, "FILE", NotEmpty(),
                                  "A list with lines 'URL FILE [SIZE] [SHA256]'; -: standard input")
                             ->excludes(pUrl)
                             ->excludes(pSum)
                             ->excludes(pSize);
    AddValue(tApp, "--base-url", ptCommand->strBaseUrl, "URL", NotEmpty(),
             "The list is one of sha256sum; the names follow this URL")
        ->needs(pList);
    AddRunOptions(tApp, tRun, tTransfer);
}
