/* Downloads many files side by side, and prints how and why each ended: download_manager FOLDER URL … */

#include <condition_variable>
#include <cstdio>
#include <deque>
#include <mutex>
#include <utility>

#include "veltra/veltra.h"

namespace
{

struct END_t
{
    int nId;
    bool bStored;
    WQCurl::TRANSFER_REPORT_t tReport; // empty when Destroy() has ended the download
};

/** The ends that the worker hands to the thread that prints them. */
struct ENDS_t
{
    std::mutex tLock;
    std::condition_variable tPut;
    std::deque<END_t> queEnds;
};

void OnDownload(int nId, DOWNLOAD_TYPE_e eType, int /*nPercent*/, double /*dSpeed*/, void* pEnds)
{
    if (eType != DOWNLOAD_TYPE_PROGRESS)
    {
        auto* ptEnds = static_cast<ENDS_t*>(pEnds);
        END_t tEnd{nId, eType == DOWNLOAD_TYPE_SUCCESS, {}};
        WQCurl::TransferReport(tEnd.tReport);
        const std::lock_guard<std::mutex> tGuard(ptEnds->tLock);
        ptEnds->queEnds.push_back(std::move(tEnd));
        ptEnds->tPut.notify_one();
    }
}

} // namespace

int main(int nArguments, char* arrArguments[])
{
    WQCurl::TRANSFER_SETTINGS_t tSettings;
    tSettings.bFailOnHttpError = true;
    tSettings.nMostConnectionsPerHost = 4; // the others wait their turn
    if (nArguments < 3 || !WQCurl::SetTransferDefaults(tSettings))
    {
        static_cast<void>(std::fprintf(stderr, "usage: download_manager FOLDER URL …\n"));
        return 2;
    }
    CWebConnector* ptEngine = CSingleton<CWebConnector>::GetInstance();
    ptEngine->Create();
    ENDS_t tEnds;
    int nUnderWay = 0;
    for (int i = 2; i < nArguments; ++i)
    {
        const int nId = ptEngine->CreateDownloadId();
        /* A URL's own name could lead anywhere. */
        const std::string strTarget = std::string(arrArguments[1]) + "/" + std::to_string(nId);
        const int nStarted = ptEngine->StartDownload(nId, arrArguments[i], strTarget, &OnDownload, &tEnds);
        nUnderWay += nStarted == 1 ? 1 : 0;
        std::printf("%d %s: %s\n", nId, arrArguments[i], nStarted == 1 ? "under way" : "refused");
    }
    int nStored = 0;
    for (; nUnderWay > 0; --nUnderWay)
    {
        std::unique_lock<std::mutex> tGuard(tEnds.tLock);
        tEnds.tPut.wait(tGuard, [&tEnds] { return !tEnds.queEnds.empty(); });
        const END_t tEnd = std::move(tEnds.queEnds.front());
        tEnds.queEnds.pop_front();
        tGuard.unlock();
        nStored += tEnd.bStored ? 1 : 0;
        const WQCurl::TRANSFER_REPORT_t& tReport = tEnd.tReport;
        std::printf("%d %s: status %d, %lld bytes in %.1f s, code %d %s\n", tEnd.nId,
                    tEnd.bStored ? "stored" : "failed", tReport.nHttpStatus, tReport.nBytes, tReport.dTotal,
                    tReport.nResultCode, tReport.strErrorMsg.c_str());
    }
    ptEngine->Destroy();
    return nStored == nArguments - 2 ? 0 : 1;
}
