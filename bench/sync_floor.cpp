/*
 * Measures the lowest cost of a synchronous request on a worker, without the engine. The caller hands each GET to a
 * second thread by g_main_context_invoke() and waits on a semaphore. That thread makes it on the multi interface, with
 * one reused handle.
 */

#include <curl/curl.h>
#include <glib.h>
#include <semaphore.h>
#include <thread>

#include "load.h"

namespace
{

struct FLOOR_t
{
    CURLM* pMulti = nullptr;
    CURL* pEasy = nullptr;
    std::string strBody;
    sem_t tDone{};
    long nFailed = 0;
};

size_t Append(char* pData, size_t nSize, size_t nCount, void* pBody)
{
    static_cast<std::string*>(pBody)->append(pData, nSize * nCount);
    return nSize * nCount;
}

/** Makes one pass of the worker's loop, which runs a transfer from its start to its end. */
gboolean MakeRequest(gpointer pFloor)
{
    auto& tFloor = *static_cast<FLOOR_t*>(pFloor);
    tFloor.strBody.clear();
    curl_multi_add_handle(tFloor.pMulti, tFloor.pEasy);
    int nRunning = 0;
    curl_multi_perform(tFloor.pMulti, &nRunning);
    while (nRunning > 0)
    {
        curl_multi_poll(tFloor.pMulti, nullptr, 0, 1000, nullptr);
        curl_multi_perform(tFloor.pMulti, &nRunning);
    }
    int nLeft = 0;
    const CURLMsg* ptMsg = curl_multi_info_read(tFloor.pMulti, &nLeft);
    tFloor.nFailed += ptMsg == nullptr || ptMsg->data.result != CURLE_OK;
    curl_multi_remove_handle(tFloor.pMulti, tFloor.pEasy);
    sem_post(&tFloor.tDone);
    return G_SOURCE_REMOVE;
}

} // namespace

int main(int nArguments, char* arrArguments[])
{
    const LOAD_t tLoad(nArguments, arrArguments);
    curl_global_init(CURL_GLOBAL_DEFAULT);
    FLOOR_t tFloor;
    tFloor.pMulti = curl_multi_init();
    tFloor.pEasy = curl_easy_init();
    sem_init(&tFloor.tDone, 0, 0);
    curl_easy_setopt(tFloor.pEasy, CURLOPT_URL, tLoad.strUrl.c_str());
    curl_easy_setopt(tFloor.pEasy, CURLOPT_CAINFO, tLoad.strCaFile.c_str());
    curl_easy_setopt(tFloor.pEasy, CURLOPT_WRITEFUNCTION, &Append);
    curl_easy_setopt(tFloor.pEasy, CURLOPT_WRITEDATA, &tFloor.strBody);
    curl_easy_setopt(tFloor.pEasy, CURLOPT_TIMEOUT, 30L);
    curl_easy_setopt(tFloor.pEasy, CURLOPT_NOSIGNAL, 1L);
    GMainContext* pContext = g_main_context_new();
    GMainLoop* pLoop = g_main_loop_new(pContext, FALSE);
    std::thread tWorker([pLoop] { g_main_loop_run(pLoop); });
    while (!g_main_loop_is_running(pLoop))
    {
        std::this_thread::yield(); // else a request might be made on this thread
    }
    const CMeasure tMeasure;
    for (long i = 0; i < tLoad.nRequests; ++i)
    {
        g_main_context_invoke(pContext, &MakeRequest, &tFloor);
        sem_wait(&tFloor.tDone);
    }
    tMeasure.Report(tFloor.nFailed);
    g_main_loop_quit(pLoop);
    tWorker.join();
    g_main_loop_unref(pLoop);
    g_main_context_unref(pContext);
    curl_easy_cleanup(tFloor.pEasy);
    curl_multi_cleanup(tFloor.pMulti);
    return 0;
}
