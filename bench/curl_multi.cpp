/*
 * libcurl: GETs on one multi handle. Built twice: driven by curl_multi_poll and curl_multi_perform, or (BENCH_EPOLL) by
 * epoll and curl_multi_socket_action. In the environment, BENCH_FRESH makes a new handle for each request instead of
 * reusing handles, BENCH_THREAD drives all transfers on a second thread, as an engine with a worker must, and
 * BENCH_FOLDER writes the answers to files 0, 1 and so on in this folder.
 */

#include <curl/curl.h>
#include <sys/epoll.h>
#include <thread>
#include <unistd.h>

#include "load.h"

namespace
{

/** The body of one answer: text, or a file. */
struct BODY_t
{
    ~BODY_t() { pFile != nullptr ? void(fclose(pFile)) : void(); }

    static size_t Take(char* pData, size_t nSize, size_t nCount, void* pBody)
    {
        auto* ptBody = static_cast<BODY_t*>(pBody);
        if (ptBody->pFile != nullptr)
        {
            return fwrite(pData, nSize, nCount, ptBody->pFile) * nSize;
        }
        ptBody->strText.append(pData, nSize * nCount);
        return nSize * nCount;
    }

    std::string strText{};
    FILE* pFile = nullptr;
};

class CClient
{
public:
    explicit CClient(const LOAD_t& tLoad) : m_tLoad(tLoad), m_pMulti(curl_multi_init())
    {
        curl_multi_setopt(m_pMulti, CURLMOPT_MAXCONNECTS, tLoad.nInFlight + tLoad.nStalled + 16);
#ifdef BENCH_EPOLL
        curl_multi_setopt(m_pMulti, CURLMOPT_SOCKETFUNCTION, &OnSocket);
        curl_multi_setopt(m_pMulti, CURLMOPT_SOCKETDATA, this);
        curl_multi_setopt(m_pMulti, CURLMOPT_TIMERFUNCTION, &OnTimer);
        curl_multi_setopt(m_pMulti, CURLMOPT_TIMERDATA, this);
#endif
    }

    void Run()
    {
        for (long i = 0; i < m_tLoad.nInFlight + m_tLoad.nStalled; ++i)
        {
            Start(curl_easy_init());
        }
        while (m_nEnded < m_tLoad.nRequests)
        {
            Drive();
            int nLeft = 0;
            while (const CURLMsg* ptMsg = curl_multi_info_read(m_pMulti, &nLeft))
            {
                OnEnd(ptMsg->easy_handle, ptMsg->data.result);
            }
        }
        m_tMeasure.Report(m_nFailed);
    }

private:
    void Start(CURL* pEasy)
    {
        static const char* const s_pszFolder = getenv("BENCH_FOLDER");
        auto* ptBody = new BODY_t;
        std::string strUrl = m_tLoad.NextUrl(m_nStarted);
        if (s_pszFolder != nullptr)
        {
            ptBody->pFile = fopen((s_pszFolder + ("/" + std::to_string(m_nStarted))).c_str(), "wbx");
            strUrl += "?" + std::to_string(m_nStarted);
        }
        ++m_nStarted;
        curl_easy_setopt(pEasy, CURLOPT_URL, strUrl.c_str());
        curl_easy_setopt(pEasy, CURLOPT_CAINFO, m_tLoad.strCaFile.c_str());
        curl_easy_setopt(pEasy, CURLOPT_WRITEFUNCTION, &BODY_t::Take);
        curl_easy_setopt(pEasy, CURLOPT_WRITEDATA, ptBody);
        curl_easy_setopt(pEasy, CURLOPT_PRIVATE, ptBody);
        curl_easy_setopt(pEasy, CURLOPT_TIMEOUT, 30L);
        curl_easy_setopt(pEasy, CURLOPT_NOSIGNAL, 1L);
        curl_multi_add_handle(m_pMulti, pEasy);
    }

