/* Makes an https request. If it fails because of the clock, waits for the right time first: clock_at_boot URL SECONDS
 */

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <sys/timex.h>
#include <thread>

#include "veltra/veltra.h"

namespace
{

constexpr int CERTIFICATE_REFUSED = 60; // libcurl's code; texts change with its version

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
    CWebConnector* ptEngine = CSingleton<CWebConnector>::GetInstance();
    ptEngine->Create();
    bool bAnswered = false;
    for (bool bLast = false; !bAnswered && !bLast;)
    {
        _HTTP_REQ_INFO_t tRequest;
        tRequest.eMethod = HTTP_METHOD_GET;
        tRequest.strUrl = arrArguments[1];
        const bool bClockRight = IsClockRight(); // before: it may become right meanwhile
        bAnswered = ptEngine->Get(&tRequest, true);
        WQCurl::TRANSFER_REPORT_t tReport;
        WQCurl::TransferReport(tReport);
        std::printf("%s %s\n", bAnswered ? "answered" : "failed:", tRequest.strErrorReason.c_str());
        bLast = tReport.nResultCode != CERTIFICATE_REFUSED || bClockRight || lSecondsLeft == 0;
        while (!bAnswered && !bLast && !IsClockRight() && lSecondsLeft > 0)
        {
            std::this_thread::sleep_for(std::chrono::seconds(1));
            --lSecondsLeft;
        }
    }
    ptEngine->Destroy();
    return bAnswered ? 0 : 1;
}
