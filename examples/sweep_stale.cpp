/* Removes the files that killed downloads have left in a folder, then downloads into it: sweep_stale URL FILE */

#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <future>
#include <sys/file.h>
#include <unistd.h>

#include "veltra/veltra.h"

namespace fs = std::filesystem;

namespace
{

/** Removes only regular files: Veltra makes no links and nothing else of that name. */
void Sweep(const fs::path& tFolder)
{
    std::error_code tError;
    for (fs::directory_iterator itEntry(tFolder, tError), itEnd; !tError && itEntry != itEnd; itEntry.increment(tError))
    {
        std::error_code tFailure; // of one file, which keeps nobody from the others
        if (itEntry->path().extension() == ".bak" && fs::is_regular_file(itEntry->symlink_status(tFailure)))
        {
            const bool bRemoved = fs::remove(itEntry->path(), tFailure);
            std::printf("%s %s\n", bRemoved ? "removed" : "could not remove", itEntry->path().c_str());
        }
    }
}

void OnDownload(int /*nId*/, DOWNLOAD_TYPE_e eType, int /*nPercent*/, double /*dSpeed*/, void* pUserData)
{
    if (eType != DOWNLOAD_TYPE_PROGRESS)
    {
        static_cast<std::promise<DOWNLOAD_TYPE_e>*>(pUserData)->set_value(eType);
    }
}

} // namespace

int main(int nArguments, char* arrArguments[])
{
    if (nArguments != 3)
    {
        static_cast<void>(std::fprintf(stderr, "usage: sweep_stale URL FILE\n"));
        return 2;
    }
    const fs::path tTarget = arrArguments[2];
    const fs::path tFolder = tTarget.has_parent_path() ? tTarget.parent_path() : fs::path(".");
    /* Another process that sweeps the folder would remove this one's downloads. The lock ends with the process. */
    const int nFolder = open(tFolder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (nFolder < 0 || flock(nFolder, LOCK_EX | LOCK_NB) != 0)
    {
        std::perror(tFolder.c_str());
        return 1;
    }
    Sweep(tFolder); // before the first download
    CWebConnector* ptEngine = CSingleton<CWebConnector>::GetInstance();
    ptEngine->Create();
    std::promise<DOWNLOAD_TYPE_e> tEnd;
    const int nStarted =
        ptEngine->StartDownload(ptEngine->CreateDownloadId(), arrArguments[1], tTarget, &OnDownload, &tEnd);
    const bool bStored = nStarted == 1 && tEnd.get_future().get() == DOWNLOAD_TYPE_SUCCESS;
    ptEngine->Destroy();
    close(nFolder);
    std::printf("%s\n", bStored ? "stored" : nStarted == 1 ? "failed" : "refused");
    return bStored ? 0 : 1;
}
