/* Makes an https request. If it fails because of the clock, waits for the right time first: clock_at_boot URL SECONDS
 */

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <sys/timex.h>
#include <thread>
#include <utility>

#include "veltra/veltra.h"

namespace
{

constexpr int CERTIFICATE_REFUSED = 60; // libcurl's code; texts change with its version

thread_local int t_nResultCode = 0; // of the transfer that is reported next on this thread

void OnTransfer(const WQCurl::TRANSFER_REPORT_t& tReport, void* /*pUserData*/)
{
    t_nResultCode = tReport.nResultCode;
}

/** Runs on the worker, before the synchronous caller continues. */
void OnAnswer(bool /*bResult*/, std::string& /*strError*/, std::string& /*strResponse*/, void* pResultCode)
{
    *static_cast<int*>(pResultCode) = std::exchange(t_nResultCode, 0);
}

/** Returns whether a time service has told the kernel that the clock is right. */
bool IsClockRight()
{
    timex tTime{};
    const int nState = adjtimex(&tTime);
    return nState >= 0 && nState != TIME_ERROR;
}

} // namespace

int main(int nArguments, char* arrArguments[])
{
    long lSecondsLeft = nArguments == 3 ? std::strtol(arrArguments[2], nullptr, 10) : 0;
    if (lSecondsLeft < 1)
    {
        static_cast<void>(std::fprintf(stderr, "usage: clock_at_boot URL SECONDS\n"));
        return 2;
    }
    WQCurl::SetTransferObserver(&OnTransfer, nullptr);
    CWebConnector* ptEngine = CSingleton<CWebConnector>::GetInstance();
    ptEngine->Create();
    bool bAnswered = false;
    for (bool bLast = false; !bAnswered && !bLast;)
    {
        int nResultCode = 0;
        _HTTP_REQ_INFO_t tRequest;
        tRequest.eMethod = HTTP_METHOD_GET;
        tRequest.strUrl = arrArguments[1];
        tRequest.pfnRequestCB = &OnAnswer;
        tRequest.pUserData = &nResultCode;
        const bool bClockRight = IsClockRight(); // before: it may become right meanwhile
        bAnswered = ptEngine->Get(&tRequest, true);
        std::printf("%s %s\n", bAnswered ? "answered" : "failed:", tRequest.strErrorReason.c_str());
        bLast = nResultCode != CERTIFICATE_REFUSED || bClockRight || lSecondsLeft == 0;
        while (!bAnswered && !bLast && !IsClockRight() && lSecondsLeft > 0)
        {
            std::this_thread::sleep_for(std::chrono::seconds(1));
            --lSecondsLeft;
        }
    }
    ptEngine->Destroy();
    return bAnswered ? 0 : 1;
}