    void OnEnd(CURL* pEasy, CURLcode eResult)
    {
        static const bool s_bFresh = getenv("BENCH_FRESH") != nullptr;
        BODY_t* ptBody = nullptr;
        curl_easy_getinfo(pEasy, CURLINFO_PRIVATE, &ptBody);
        delete ptBody;
        curl_multi_remove_handle(m_pMulti, pEasy);
        m_nFailed += eResult != CURLE_OK;
        ++m_nEnded;
        if (m_nEnded == m_tLoad.nStalled)
        {
            m_tMeasure = CMeasure();
        }
        if (s_bFresh)
        {
            curl_easy_cleanup(pEasy);
            pEasy = nullptr;
        }
        if (m_nStarted - m_tLoad.nStalled < m_tLoad.nRequests)
        {
            Start(pEasy != nullptr ? pEasy : curl_easy_init());
        }
    }

#ifdef BENCH_EPOLL
    static int OnSocket(CURL* /*pEasy*/, curl_socket_t nSocket, int nWhat, void* pClient, void* pKnown)
    {
        auto* ptClient = static_cast<CClient*>(pClient);
        epoll_event tEvent{};
        tEvent.events = (nWhat & CURL_POLL_IN ? EPOLLIN : 0U) | (nWhat & CURL_POLL_OUT ? EPOLLOUT : 0U);
        tEvent.data.fd = nSocket;
        const int nOperation = nWhat == CURL_POLL_REMOVE ? EPOLL_CTL_DEL
                               : pKnown != nullptr       ? EPOLL_CTL_MOD
                                                         : EPOLL_CTL_ADD;
        epoll_ctl(ptClient->m_nEpoll, nOperation, nSocket, &tEvent);
        curl_multi_assign(ptClient->m_pMulti, nSocket, nWhat == CURL_POLL_REMOVE ? nullptr : pClient);
        return 0;
    }

    static int OnTimer(CURLM* /*pMulti*/, long lMilliseconds, void* pClient)
    {
        static_cast<CClient*>(pClient)->m_nTimeout = static_cast<int>(lMilliseconds);
        return 0;
    }

    void Drive()
    {
        int nRunning = 0;
        epoll_event arrEvents[256];
        const int nEvents = epoll_wait(m_nEpoll, arrEvents, 256, m_nTimeout);
        for (int i = 0; i < nEvents; ++i)
        {
            const int nMask = (arrEvents[i].events & EPOLLIN ? CURL_CSELECT_IN : 0) |
                              (arrEvents[i].events & EPOLLOUT ? CURL_CSELECT_OUT : 0) |
                              (arrEvents[i].events & (EPOLLERR | EPOLLHUP) ? CURL_CSELECT_ERR : 0);
            curl_multi_socket_action(m_pMulti, arrEvents[i].data.fd, nMask, &nRunning);
        }
        if (nEvents == 0 || m_nTimeout == 0)
        {
            curl_multi_socket_action(m_pMulti, CURL_SOCKET_TIMEOUT, 0, &nRunning);
        }
    }

    int m_nEpoll = epoll_create1(0);
    int m_nTimeout = -1;
#else
    void Drive()
    {
        int nRunning = 0;
        curl_multi_poll(m_pMulti, nullptr, 0, 1000, nullptr);
        curl_multi_perform(m_pMulti, &nRunning);
    }
#endif

    const LOAD_t& m_tLoad;
    CURLM* m_pMulti;
    CMeasure m_tMeasure{};
    long m_nStarted = 0;
    long m_nEnded = 0;
    long m_nFailed = 0;
};

} // namespace

int main(int nArguments, char* arrArguments[])
{
    const LOAD_t tLoad(nArguments, arrArguments);
    curl_global_init(CURL_GLOBAL_DEFAULT);
    CClient tClient(tLoad);
    getenv("BENCH_THREAD") != nullptr ? std::thread(&CClient::Run, &tClient).join() : tClient.Run();
    _exit(0);
}
