/* Veltra: asynchronous GETs. Each end's callback starts the next one. */

#include <future>
#include <unistd.h>

#include "load.h"
#include "veltra_client.h"

namespace
{

struct RUN_t
{
    const LOAD_t& tLoad;
    CWebConnector& tEngine;
    long nStarted = 0;
    long nEnded = 0;
    long nFailed = 0;
    std::promise<void> tDone;
    CMeasure tMeasure{};

    void StartNext()
    {
        _HTTP_REQ_INFO_t tRequest;
        tRequest.eMethod = HTTP_METHOD_GET;
        tRequest.strUrl = tLoad.NextUrl(nStarted++);
        tRequest.pUserData = this;
        tRequest.pfnRequestCB = [](bool bResult, std::string&, std::string&, void* pRun)
        { static_cast<RUN_t*>(pRun)->OnEnd(bResult); };
        tEngine.Get(&tRequest, false);
    }

    void OnEnd(bool bResult)
    {
        nFailed += !bResult;
        ++nEnded;
        if (nEnded == tLoad.nStalled)
        {
            tMeasure = CMeasure();
        }
        if (nEnded == tLoad.nRequests)
        {
            tDone.set_value();
        }
        else if (nStarted - tLoad.nStalled < tLoad.nRequests)
        {
            StartNext();
        }
    }
};

} // namespace

int main(int nArguments, char* arrArguments[])
{
    const LOAD_t tLoad(nArguments, arrArguments);
    CWebConnector& tEngine = StartEngine(tLoad.strCaFile);
    RUN_t tRun{tLoad, tEngine};

    /* The first transfers start on the worker thread, too, so that only one thread counts. */
    static RUN_t* s_ptRun = &tRun;
    _HTTP_REQ_INFO_t tFirst;
    tFirst.eMethod = HTTP_METHOD_GET;
    tFirst.strUrl = "file:///refused";
    tFirst.pfnRequestCB = [](bool, std::string&, std::string&, void*)
    {
        for (long i = 0; i < s_ptRun->tLoad.nInFlight + s_ptRun->tLoad.nStalled; ++i)
        {
            s_ptRun->StartNext();
        }
    };
    tEngine.Get(&tFirst, false);
    tRun.tDone.get_future().wait();
    tRun.tMeasure.Report(tRun.nFailed);
    _exit(0); // stalled transfers are not worth waiting for
}
