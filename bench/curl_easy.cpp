/* libcurl: blocking GETs one after the other, on IN_FLIGHT threads with one reused handle each. */

#include <atomic>
#include <curl/curl.h>
#include <list>
#include <thread>

#include "load.h"

namespace
{

size_t Append(char* pData, size_t nSize, size_t nCount, void* pBody)
{
    static_cast<std::string*>(pBody)->append(pData, nSize * nCount);
    return nSize * nCount;
}

} // namespace

int main(int nArguments, char* arrArguments[])
{
    const LOAD_t tLoad(nArguments, arrArguments);
    curl_global_init(CURL_GLOBAL_DEFAULT);
    std::atomic<long> nFailed{0};
    const CMeasure tMeasure;
    std::list<std::thread> lstThreads;
    for (long n = 0; n < tLoad.nInFlight; ++n)
    {
        lstThreads.emplace_back(
            [&]
            {
                CURL* pEasy = curl_easy_init();
                curl_easy_setopt(pEasy, CURLOPT_URL, tLoad.strUrl.c_str());
                curl_easy_setopt(pEasy, CURLOPT_CAINFO, tLoad.strCaFile.c_str());
                curl_easy_setopt(pEasy, CURLOPT_WRITEFUNCTION, &Append);
                curl_easy_setopt(pEasy, CURLOPT_NOSIGNAL, 1L);
                std::string strBody;
                curl_easy_setopt(pEasy, CURLOPT_WRITEDATA, &strBody);
                for (long i = 0; i < tLoad.nRequests / tLoad.nInFlight; ++i)
                {
                    strBody.clear();
                    nFailed += curl_easy_perform(pEasy) != CURLE_OK;
                }
                curl_easy_cleanup(pEasy);
            });
    }
    for (std::thread& tThread : lstThreads)
    {
        tThread.join();
    }
    tMeasure.Report(nFailed);
    return 0;
}
