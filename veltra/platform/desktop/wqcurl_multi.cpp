#include <algorithm>
#include <chrono>
#include <list>
#include <mutex>
#include <optional>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>
#include <unordered_set>
#include <utility>
#include <vector>

#include "veltra/platform/desktop/sigpipe_guard.h"
#include "veltra/platform/desktop/socket_set.h"
#include "veltra/platform/desktop/wqcurl_impl.h"

namespace WQCurl
{

namespace
{

typedef std::chrono::steady_clock Clock;

constexpr std::chrono::milliseconds LONGEST_WAIT(1000);
constexpr std::chrono::milliseconds PAUSE_WHEN_UNUSABLE(10);
constexpr int EVENTS_AT_ONCE = 16; // few: what a transfer has touched is still in the cache when it ends

WQCurlEasy* Owner(CURL* pEasy)
{
    char* pOwner = nullptr;
    curl_easy_getinfo(pEasy, CURLINFO_PRIVATE, &pOwner);
    return reinterpret_cast<WQCurlEasy*>(pOwner);
}

struct MULTI_DELETER_t
{
    void operator()(CURLM* pMulti) const
    {
        const CSigpipeGuard tGuard;
        curl_multi_cleanup(pMulti);
    }
};

} // namespace

/**
 * libcurl tells which sockets and which moment it waits for; an epoll descriptor waits for them, so that the cost of a
 * step follows the transfers that have something to do. All of it belongs to the driving thread, but for the queue of
 * added handles and the event descriptor that announces them.
 */
struct WQCurlMulti::IMPL_t
{
    bool Open();
    void TakeAdded();
    bool SocketAction(curl_socket_t nSocket, int nEvents);
    bool RunExpired();
    void RunSilent();
    void ResumePaused();
    void CollectFinished();
    void Finish(WQCurlEasy* ptEasy, CURLcode eCode);
    int IdleTime() const;
    int Wait(epoll_event* ptEvents, int nMost);
    bool HandleEvent(const epoll_event& tEvent);

    static curl_socket_t OnOpenSocket(void* pImpl, curlsocktype ePurpose, curl_sockaddr* ptAddress);
    static int OnCloseSocket(void* pImpl, curl_socket_t nSocket);
    static int OnSocket(CURL* pEasy, curl_socket_t nSocket, int nWhat, void* pImpl, void* pUnused);
    static int OnTimer(CURLM* pMulti, long lMilliseconds, void* pImpl);

    CSocketSet tSockets;
    CDescriptor tWakeUp;
    /* Destroyed before these two, which its callbacks still use. */
    std::unique_ptr<CURLM, MULTI_DELETER_t> pMulti;
    std::atomic<bool> bReady{false};

    std::mutex tAddedLock;
    std::vector<const WQCurlEasy*> vecAdded;
    bool bWaiting = false;                   /**< the driving thread waits, or is about to; guarded by tAddedLock */
    std::vector<const WQCurlEasy*> vecTaken; /**< swapped with it, so that both keep their memory */

