/* Asks for a document again and again, and receives it only if it has changed: poll URL SECONDS TIMES */

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "veltra/veltra.h"

int main(int nArguments, char* arrArguments[])
{
    constexpr int NOT_MODIFIED = 304;
    const long lSeconds = nArguments == 4 ? std::strtol(arrArguments[2], nullptr, 10) : 0;
    if (lSeconds < 1)
    {
        static_cast<void>(std::fprintf(stderr, "usage: poll URL SECONDS TIMES\n"));
        return 2;
    }
    CWebConnector* ptEngine = CSingleton<CWebConnector>::GetInstance();
    ptEngine->Create();
    std::string strEtag; // of the last document
    for (long lLeft = std::strtol(arrArguments[3], nullptr, 10); lLeft > 0; --lLeft)
    {
        _HTTP_REQ_INFO_t tRequest; // fresh each time: answers are appended
        tRequest.eMethod = HTTP_METHOD_GET;
        tRequest.strUrl = arrArguments[1];
        /* The text is the server's: a line break in it would begin another header line. */
        if (!strEtag.empty() && strEtag.find('\r') == std::string::npos)
        {
            tRequest.lstHeader.push_back("If-None-Match: " + strEtag);
        }
        WQCurl::TRANSFER_REPORT_t tReport;
        const bool bAnswered = ptEngine->Get(&tRequest, true) && WQCurl::TransferReport(tReport);
        if (bAnswered && tReport.nHttpStatus == NOT_MODIFIED)
        {
            std::printf("unchanged\n");
        }
        else if (bAnswered && tReport.nHttpStatus == 200)
        {
            strEtag = tReport.strEtag;
            std::printf("a document of %zu bytes\n", tRequest.strResponse.size());
        }
        else
        {
            std::printf("status %d %s\n", tReport.nHttpStatus, tRequest.strErrorReason.c_str());
        }
        std::this_thread::sleep_for(std::chrono::seconds(lLeft > 1 ? lSeconds : 0));
    }
    ptEngine->Destroy();
    return 0;
}
