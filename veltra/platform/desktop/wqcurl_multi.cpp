#include <algorithm>
#include <chrono>
#include <mutex>
#include <optional>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include "veltra/platform/desktop/network_epoch.h"
#include "veltra/platform/desktop/signal_guard.h"
#include "veltra/platform/desktop/transfer_observer.h"
#include "veltra/platform/desktop/wqcurl_impl.h"

namespace WQCurl
{

namespace
{

typedef std::chrono::steady_clock Clock;

constexpr std::chrono::milliseconds LONGEST_WAIT(1000);
constexpr std::chrono::milliseconds ASKING_INTERVAL(1000);
constexpr std::chrono::milliseconds PAUSE_WHEN_UNUSABLE(10);
/* Few: what a transfer has touched is still in the cache when it ends, and who starts last finds the connections of
 * those who have ended. */
constexpr int EVENTS_AT_ONCE = 16;
constexpr size_t STARTS_AT_ONCE = 16;

template <class ELEMENT> void Erase(std::vector<ELEMENT*>& vecElements, ELEMENT* ptElement)
{
    vecElements.erase(std::remove(vecElements.begin(), vecElements.end(), ptElement), vecElements.end());
}

struct MULTI_DELETER_t
{
    void operator()(CURLM* pMulti) const
    {
        const CSignalGuard tGuard;
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
    typedef WQCurlEasy::IMPL_t EASY_t;

    bool Open();
    bool Renew();
    void LookAtNetwork();
    void StartAdded();
    void CloseSpoiled();
    bool IsInUse(int nSocket) const;
    void SetLimits(const std::shared_ptr<const TRANSFER_SETTINGS_t>& ptSettings);
    void KeepConnections(size_t nTransfers, const TRANSFER_DEFAULTS_t& tDefaults) const;
    void Start(EASY_t& tEasy);
    void Drive(EASY_t& tEasy);
    void AskForRests();
    void GoOn(EASY_t& tEasy, CURLcode ePrepared);
    void AvoidOldConnections(CURL* pEasy) const;
    bool SocketAction(curl_socket_t nSocket, int nEvents) const;
    bool RunExpired();
    void CollectFinished();
    void AskProgress();
    void ResumePaused();
    void Finish(EASY_t& tEasy, CURLcode eCode);
    bool Release(EASY_t& tEasy);
    int IdleTime() const;
    int Wait(epoll_event* ptEvents, int nMost);
    bool HandleEvent(const epoll_event& tEvent);

    static EASY_t* Transfer(CURL* pEasy);
    static int OnCloseSocket(void* pImpl, curl_socket_t nSocket);
    static int OnSocket(CURL* pEasy, curl_socket_t nSocket, int nWhat, void* pImpl, void* pUnused);
    static int OnTimer(CURLM* pMulti, long lMilliseconds, void* pImpl);

    CSocketSet tSockets;
    CDescriptor tWakeUp;
    /* Destroyed before these two, which its callbacks still use. */
    std::unique_ptr<CURLM, MULTI_DELETER_t> pMulti;
    std::atomic<bool> bReady{false};

    std::mutex tAddedLock;
    std::vector<EASY_t*> vecAdded; /**< not libcurl's yet; guarded by tAddedLock */
    size_t nRegistered = 0;        /**< handles that are not removed yet; guarded by tAddedLock */
    bool bWaiting = false;         /**< the driving thread waits, or is about to; guarded by tAddedLock */

    size_t nMayStart = STARTS_AT_ONCE; /**< how many of the added handles start in the next step, at most */

    std::vector<EASY_t*> vecPaused; /**< have had their turn in this step, and continue in the next */
    std::vector<std::pair<Clock::time_point, EASY_t*>> vecBroken; /**< whose rest is asked for at these times */
    std::vector<MultiMsg> vecFinished; /**< in the order of their ends; those before nUnread have been read */
    size_t nUnread = 0;
    std::optional<Clock::time_point> tTimer;
    std::vector<EASY_t*> vecRunning; /**< transfers that are libcurl's, or will be again; each knows its index */
    Clock::time_point tNextAsking;   /**< when they are asked again whether they go on */

    unsigned nEpoch = NetworkEpoch();                    /**< the network's, as far as this knows */
    std::optional<Clock::time_point> tOutdating;         /**< connections opened before this moment must not be used */
    std::shared_ptr<const TRANSFER_SETTINGS_t> ptLimits; /**< the settings whose limits the multi handle has */
};

bool WQCurlMulti::IMPL_t::Open()
{
    tWakeUp.Reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    return tSockets.Open() && tWakeUp.Get() >= 0 && tSockets.Want(tWakeUp.Get(), EPOLLIN) && Renew();
}

/**
 * Puts a new multi handle in the place of the old one, whose connections and look-ups go with it. Nothing may run.
 * @return false when there is none to be had, and the old one stays
 */
bool WQCurlMulti::IMPL_t::Renew()
{
    std::unique_ptr<CURLM, MULTI_DELETER_t> pNew(curl_multi_init());
    if (pNew == nullptr || curl_multi_setopt(pNew.get(), CURLMOPT_SOCKETFUNCTION, &OnSocket) != CURLM_OK ||
        curl_multi_setopt(pNew.get(), CURLMOPT_SOCKETDATA, this) != CURLM_OK ||
        curl_multi_setopt(pNew.get(), CURLMOPT_TIMERFUNCTION, &OnTimer) != CURLM_OK ||
        curl_multi_setopt(pNew.get(), CURLMOPT_TIMERDATA, this) != CURLM_OK)
    {
        return false;
    }
    pMulti = std::move(pNew);
    ptLimits.reset();
    tTimer.reset();
    return true;
}

/** Returns the transfer that a libcurl handle makes; null for a handle of libcurl's own. */
WQCurlEasy::IMPL_t* WQCurlMulti::IMPL_t::Transfer(CURL* pEasy)
{
    char* pTransfer = nullptr;
    curl_easy_getinfo(pEasy, CURLINFO_PRIVATE, &pTransfer);
    return reinterpret_cast<EASY_t*>(pTransfer);
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
    EASY_t* ptEasy = nEvents != 0 ? Transfer(pEasy) : nullptr;
    if (ptEasy != nullptr)
    {
        ptEasy->nSocket = nSocket;
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

/**
 * Takes a transfer from libcurl that has ended, or is to end now, and keeps its message for InfoRead(); one whose rest
 * is to be asked for goes on instead.
 */
void WQCurlMulti::IMPL_t::Finish(EASY_t& tEasy, CURLcode eCode)
{
    MultiMsg tMsg = tEasy.Outcome(eCode);
    if (tEasy.MayBeginAgain(tMsg.nResultCode))
    {
        curl_multi_remove_handle(pMulti.get(), tEasy.pEasy.get());
        GoOn(tEasy, tEasy.BeginAgain());
        return;
    }
    const auto tNext = tEasy.tResume.NextAttempt(tMsg.nResultCode);
    if (tNext.has_value())
    {
        Erase(vecPaused, &tEasy);
        curl_multi_remove_handle(pMulti.get(), tEasy.pEasy.get());
        tEasy.nSocket = -1;
        vecBroken.emplace_back(*tNext, &tEasy);
        return;
    }
    Release(tEasy);
    vecFinished.push_back(std::move(tMsg));
    tEasy.eStage = EASY_t::STAGE_FINISHED;
}

/** Takes a transfer from libcurl, finished or not; the signal guard is the caller's. */
bool WQCurlMulti::IMPL_t::Release(EASY_t& tEasy)
{
    vecRunning[tEasy.nRunningIndex] = vecRunning.back();
    vecRunning[tEasy.nRunningIndex]->nRunningIndex = tEasy.nRunningIndex;
    vecRunning.pop_back();
    Erase(vecPaused, &tEasy);
    vecBroken.erase(std::remove_if(vecBroken.begin(), vecBroken.end(),
                                   [&tEasy](const auto& tBroken) { return tBroken.second == &tEasy; }),
                    vecBroken.end());
    return curl_multi_remove_handle(pMulti.get(), tEasy.pEasy.get()) == CURLM_OK;
}

void WQCurlMulti::IMPL_t::CollectFinished()
{
    int nLeft = 0;
    while (const CURLMsg* ptMsg = curl_multi_info_read(pMulti.get(), &nLeft))
    {
        const CURLcode eCode = ptMsg->data.result; // the message does not outlive its transfer's removal
        Finish(*Transfer(ptMsg->easy_handle), eCode);
    }
}

/** After a change of network, connections that are open become outdated, and every back-off ends. */
void WQCurlMulti::IMPL_t::LookAtNetwork()
{
    const unsigned nOldEpoch = std::exchange(nEpoch, NetworkEpoch());
    if (nEpoch != nOldEpoch)
    {
        tOutdating = Clock::now();
        for (auto& tBroken : vecBroken)
        {
            tBroken.first = *tOutdating;
        }
    }
}

/** Starts the first of those that other threads have added. */
void WQCurlMulti::IMPL_t::StartAdded()
{
    EASY_t* arrTaken[STARTS_AT_ONCE];
    size_t nTaken = 0;
    size_t nTransfers = 0;
    {
        const std::lock_guard<std::mutex> tGuard(tAddedLock);
        nTransfers = nRegistered;
        for (; nTaken < std::min(nMayStart, vecAdded.size()); ++nTaken)
        {
            arrTaken[nTaken] = vecAdded[nTaken];
            arrTaken[nTaken]->eStage = EASY_t::STAGE_RUNNING;
        }
        vecAdded.erase(vecAdded.begin(), vecAdded.begin() + static_cast<std::ptrdiff_t>(nTaken));
    }
    if (nTaken == 0)
    {
        return;
    }
    LookAtNetwork();
    if (tOutdating.has_value() && vecRunning.empty() && Renew())
    {
        tOutdating.reset();
    }
    CloseSpoiled();
    KeepConnections(nTransfers, arrTaken[0]->ptSettings->tDefaults);
    std::for_each(arrTaken, arrTaken + nTaken, [this](EASY_t* ptEasy) { Start(*ptEasy); });
}

/**
 * Shuts down connections without a transfer on which the server has sent something: its farewell, or an answer that
 * nobody has asked for. libcurl would use such a connection again and take that for the next answer.
 */
void WQCurlMulti::IMPL_t::CloseSpoiled()
{
    for (const int nSocket : tSockets.FindUnexpected())
    {
        if (!IsInUse(nSocket))
        {
            tSockets.ShutDown(nSocket);
        }
    }
}

/** Returns whether a socket on which libcurl does not wait may belong to a transfer: one that is paused or limited. */
bool WQCurlMulti::IMPL_t::IsInUse(int nSocket) const
{
    const auto fnMayUse = [nSocket](const EASY_t* ptEasy)
    {
        const bool bUnknown = ptEasy->nSocket < 0 && ptEasy->nHeaderBytes > 0;
        return ptEasy->nSocket == nSocket || bUnknown;
    };
    return std::any_of(vecRunning.begin(), vecRunning.end(), fnMayUse);
}

void WQCurlMulti::IMPL_t::SetLimits(const std::shared_ptr<const TRANSFER_SETTINGS_t>& ptSettings)
{
    if (ptLimits != ptSettings)
    {
        ptLimits = ptSettings;
        const TRANSFER_DEFAULTS_t& tDefaults = ptSettings->tDefaults;
        curl_multi_setopt(pMulti.get(), CURLMOPT_MAX_TOTAL_CONNECTIONS, long{tDefaults.nMostConnections});
        curl_multi_setopt(pMulti.get(), CURLMOPT_MAX_HOST_CONNECTIONS, long{tDefaults.nMostConnectionsPerHost});
    }
}

/**
 * Lets as many connections stay open as libcurl would for so many transfers, and no fewer than may stay when all have
 * ended. libcurl itself counts, in its later releases, only those that run at the moment: of many that end in one step
 * it closes the connections before others start.
 */
void WQCurlMulti::IMPL_t::KeepConnections(size_t nTransfers, const TRANSFER_DEFAULTS_t& tDefaults) const
{
    constexpr long CONNECTIONS_PER_TRANSFER = 4;
    curl_multi_setopt(
        pMulti.get(), CURLMOPT_MAXCONNECTS,
        std::max(CONNECTIONS_PER_TRANSFER * static_cast<long>(nTransfers), long{tDefaults.nMostIdleConnections}));
}

/** Hands a transfer to libcurl. One that it refuses has ended as failed. */
void WQCurlMulti::IMPL_t::Start(EASY_t& tEasy)
{
    tEasy.nRunningIndex = vecRunning.size();
    vecRunning.push_back(&tEasy);
    tEasy.ptSockets = &tSockets;
    tEasy.pvecPaused = &vecPaused;
    tEasy.Begin();
    SetLimits(tEasy.ptSettings);
    CURL* pEasy = tEasy.pEasy.get();
    if (tOutdating.has_value())
    {
        AvoidOldConnections(pEasy);
    }
    curl_easy_setopt(pEasy, CURLOPT_CLOSESOCKETFUNCTION, &OnCloseSocket);
    curl_easy_setopt(pEasy, CURLOPT_CLOSESOCKETDATA, this);
    Drive(tEasy);
}

/**
 * Keeps a transfer from connections and look-ups that are older than the last change of network. libcurl compares ages
 * in whole seconds, so that one second less is safe; it takes 0 for any age.
 */
void WQCurlMulti::IMPL_t::AvoidOldConnections(CURL* pEasy) const
{
    constexpr long USUAL_CACHE_SECONDS = 60;
    const auto tSince = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - *tOutdating);
    const long lMostSeconds = std::max(static_cast<long>(tSince.count()) - 1, 0L);
    curl_easy_setopt(pEasy, CURLOPT_FRESH_CONNECT, lMostSeconds == 0 ? 1L : 0L);
    curl_easy_setopt(pEasy, CURLOPT_MAXLIFETIME_CONN, lMostSeconds);
    curl_easy_setopt(pEasy, CURLOPT_DNS_CACHE_TIMEOUT, std::min(lMostSeconds, USUAL_CACHE_SECONDS));
}

/** Has libcurl drive a transfer. One that it refuses has ended as failed. */
void WQCurlMulti::IMPL_t::Drive(EASY_t& tEasy)
{
    if (curl_multi_add_handle(pMulti.get(), tEasy.pEasy.get()) != CURLM_OK)
    {
        Finish(tEasy, CURLE_FAILED_INIT);
    }
}

/** Continues a transfer with another attempt, if that could be prepared. */
void WQCurlMulti::IMPL_t::GoOn(EASY_t& tEasy, CURLcode ePrepared)
{
    ePrepared == CURLE_OK ? Drive(tEasy) : Finish(tEasy, ePrepared);
}

/** Continues the broken transfers whose back-off is over. */
void WQCurlMulti::IMPL_t::AskForRests()
{
    if (vecBroken.empty())
    {
        return;
    }
    std::vector<EASY_t*> vecDue;
    LookAtNetwork();
    const auto fnTakeDue = [tNow = Clock::now(), &vecDue](const auto& tBroken)
    {
        const bool bDue = tBroken.first <= tNow;
        if (bDue)
        {
            vecDue.push_back(tBroken.second);
        }
        return bDue;
    };
    vecBroken.erase(std::remove_if(vecBroken.begin(), vecBroken.end(), fnTakeDue), vecBroken.end());
    for (EASY_t* ptEasy : vecDue)
    {
        GoOn(*ptEasy, ptEasy->BeginRest());
    }
}

bool WQCurlMulti::IMPL_t::SocketAction(curl_socket_t nSocket, int nEvents) const
{
    int nUnused = 0;
    return curl_multi_socket_action(pMulti.get(), nSocket, nEvents, &nUnused) == CURLM_OK;
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
 * Asks each transfer that has a progress function once a second whether it is to go on, and ends it if not, or if its
 * time is over. libcurl looks as well while data flow, but not in every state: during a TLS handshake or in a queue it
 * may never do so.
 */
void WQCurlMulti::IMPL_t::AskProgress()
{
    if (vecRunning.empty() || Clock::now() < tNextAsking)
    {
        return;
    }
    tNextAsking = Clock::now() + ASKING_INTERVAL;
    std::vector<std::pair<EASY_t*, CURLcode>> vecStopped;
    for (EASY_t* ptEasy : vecRunning)
    {
        const bool bStop = ptEasy->bReporting && ptEasy->AskProgress() != 0;
        if (bStop || ptEasy->IsOverdue())
        {
            vecStopped.emplace_back(ptEasy, bStop ? CURLE_ABORTED_BY_CALLBACK : CURLE_OPERATION_TIMEDOUT);
        }
    }
    for (const auto& [ptEasy, eCode] : vecStopped)
    {
        ptEasy->szError[0] = '\0'; // of an address that did not answer, say
        Finish(*ptEasy, eCode);
    }
}

/**
 * Goes on with the transfers that have had their turn. What libcurl has kept for one comes inside this call: it may end
 * the next turn as well, and its write may fail, of which libcurl keeps nothing.
 */
void WQCurlMulti::IMPL_t::ResumePaused()
{
    std::vector<EASY_t*> vecResumed;
    vecResumed.swap(vecPaused);
    for (EASY_t* ptEasy : vecResumed)
    {
        const CURLcode eResult = curl_easy_pause(ptEasy->pEasy.get(), CURLPAUSE_CONT);
        if (eResult != CURLE_OK)
        {
            Finish(*ptEasy, eResult);
        }
    }
}

/** How long there is nothing to do, in milliseconds. */
int WQCurlMulti::IMPL_t::IdleTime() const
{
    if (nUnread < vecFinished.size() || !vecPaused.empty())
    {
        return 0;
    }
    const Clock::time_point tNow = Clock::now();
    Clock::time_point tDue = tNow + LONGEST_WAIT;
    if (tTimer.has_value())
    {
        tDue = std::min(tDue, *tTimer);
    }
    if (!vecRunning.empty())
    {
        tDue = std::min(tDue, tNextAsking);
    }
    for (const auto& tBroken : vecBroken)
    {
        tDue = std::min(tDue, tBroken.first);
    }
    /* Rounded up: waking up before the moment would only wait again. */
    const auto tIdle = std::chrono::ceil<std::chrono::milliseconds>(tDue - tNow);
    return std::max(static_cast<int>(tIdle.count()), 0);
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
    IMPL_t::EASY_t& tEasy = *pEasyHandle->m_pImpl;
    bool bWakeUp = false;
    {
        const std::lock_guard<std::mutex> tGuard(m_pImpl->tAddedLock);
        m_pImpl->vecAdded.push_back(&tEasy);
        const WQCurlMulti* ptNone = nullptr;
        if (!tEasy.pMulti.compare_exchange_strong(ptNone, this))
        {
            m_pImpl->vecAdded.pop_back();
            return false;
        }
        tEasy.eStage = IMPL_t::EASY_t::STAGE_QUEUED;
        ++m_pImpl->nRegistered;
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
    IMPL_t::EASY_t& tEasy = *pEasyHandle->m_pImpl;
    IMPL_t::EASY_t::STAGE_e eStage{};
    bool bLast = false;
    {
        const std::lock_guard<std::mutex> tGuard(m_pImpl->tAddedLock);
        tEasy.pMulti = nullptr;
        eStage = std::exchange(tEasy.eStage, IMPL_t::EASY_t::STAGE_APART);
        if (eStage == IMPL_t::EASY_t::STAGE_QUEUED)
        {
            Erase(m_pImpl->vecAdded, &tEasy);
        }
        bLast = --m_pImpl->nRegistered == 0;
    }
    if (eStage == IMPL_t::EASY_t::STAGE_FINISHED)
    {
        const auto itUnread = m_pImpl->vecFinished.begin() + static_cast<std::ptrdiff_t>(m_pImpl->nUnread);
        m_pImpl->vecFinished.erase(std::find_if(itUnread, m_pImpl->vecFinished.end(),
                                                [pEasyHandle](const MultiMsg& tMsg)
                                                { return tMsg.pEasyHandle == pEasyHandle; }));
    }
    bool bResult = true;
    if (eStage == IMPL_t::EASY_t::STAGE_RUNNING)
    {
        const CSignalGuard tGuard; // its connection is closed, which may write to it
        bResult = m_pImpl->Release(tEasy);
    }
    if (bLast && m_pImpl->tSockets.CountOpen() > tEasy.ptSettings->tDefaults.nMostIdleConnections)
    {
        m_pImpl->Renew();
    }
    return bResult;
}

bool WQCurlMulti::Perform(int& nRunningHandles)
{
    if (!m_pImpl->bReady)
    {
        return false;
    }
    const CSignalGuard tGuard;
    m_pImpl->StartAdded();
    m_pImpl->AskForRests();
    const bool bResult = m_pImpl->SocketAction(CURL_SOCKET_TIMEOUT, 0);
    m_pImpl->CollectFinished();
    m_pImpl->AskProgress();
    m_pImpl->ResumePaused();
    nRunningHandles = static_cast<int>(m_pImpl->vecRunning.size());
    return bResult;
}

bool WQCurlMulti::fdSelect(int& nRunningHandles)
{
    if (!m_pImpl->bReady)
    {
        std::this_thread::sleep_for(PAUSE_WHEN_UNUSABLE);
        return false;
    }
    const CSignalGuard tGuard;
    /* What is due comes before the wait: a transfer is started, waited for and ended in one call. */
    m_pImpl->StartAdded();
    m_pImpl->AskForRests();
    bool bResult = m_pImpl->RunExpired();
    m_pImpl->CollectFinished();
    epoll_event arrEvents[EVENTS_AT_ONCE];
    const int nEvents = m_pImpl->Wait(arrEvents, EVENTS_AT_ONCE);
    if (nEvents < 0)
    {
        std::this_thread::sleep_for(PAUSE_WHEN_UNUSABLE);
        bResult = false;
    }
    for (int i = 0; i < nEvents; ++i)
    {
        bResult = m_pImpl->HandleEvent(arrEvents[i]) && bResult;
    }
    m_pImpl->CollectFinished();
    m_pImpl->AskProgress();
    /* Short transfers under way go first: no more start than end, on the same connections. Long ones, which have used
     * up a turn, let all start. */
    const bool bShort = nEvents > 0 && m_pImpl->vecPaused.empty();
    const size_t nEnded = m_pImpl->vecFinished.size() - m_pImpl->nUnread;
    m_pImpl->nMayStart = bShort ? std::clamp(nEnded, size_t{1}, STARTS_AT_ONCE) : STARTS_AT_ONCE;
    m_pImpl->ResumePaused();
    nRunningHandles = static_cast<int>(m_pImpl->vecRunning.size());
    return bResult;
}

WQCurlMulti::MultiMsg WQCurlMulti::InfoRead()
{
    if (m_pImpl->nUnread == m_pImpl->vecFinished.size())
    {
        m_pImpl->vecFinished.clear();
        m_pImpl->nUnread = 0;
        return {};
    }
    MultiMsg tMsg = std::move(m_pImpl->vecFinished[m_pImpl->nUnread++]);
    IMPL_t::EASY_t& tEasy = *tMsg.pEasyHandle->m_pImpl;
    tEasy.eStage = IMPL_t::EASY_t::STAGE_REPORTED;
    TellObserver(tEasy.pEasy.get(), tEasy.tResume, tMsg);
    return tMsg;
}

} // namespace WQCurl