    std::vector<CURL*> vecPaused; /**< have had their turn in this step, and continue in the next */
    std::list<MultiMsg> lstFinished;
    std::optional<Clock::time_point> tTimer;
    std::unordered_set<const WQCurlEasy*> setReporting; /**< registered transfers with a progress function */
    Clock::time_point tNextTurn;                        /**< when those get a turn again */
    int nRunning = 0;
};

bool WQCurlMulti::IMPL_t::Open()
{
    tWakeUp.Reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    pMulti.reset(curl_multi_init());
    return tSockets.Open() && tWakeUp.Get() >= 0 && pMulti != nullptr && tSockets.Want(tWakeUp.Get(), EPOLLIN) &&
           curl_multi_setopt(pMulti.get(), CURLMOPT_SOCKETFUNCTION, &OnSocket) == CURLM_OK &&
           curl_multi_setopt(pMulti.get(), CURLMOPT_SOCKETDATA, this) == CURLM_OK &&
           curl_multi_setopt(pMulti.get(), CURLMOPT_TIMERFUNCTION, &OnTimer) == CURLM_OK &&
           curl_multi_setopt(pMulti.get(), CURLMOPT_TIMERDATA, this) == CURLM_OK;
}

curl_socket_t WQCurlMulti::IMPL_t::OnOpenSocket(void* pImpl, curlsocktype ePurpose, curl_sockaddr* ptAddress)
{
    CDescriptor tSocket;
    tSocket.Reset(WQCurlEasy::IMPL_t::OnOpenSocket(nullptr, ePurpose, ptAddress));
    if (tSocket.Get() < 0)
    {
        return CURL_SOCKET_BAD;
    }
    try
    {
        static_cast<IMPL_t*>(pImpl)->tSockets.OnOpened(tSocket.Get());
    }
    catch (const std::bad_alloc&) // must not unwind libcurl's frames
    {
        return CURL_SOCKET_BAD;
    }
    return tSocket.Release();
}

int WQCurlMulti::IMPL_t::OnCloseSocket(void* pImpl, curl_socket_t nSocket)
{
    static_cast<IMPL_t*>(pImpl)->tSockets.OnClosing(nSocket);
    return close(nSocket);
}

int WQCurlMulti::IMPL_t::OnSocket(CURL* pEasy, curl_socket_t nSocket, int nWhat, void* pImpl, void* /*pUnused*/)
{
    const uint32_t nEvents =
        ((nWhat & CURL_POLL_IN) != 0 ? EPOLLIN : 0U) | ((nWhat & CURL_POLL_OUT) != 0 ? EPOLLOUT : 0U);
    static_cast<IMPL_t*>(pImpl)->tSockets.Want(nSocket, nEvents);
    WQCurlEasy* ptOwner = Owner(pEasy); // libcurl has handles of its own
    if (ptOwner != nullptr && (nEvents != 0 || ptOwner->m_pImpl->nSocket == nSocket))
    {
        ptOwner->m_pImpl->nSocket = nEvents != 0 ? nSocket : CURL_SOCKET_BAD;
    }
    return 0;
}

int WQCurlMulti::IMPL_t::OnTimer(CURLM* /*pMulti*/, long lMilliseconds, void* pImpl)
{
    auto* ptImpl = static_cast<IMPL_t*>(pImpl);
    ptImpl->tTimer.reset();
    if (lMilliseconds == 0)
    {
        ptImpl->tTimer = Clock::time_point(); // long ago; a clock is not read for every new transfer
    }
    else if (lMilliseconds > 0)
    {
        ptImpl->tTimer = Clock::now() + std::chrono::milliseconds(lMilliseconds);
    }
    return 0;
}

void WQCurlMulti::IMPL_t::Finish(WQCurlEasy* ptEasy, CURLcode eCode)
{
    MultiMsg tMsg;
    tMsg.pEasyHandle = ptEasy;
    tMsg.bResult = eCode == CURLE_OK;
    tMsg.nResultCode = eCode;
    if (!tMsg.bResult)
    {
        long lSystemError = 0;
        curl_easy_getinfo(ptEasy->m_pImpl->pEasy.get(), CURLINFO_OS_ERRNO, &lSystemError);
        tMsg.nSystemError = static_cast<int>(lSystemError);
        tMsg.strErrorMsg = ptEasy->m_pImpl->ErrorText(eCode);
    }
    lstFinished.push_back(std::move(tMsg));
    ptEasy->m_pImpl->bEnded = true;
    ptEasy->m_pImpl->bUnread = true;
}

void WQCurlMulti::IMPL_t::CollectFinished()
{
    int nLeft = 0;
    while (const CURLMsg* ptMsg = curl_multi_info_read(pMulti.get(), &nLeft))
    {
        Finish(Owner(ptMsg->easy_handle), ptMsg->data.result);
    }
}

/** Hands the handles that other threads have added to libcurl. One that it refuses has ended as failed. */
void WQCurlMulti::IMPL_t::TakeAdded()
{
    vecTaken.clear();
    {
        const std::lock_guard<std::mutex> tGuard(tAddedLock);
        vecTaken.swap(vecAdded);
        for (const WQCurlEasy* ptEasy : vecTaken)
        {
            ptEasy->m_pImpl->bQueued = false;
        }
    }
    for (const WQCurlEasy* ptEasy : vecTaken)
    {
        if (ptEasy->m_pImpl->pfnProgress != nullptr)
        {
            setReporting.insert(ptEasy);
        }
        ptEasy->m_pImpl->ptPaused = &vecPaused;
        CURL* pEasy = ptEasy->m_pImpl->pEasy.get();
        curl_easy_setopt(pEasy, CURLOPT_OPENSOCKETFUNCTION, &OnOpenSocket);
        curl_easy_setopt(pEasy, CURLOPT_OPENSOCKETDATA, this);
        curl_easy_setopt(pEasy, CURLOPT_CLOSESOCKETFUNCTION, &OnCloseSocket);
        curl_easy_setopt(pEasy, CURLOPT_CLOSESOCKETDATA, this);
        if (curl_multi_add_handle(pMulti.get(), pEasy) != CURLM_OK)
        {
            Finish(Owner(pEasy), CURLE_FAILED_INIT);
        }
    }
}

bool WQCurlMulti::IMPL_t::SocketAction(curl_socket_t nSocket, int nEvents)
{
    return curl_multi_socket_action(pMulti.get(), nSocket, nEvents, &nRunning) == CURLM_OK;
}

bool WQCurlMulti::IMPL_t::RunExpired()
{
    if (!tTimer.has_value() || Clock::now() < *tTimer)
    {
        return true;
    }
    tTimer.reset();
    return SocketAction(CURL_SOCKET_TIMEOUT, 0);
}

/**
 * Gives each transfer that has a progress function a turn once a second. libcurl asks for none as long as the peer owes
 * the answer to a connect or a TLS handshake, and the progress function is what cancels.
 */
void WQCurlMulti::IMPL_t::RunSilent()
{
    if (Clock::now() < tNextTurn)
    {
        return;
    }
    tNextTurn = Clock::now() + LONGEST_WAIT;
    for (const WQCurlEasy* ptEasy : setReporting)
    {
        if (ptEasy->m_pImpl->nSocket != CURL_SOCKET_BAD)
        {
            SocketAction(ptEasy->m_pImpl->nSocket, 0);
        }
    }
}

/** What libcurl has kept for a transfer comes at once, and may end its next turn as well. */
void WQCurlMulti::IMPL_t::ResumePaused()
{
    std::vector<CURL*> vecResumed;
    vecResumed.swap(vecPaused);
    for (CURL* pEasy : vecResumed)
    {
        curl_easy_pause(pEasy, CURLPAUSE_CONT);
    }
}

/** How long there is nothing to do, in milliseconds. */
int WQCurlMulti::IMPL_t::IdleTime() const
{
    if (!lstFinished.empty() || !vecPaused.empty())
    {
        return 0;
    }
    auto tIdle = LONGEST_WAIT;
    if (tTimer.has_value())
    {
        /* Rounded up: waking up before the moment would only wait again. */
        tIdle = std::clamp(std::chrono::ceil<std::chrono::milliseconds>(*tTimer - Clock::now()),
                           std::chrono::milliseconds(0), LONGEST_WAIT);
    }
    return static_cast<int>(tIdle.count());
}

/** Waits for events, as CSocketSet::Wait(). As long as that takes, whoever adds a handle wakes up this thread. */
int WQCurlMulti::IMPL_t::Wait(epoll_event* ptEvents, int nMost)
{
    const int nIdle = IdleTime();
    bool bWait = nIdle > 0;
    if (bWait)
    {
        const std::lock_guard<std::mutex> tGuard(tAddedLock);
        bWait = vecAdded.empty();
        bWaiting = bWait;
    }
    const int nEvents = tSockets.Wait(ptEvents, nMost, bWait ? nIdle : 0);
    if (bWait)
    {
        const std::lock_guard<std::mutex> tGuard(tAddedLock);
        bWaiting = false;
    }
    return nEvents;
}

bool WQCurlMulti::IMPL_t::HandleEvent(const epoll_event& tEvent)
{
    if (tEvent.data.fd == tWakeUp.Get())
    {
        eventfd_t nCount = 0;
        eventfd_read(tWakeUp.Get(), &nCount);
        return true;
    }
    if (!tSockets.IsWanted(tEvent.data.fd))
    {
        return true;
    }
    const int nEvents = ((tEvent.events & EPOLLIN) != 0 ? CURL_CSELECT_IN : 0) |
                        ((tEvent.events & EPOLLOUT) != 0 ? CURL_CSELECT_OUT : 0) |
                        ((tEvent.events & (EPOLLERR | EPOLLHUP)) != 0 ? CURL_CSELECT_ERR : 0);
    return SocketAction(tEvent.data.fd, nEvents);
}

WQCurlMulti::WQCurlMulti() : m_pImpl(std::make_unique<IMPL_t>()) {}

WQCurlMulti::~WQCurlMulti() = default;

bool WQCurlMulti::Initialize()
{
    if (!m_pImpl->bReady && m_pImpl->Open())
    {
        m_pImpl->bReady = true;
    }
    return m_pImpl->bReady;
}

bool WQCurlMulti::addHandle(const WQCurlEasy* pEasyHandle)
{
    if (pEasyHandle == nullptr || !m_pImpl->bReady || !pEasyHandle->m_pImpl->bInitialized)
    {
        return false;
    }
    bool bWakeUp = false;
    {
        const std::lock_guard<std::mutex> tGuard(m_pImpl->tAddedLock);
        m_pImpl->vecAdded.push_back(pEasyHandle);
        const WQCurlMulti* ptNone = nullptr;
        if (!pEasyHandle->m_pImpl->pMulti.compare_exchange_strong(ptNone, this))
        {
            m_pImpl->vecAdded.pop_back();
            return false;
        }
        pEasyHandle->m_pImpl->bQueued = true;
        bWakeUp = std::exchange(m_pImpl->bWaiting, false);
    }
    /* From here on the transfer may run, finish and be freed at any moment. */
    if (bWakeUp)
    {
        eventfd_write(m_pImpl->tWakeUp.Get(), 1);
    }
    return true;
}

bool WQCurlMulti::removeHandle(const WQCurlEasy* pEasyHandle)
{
    if (pEasyHandle == nullptr || pEasyHandle->m_pImpl->pMulti != this)
    {
        return false;
    }
    WQCurlEasy::IMPL_t& tEasy = *pEasyHandle->m_pImpl;
    tEasy.pMulti = nullptr;
    m_pImpl->setReporting.erase(pEasyHandle);
    {
        const std::lock_guard<std::mutex> tGuard(m_pImpl->tAddedLock);
        if (tEasy.bQueued)
        {
            auto& vecAdded = m_pImpl->vecAdded;
            vecAdded.erase(std::find(vecAdded.begin(), vecAdded.end(), pEasyHandle));
            tEasy.bQueued = false;
            return true;
        }
    }
    if (tEasy.bUnread)
    {
        auto& lstFinished = m_pImpl->lstFinished;
        lstFinished.erase(std::find_if(lstFinished.begin(), lstFinished.end(),
                                       [pEasyHandle](const MultiMsg& tMsg)
                                       { return tMsg.pEasyHandle == pEasyHandle; }));
        tEasy.bUnread = false;
    }
    std::optional<CSigpipeGuard> tGuard;
    if (!std::exchange(tEasy.bEnded, false))
    {
        tGuard.emplace(); // its connection is closed, which may write to it
    }
    return curl_multi_remove_handle(m_pImpl->pMulti.get(), tEasy.pEasy.get()) == CURLM_OK;
}

bool WQCurlMulti::Perform(int& nRunningHandles)
{
    if (!m_pImpl->bReady)
    {
        return false;
    }
    const CSigpipeGuard tGuard;
    m_pImpl->TakeAdded();
    const bool bResult = m_pImpl->SocketAction(CURL_SOCKET_TIMEOUT, 0);
    m_pImpl->ResumePaused();
    m_pImpl->CollectFinished();
    nRunningHandles = m_pImpl->nRunning;
    return bResult;
}

bool WQCurlMulti::fdSelect(int& nRunningHandles)
{
    if (!m_pImpl->bReady)
    {
        std::this_thread::sleep_for(PAUSE_WHEN_UNUSABLE);
        return false;
    }
    const CSigpipeGuard tGuard;
    /* What is due comes before the wait: a transfer is started, waited for and ended in one call. */
    m_pImpl->TakeAdded();
    bool bResult = m_pImpl->RunExpired();
    m_pImpl->CollectFinished();
    epoll_event arrEvents[EVENTS_AT_ONCE];
    const int nEvents = m_pImpl->Wait(arrEvents, EVENTS_AT_ONCE);
    bResult = nEvents >= 0 && bResult;
    for (int i = 0; i < nEvents; ++i)
    {
        bResult = m_pImpl->HandleEvent(arrEvents[i]) && bResult;
    }
    m_pImpl->RunSilent();
    m_pImpl->ResumePaused();
    m_pImpl->CollectFinished();
    nRunningHandles = m_pImpl->nRunning;
    return bResult;
}

WQCurlMulti::MultiMsg WQCurlMulti::InfoRead()
{
    MultiMsg tMsg;
    if (!m_pImpl->lstFinished.empty())
    {
        tMsg = std::move(m_pImpl->lstFinished.front());
        m_pImpl->lstFinished.pop_front();
        tMsg.pEasyHandle->m_pImpl->bUnread = false;
    }
    return tMsg;
}

} // namespace WQCurl
