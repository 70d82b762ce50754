/* Veltra: synchronous GETs one after the other, on IN_FLIGHT threads. */

#include <atomic>
#include <list>
#include <thread>

#include "load.h"
#include "veltra_client.h"

int main(int nArguments, char* arrArguments[])
{
    const LOAD_t tLoad(nArguments, arrArguments);
    CWebConnector& tEngine = StartEngine(tLoad.strCaFile);
    std::atomic<long> nFailed{0};
    const CMeasure tMeasure;
    std::list<std::thread> lstThreads;
    for (long n = 0; n < tLoad.nInFlight; ++n)
    {
        lstThreads.emplace_back(
            [&]
            {
                for (long i = 0; i < tLoad.nRequests / tLoad.nInFlight; ++i)
                {
                    _HTTP_REQ_INFO_t tRequest;
                    tRequest.eMethod = HTTP_METHOD_GET;
                    tRequest.strUrl = tLoad.strUrl;
                    nFailed += !tEngine.Get(&tRequest, true);
                }
            });
    }
    for (std::thread& tThread : lstThreads)
    {
        tThread.join();
    }
    tMeasure.Report(nFailed);
    tEngine.Destroy();
    return 0;
}
