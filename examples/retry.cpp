/* Makes a request, and repeats it after a back-off while that may help: retry URL */

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <random>
#include <thread>
#include <utility>

#include "veltra/veltra.h"

namespace
{

constexpr int LONGEST_PAUSE = 60000; // milliseconds

thread_local int t_nStatus = 0; // of the transfer that is reported next on this thread

void OnTransfer(const WQCurl::TRANSFER_REPORT_t& tReport, void* /*pUserData*/)
{
    t_nStatus = tReport.nHttpStatus;
}

/** Runs on the worker, before the synchronous caller continues. */
void OnAnswer(bool /*bResult*/, std::string& /*strError*/, std::string& /*strResponse*/, void* pStatus)
{
    *static_cast<int*>(pStatus) = std::exchange(t_nStatus, 0);
}

/** Returns whether the server has understood the request and would answer the same again. */
bool IsFinal(int nStatus)
{
    return nStatus >= 400 && nStatus < 500 && nStatus != 408 && nStatus != 429;
}

} // namespace

int main(int nArguments, char* arrArguments[])
{
    if (nArguments != 2)
    {
        static_cast<void>(std::fprintf(stderr, "usage: retry URL\n"));
        return 2;
    }
    WQCurl::SetTransferObserver(&OnTransfer, nullptr);
    CWebConnector* ptEngine = CSingleton<CWebConnector>::GetInstance();
    ptEngine->Create();
    std::minstd_rand tRandom{std::random_device{}()};
    bool bDone = false;
    int nPause = 1000; // milliseconds
    for (int nLeft = 5; nLeft > 0; --nLeft)
    {
        int nStatus = 0;
        _HTTP_REQ_INFO_t tRequest; // fresh each time: answers are appended
        tRequest.eMethod = HTTP_METHOD_GET;
        tRequest.strUrl = arrArguments[1];
        tRequest.pfnRequestCB = &OnAnswer;
        tRequest.pUserData = &nStatus;
        bDone = ptEngine->Get(&tRequest, true) && nStatus < 400;
        std::printf("status %d, %zu bytes %s\n", nStatus, tRequest.strResponse.size(), tRequest.strErrorReason.c_str());
        if (bDone || IsFinal(nStatus) || nLeft == 1)
        {
            break;
        }
        /* A random time up to nPause: devices that have failed at once do not return at once. */
        std::this_thread::sleep_for(std::chrono::milliseconds(std::uniform_int_distribution<int>(0, nPause)(tRandom)));
        nPause = std::min(2 * nPause, LONGEST_PAUSE);
    }
    ptEngine->Destroy();
    return bDone ? 0 : 1;
}
