/* Downloads a file if there is room for it: free_space URL FILE SIZE */

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "veltra/veltra.h"

namespace
{

constexpr std::uintmax_t RESERVE = 16777216; // bytes that the rest of the device is to keep

bool HasRoom(const std::filesystem::path& tTarget, std::uintmax_t nSize)
{
    std::error_code tError;
    const auto tFolder = tTarget.has_parent_path() ? tTarget.parent_path() : std::filesystem::path(".");
    const std::uintmax_t nFree = std::filesystem::space(tFolder, tError).available; // without what is root's alone
    return !tError && nFree > RESERVE && nFree - RESERVE >= nSize;
}

} // namespace

int main(int nArguments, char* arrArguments[])
{
    WQCurl::TRANSFER_SETTINGS_t tSettings;
    tSettings.bFailOnHttpError = true;
    tSettings.nLargestFile =
        nArguments == 4 ? std::strtoll(arrArguments[3], nullptr, 10) : 0; // whatever the server sends
    if (tSettings.nLargestFile <= 0 || !WQCurl::SetTransferDefaults(tSettings))
    {
        static_cast<void>(std::fprintf(stderr, "usage: free_space URL FILE SIZE\n"));
        return 2;
    }
    if (!HasRoom(arrArguments[2], static_cast<std::uintmax_t>(tSettings.nLargestFile)))
    {
        std::printf("there is no room for the file\n");
        return 1;
    }
    const bool bStored =
        CSingleton<CWebConnector>::GetInstance()->SyncDownloadFile(arrArguments[1], arrArguments[2], 600, 0);
    WQCurl::TRANSFER_REPORT_t tReport;
    WQCurl::TransferReport(tReport);
    if (!bStored)
    {
        static_cast<void>(std::remove((std::string(arrArguments[2]) + ".bak").c_str())); // takes space as well
    }
    std::printf("%s %s\n", bStored ? "stored" : "failed:", tReport.strErrorMsg.c_str());
    return bStored ? 0 : 1;
}
