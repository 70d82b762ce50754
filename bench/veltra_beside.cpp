/*
 * Veltra: GETs one after the other beside the stalled ones of the command line, which are downloads into the folder
 * BENCH_FOLDER of the environment. The time counts when as many GETs as downloads have ended.
 */

#include <unistd.h>

#include "load.h"
#include "veltra_client.h"

int main(int nArguments, char* arrArguments[])
{
    const LOAD_t tLoad(nArguments, arrArguments);
    CWebConnector& tEngine = StartEngine(tLoad.strCaFile);
    long nFailed = 0;
    const std::string strFolder = getenv("BENCH_FOLDER");
    for (long i = 0; i < tLoad.nStalled; ++i)
    {
        const auto pfnOnEvent = [](int, DOWNLOAD_TYPE_e, int, double, void*) {};
        const std::string strFile = strFolder + "/" + std::to_string(i);
        const int nId = tEngine.CreateDownloadId();
        nFailed += tEngine.StartDownload(nId, tLoad.strStallUrl, strFile, pfnOnEvent, nullptr) != 1;
    }
    CMeasure tMeasure;
    for (long i = 0; i < tLoad.nRequests; ++i)
    {
        if (i == tLoad.nStalled)
        {
            tMeasure = CMeasure();
        }
        _HTTP_REQ_INFO_t tRequest;
        tRequest.eMethod = HTTP_METHOD_GET;
        tRequest.strUrl = tLoad.strUrl;
        nFailed += !tEngine.Get(&tRequest, true);
    }
    tMeasure.Report(nFailed);
    _exit(0); // without waiting for the downloads
}
