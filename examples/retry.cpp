/* Makes a request, and repeats it after a back-off while that may help: retry URL */

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <random>
#include <thread>

#include "veltra/veltra.h"

namespace
{

constexpr int LONGEST_PAUSE = 60000; // milliseconds

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
    CWebConnector* ptEngine = CSingleton<CWebConnector>::GetInstance();
    ptEngine->Create();
    std::minstd_rand tRandom{std::random_device{}()};
    bool bDone = false;
    int nPause = 1000; // milliseconds
    for (int nLeft = 5; nLeft > 0; --nLeft)
    {
        _HTTP_REQ_INFO_t tRequest; // fresh each time: answers are appended
        tRequest.eMethod = HTTP_METHOD_GET;
        tRequest.strUrl = arrArguments[1];
        const bool bAnswered = ptEngine->Get(&tRequest, true);
        WQCurl::TRANSFER_REPORT_t tReport;
        WQCurl::TransferReport(tReport);
        bDone = bAnswered && tReport.nHttpStatus < 400;
        std::printf("status %d, %zu bytes %s\n", tReport.nHttpStatus, tRequest.strResponse.size(),
                    tRequest.strErrorReason.c_str());
        if (bDone || IsFinal(tReport.nHttpStatus) || tReport.nRetryAfter > LONGEST_PAUSE / 1000 || nLeft == 1)
        {
            break;
        }
        /* A random time up to nPause: devices that have failed at once do not return at once. */
        const int nBackOff = std::uniform_int_distribution<int>(0, nPause)(tRandom);
        std::this_thread::sleep_for(std::chrono::milliseconds(std::max(nBackOff, tReport.nRetryAfter * 1000)));
        nPause = std::min(2 * nPause, LONGEST_PAUSE);
    }
    ptEngine->Destroy();
    return bDone ? 0 : 1;
}
