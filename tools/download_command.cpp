#include <climits>

#include "commands.h"
#include "download_target.h"
#include "json.h"
#include "messages.h"
#include "option_values.h"
#include "shared_options.h"
#include "url.h"

namespace
{

struct DOWNLOAD_COMMAND_t
{
    std::vector<std::string> vecUrlAndFile;
    long long nSize = -1;
    std::string strSha256;
    DOWNLOAD_OPTIONS_t tRun;
};

/** CLI11 does not know positional arguments that come in pairs. */
class CPairFormatter : public CLI::Formatter
{
public:
    std::string make_option_usage(const CLI::Option* /*pOption*/) const override { return "URL FILE [URL FILE]..."; }
};

std::string Fault(const DOWNLOAD_COMMAND_t& tCommand)
{
    const std::vector<std::string>& vecArgument = tCommand.vecUrlAndFile;
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
    const bool bChecked = tCommand.nSize >= 0 || !tCommand.strSha256.empty();
    return bChecked && vecArgument.size() > 2 ? "download: --sha256 and --size are for a single file" : "";
}

int RunDownload(const OPTIONS_t& tOptions, const DOWNLOAD_COMMAND_t& tCommand)
{
    if (const std::string strFault = Fault(tCommand); !strFault.empty())
    {
        return PrintUsageError(strFault, "download");
    }
    std::vector<DOWNLOAD_t> vecDownload;
    for (size_t nIndex = 0; nIndex < tCommand.vecUrlAndFile.size(); nIndex += 2)
    {
        vecDownload.push_back({tCommand.vecUrlAndFile[nIndex], tCommand.vecUrlAndFile[nIndex + 1], tCommand.nSize,
                               tCommand.strSha256, tCommand.tRun.bDurable});
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
    AddValue(tApp, "URL", ptCommand->vecUrlAndFile, "FILE", NotEmpty(), "A URL and its file; repeatable")->required();
    AddValue(tApp, "--sha256", ptCommand->strSha256, "HEX", Sha256Digits(), "The expected checksum of a single file");
    AddValue(tApp, "--size", ptCommand->nSize, "N", Number(0, LLONG_MAX),
             "The expected size of a single file in bytes");
    tApp.add_flag("--force", tRun.bForce, "Take over existing temporary files");
    AddRunOptions(tApp, tRun, tTransfer);
}
