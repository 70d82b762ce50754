/* Ours: REQUESTS downloads at once of one URL, into the folder given in the place of IN_FLIGHT. */

#include <atomic>
#include <future>

#include "load.h"
#include "veltra/veltra.h"

namespace
{

std::atomic<long> g_nLeft;
std::atomic<long> g_nFailed{0};
std::promise<void> g_tDone;

void OnEvent(int /*nId*/, DOWNLOAD_TYPE_e eType, int /*nPercent*/, double /*dSpeed*/, void* /*pUserData*/)
{
    if (eType != DOWNLOAD_TYPE_PROGRESS)
    {
        g_nFailed += eType != DOWNLOAD_TYPE_SUCCESS;
        if (--g_nLeft == 0)
        {
            g_tDone.set_value();
        }
    }
}

} // namespace

int main(int nArguments, char* arrArguments[])
{
    const LOAD_t tLoad(nArguments, arrArguments);
    CKVRDebug::SetSink([](unsigned int, const char*, void*) {}, nullptr);
    CWebConnector& tEngine = *CSingleton<CWebConnector>::GetInstance();
    const CMeasure tMeasure;
    tEngine.Create();
    g_nLeft = tLoad.nRequests;
    for (long i = 0; i < tLoad.nRequests; ++i)
    {
        const std::string strFile = std::string(arrArguments[3]) + "/ours-" + std::to_string(i);
        tEngine.StartDownload(tEngine.CreateDownloadId(), tLoad.strUrl, strFile, &OnEvent, nullptr);
    }
    g_tDone.get_future().wait();
    tMeasure.Report(g_nFailed);
    tEngine.Destroy();
    return 0;
}
