/*
 * Veltra: downloads into the folder FOLDER of URL?0, URL?1 and so on, REQUESTS in all, AT_ONCE of them in flight:
 * "veltra_download URL REQUESTS FOLDER AT_ONCE".
 */

#include <atomic>
#include <future>

#include "load.h"
#include "veltra/veltra.h"

namespace
{

struct RUN_t
{
    void Start(long nNumber)
    {
        const std::string strNumber = std::to_string(nNumber);
        CWebConnector& tEngine = *CSingleton<CWebConnector>::GetInstance();
        const int nId = tEngine.CreateDownloadId();
        const std::string strSource = strUrl + "?" + strNumber;
        if (tEngine.StartDownload(nId, strSource, strFolder + "/" + strNumber, &OnEvent, this) != 1)
        {
            OnEnd(false);
        }
    }

    void OnEnd(bool bResult)
    {
        nFailed += !bResult;
        if (++nEnded == nRequests)
        {
            tDone.set_value();
        }
    }

    /** Starts the next download when one has ended. Worker. */
    static void OnEvent(int /*nId*/, DOWNLOAD_TYPE_e eType, int /*nPercent*/, double /*dSpeed*/, void* pRun)
    {
        auto& tRun = *static_cast<RUN_t*>(pRun);
        if (eType != DOWNLOAD_TYPE_PROGRESS)
        {
            if (tRun.nNext < tRun.nRequests)
            {
                tRun.Start(tRun.nNext++);
            }
            tRun.OnEnd(eType == DOWNLOAD_TYPE_SUCCESS);
        }
    }

    std::string strUrl;
    long nRequests;
    std::string strFolder;
    long nNext; /**< the next download that the worker starts; the main thread has started those before */
    std::atomic<long> nEnded{0};
    std::atomic<long> nFailed{0};
    std::promise<void> tDone;
};

} // namespace

int main(int nArguments, char* arrArguments[])
{
    if (nArguments < 5)
    {
        return 2;
    }
    const long nAtOnce = atol(arrArguments[4]);
    RUN_t tRun{arrArguments[1], atol(arrArguments[2]), arrArguments[3], nAtOnce};
    CKVRDebug::SetSink([](unsigned int, const char*, void*) {}, nullptr);
    CWebConnector& tEngine = *CSingleton<CWebConnector>::GetInstance();
    const CMeasure tMeasure;
    tEngine.Create();
    for (long i = 0; i < nAtOnce; ++i)
    {
        tRun.Start(i);
    }
    tRun.tDone.get_future().wait();
    tMeasure.Report(tRun.nFailed);
    tEngine.Destroy();
    return 0;
}
