/* Asks a server every few seconds, and again when the device is in another network: after_standby URL SECONDS
 * SIGUSR1 stands for the application's source of that news. SIGINT and SIGTERM end the program. */

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "veltra/veltra.h"

int main(int nArguments, char* arrArguments[])
{
    const long lSeconds = nArguments == 3 ? std::strtol(arrArguments[2], nullptr, 10) : 0;
    sigset_t tSignals;
    sigemptyset(&tSignals);
    for (const int nSignal : {SIGUSR1, SIGINT, SIGTERM})
    {
        sigaddset(&tSignals, nSignal);
    }
    /* This thread takes the signals below. A handler must not call the library. */
    if (lSeconds < 1 || pthread_sigmask(SIG_BLOCK, &tSignals, nullptr) != 0)
    {
        static_cast<void>(std::fprintf(stderr, "usage: after_standby URL SECONDS\n"));
        return 2;
    }
    CWebConnector* ptEngine = CSingleton<CWebConnector>::GetInstance();
    ptEngine->Create();
    for (int nSignal = 0; nSignal != SIGINT && nSignal != SIGTERM;)
    {
        _HTTP_REQ_INFO_t tRequest;
        tRequest.eMethod = HTTP_METHOD_GET;
        tRequest.strUrl = arrArguments[1];
        ptEngine->Get(&tRequest, true);
        WQCurl::TRANSFER_REPORT_t tReport;
        WQCurl::TransferReport(tReport);
        std::printf("status %d after %.3f s over a %s connection to %s %s\n", tReport.nHttpStatus, tReport.dTotal,
                    tReport.bReused ? "used" : "fresh", tReport.strPeer.c_str(), tReport.strErrorMsg.c_str());
        const timespec tPause{lSeconds, 0};
        nSignal = sigtimedwait(&tSignals, nullptr, &tPause);
        if (nSignal == SIGUSR1)
        {
            WQCurl::NetworkChanged();
        }
    }
    ptEngine->Destroy();
    return 0;
}
