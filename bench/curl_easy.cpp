/*
 * libcurl: blocking GETs one after the other, on IN_FLIGHT threads with one reused handle each. With BENCH_HAND_OVER in
 * the environment, each thread hands its requests to another one and waits, which measures the cost of handing over.
 */

#include <atomic>
#include <curl/curl.h>
#include <list>
#include <semaphore.h>
#include <thread>

#include "load.h"

namespace
{

size_t Append(char* pData, size_t nSize, size_t nCount, void* pBody)
{
    static_cast<std::string*>(pBody)->append(pData, nSize * nCount);
    return nSize * nCount;
}

template <class GET> void HandOver(long nRequests, const GET& fnGet)
{
    sem_t tWanted;
    sem_t tDone;
    sem_init(&tWanted, 0, 0);
    sem_init(&tDone, 0, 0);
    std::thread tWorker(
        [&]
        {
            for (long i = 0; i < nRequests; ++i)
            {
                sem_wait(&tWanted);
                fnGet();
                sem_post(&tDone);
            }
        });
    for (long i = 0; i < nRequests; ++i)
    {
        sem_post(&tWanted);
        sem_wait(&tDone);
    }
    tWorker.join();
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
                const auto fnGet = [&]
                {
                    std::string strBody;
                    curl_easy_setopt(pEasy, CURLOPT_WRITEDATA, &strBody);
                    nFailed += curl_easy_perform(pEasy) != CURLE_OK;
                };
                const long nRequests = tLoad.nRequests / tLoad.nInFlight;
                if (getenv("BENCH_HAND_OVER") != nullptr)
                {
                    HandOver(nRequests, fnGet);
                }
                else
                {
                    for (long i = 0; i < nRequests; ++i)
                    {
                        fnGet();
                    }
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
