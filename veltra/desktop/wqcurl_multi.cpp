#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "veltra/desktop/connection_rules.h"
#include "veltra/desktop/curl_multi.h"
#include "veltra/desktop/finished_transfers.h"
#include "veltra/desktop/reported_transfer.h"
#include "veltra/desktop/retry_schedule.h"
#include "veltra/desktop/running_transfers.h"
#include "veltra/desktop/signal_guard.h"
#include "veltra/desktop/transfer_observer.h"
#include "veltra/desktop/transfer_queue.h"

namespace WQCurl
{

namespace
{

constexpr std::chrono::milliseconds PAUSE_WHEN_UNUSABLE(10);
/* Small batches: a transfer's data is still in the CPU cache when it ends, and later transfers reuse the connections of
 * earlier ones. */
constexpr int EVENTS_AT_ONCE = 16;
constexpr size_t STARTS_AT_ONCE = 16;

} // namespace

/** The steps that drive all transfers. Everything but the queue belongs to the driving thread. */
struct WQCurlMulti::IMPL_t
{
    typedef std::chrono::steady_clock Clock;

    bool Open();
    void StartDue();
    void Drive(TRANSFER_t& tTransfer, CURLcode ePrepared);
    void StartAgain(TRANSFER_t& tTransfer, CURLcode (TRANSFER_t::*pfnPrepare)());
    void CollectFinished();
    void EndStopped();
    void ResumePaused();
    void Finish(TRANSFER_t& tTransfer, CURLcode eCode);
    bool Release(TRANSFER_t& tTransfer);
    int IdleTime() const;
    int Wait(epoll_event* ptEvents, int nMost);

    CCurlMulti tMulti;
    CTransferQueue tQueue;
    CRunningTransfers tRunning;
    CRetrySchedule tRetries;
    CConnectionRules tConnections{tMulti, tRunning};
    std::atomic<bool> bReady{false};

    size_t nMayStart = STARTS_AT_ONCE;  /**< the most queued transfers that start in the next step */
    std::vector<TRANSFER_t*> vecPaused; /**< have used up their time slices, and continue in the next step */
    CFinishedTransfers tFinished;
};

bool WQCurlMulti::IMPL_t::Open()
{
    return tQueue.Open() && tMulti.Open() && tMulti.Sockets().Want(tQueue.WakeUpDescriptor(), EPOLLIN);
}

/**
 * Starts the first of the transfers that other threads have added, and the next attempt of those whose back-off is
 * over. A change of network ends all back-offs.
 */
void WQCurlMulti::IMPL_t::StartDue()
{
    TRANSFER_t* arrTaken[STARTS_AT_ONCE];
    size_t nRegistered = 0;
    const size_t nTaken = tQueue.Take(arrTaken, nMayStart, nRegistered);
    if (nTaken == 0 && tRetries.IsEmpty())
    {
        return;
    }
    if (tConnections.LookAtNetwork())
    {
        tRetries.MakeAllDue();
    }
    if (nTaken > 0)
    {
        tConnections.BeforeStart(nRegistered);
    }
    for (size_t nIndex = 0; nIndex < nTaken; ++nIndex)
    {
        TRANSFER_t& tTransfer = *arrTaken[nIndex];
        tRunning.Add(tTransfer);
        const CURLcode ePrepared = tTransfer.Begin(&tMulti.Sockets(), &vecPaused);
        tConnections.Prepare(tTransfer);
        Drive(tTransfer, ePrepared);
    }
    for (TRANSFER_t* ptTransfer : tRetries.TakeDue())
    {
        Drive(*ptTransfer, ptTransfer->BeginRetry());
    }
}

/** Has libcurl make an attempt, if that could be prepared. A transfer that libcurl refuses has failed. */
void WQCurlMulti::IMPL_t::Drive(TRANSFER_t& tTransfer, CURLcode ePrepared)
{
    if (ePrepared != CURLE_OK || !tMulti.Add(tTransfer))
    {
        Finish(tTransfer, ePrepared != CURLE_OK ? ePrepared : CURLE_FAILED_INIT);
    }
}

/** Starts a transfer that has just ended for libcurl again, in another way. */
void WQCurlMulti::IMPL_t::StartAgain(TRANSFER_t& tTransfer, CURLcode (TRANSFER_t::*pfnPrepare)())
{
    tMulti.Remove(tTransfer);
    Drive(tTransfer, (tTransfer.*pfnPrepare)());
}

void WQCurlMulti::IMPL_t::CollectFinished()
{
    for (auto tEnd = tMulti.NextFinished(); tEnd.first != nullptr; tEnd = tMulti.NextFinished())
    {
        Finish(*tEnd.first, tEnd.second);
    }
}

/** Ends the transfers whose progress function stops them, or whose time is over. */
void WQCurlMulti::IMPL_t::EndStopped()
{
    for (const auto& [ptTransfer, eCode] : tRunning.FindStopped())
    {
        ptTransfer->szError[0] = '\0'; // it may tell of an address that has failed before
        Finish(*ptTransfer, eCode);
    }
}

/**
 * Continues the transfers whose time slices are used up. libcurl delivers what it has kept for one inside this call: it
 * may use up the next slice, too, and its write may fail, which libcurl does not remember.
 */
void WQCurlMulti::IMPL_t::ResumePaused()
{
    std::vector<TRANSFER_t*> vecResumed;
    vecResumed.swap(vecPaused);
    for (TRANSFER_t* ptTransfer : vecResumed)
    {
        const CURLcode eResult = curl_easy_pause(ptTransfer->pEasy.get(), CURLPAUSE_CONT);
        if (eResult != CURLE_OK)
        {
            Finish(*ptTransfer, eResult);
        }
    }
}

/**
 * Ends an attempt, which libcurl has ended or which is to end now. Either another attempt follows, or the message of
 * the transfer is kept for InfoRead().
 */
void WQCurlMulti::IMPL_t::Finish(TRANSFER_t& tTransfer, CURLcode eCode)
{
    MultiMsg tMsg = tTransfer.Outcome(eCode);
    if (tTransfer.MayBeginAgain(tMsg.nResultCode))
    {
        return StartAgain(tTransfer, &TRANSFER_t::BeginAgain);
    }
    if (tMsg.bResult && tTransfer.tAttempt.bRedirected)
    {
        return StartAgain(tTransfer, &TRANSFER_t::BeginRedirected);
    }
    if (const auto tNext = tTransfer.NextAttempt(tMsg.nResultCode))
    {
        vecPaused.erase(std::remove(vecPaused.begin(), vecPaused.end(), &tTransfer), vecPaused.end());
        tMulti.Remove(tTransfer);
        tTransfer.tAttempt.nSocket = -1;
        tRetries.Add(tTransfer, *tNext);
        return;
    }
    tFinished.Add(std::move(tMsg)); // first: without memory, the transfer goes on
    Release(tTransfer);
    tTransfer.eStage = TRANSFER_t::STAGE_FINISHED;
}

/** Takes a running transfer from libcurl and from all lists. The signal guard is the caller's. */
bool WQCurlMulti::IMPL_t::Release(TRANSFER_t& tTransfer)
{
    tRunning.Remove(tTransfer);
    tRetries.Remove(tTransfer);
    vecPaused.erase(std::remove(vecPaused.begin(), vecPaused.end(), &tTransfer), vecPaused.end());
    return tMulti.Remove(tTransfer);
}

/** Returns how long there is nothing to do, in milliseconds. */
int WQCurlMulti::IMPL_t::IdleTime() const
{
    constexpr std::chrono::seconds LONGEST_WAIT(1);
    if (tFinished.CountUnread() > 0 || !vecPaused.empty())
    {
        return 0;
    }
    const Clock::time_point tNow = Clock::now();
    Clock::time_point tDue = tNow + LONGEST_WAIT;
    for (const auto& tMoment : {tMulti.Timer(), tRunning.NextAsking(), tRetries.Next()})
    {
        tDue = tMoment.has_value() ? std::min(tDue, *tMoment) : tDue;
    }
    /* Rounded up: a wake-up before the moment would only wait again. */
    const auto tIdle = std::chrono::ceil<std::chrono::milliseconds>(tDue - tNow);
    return std::max(static_cast<int>(tIdle.count()), 0);
}

/** Waits for events, as CSocketSet::Wait(). A thread that adds a transfer ends the wait. */
int WQCurlMulti::IMPL_t::Wait(epoll_event* ptEvents, int nMost)
{
    const int nIdle = IdleTime();
    const bool bWait = nIdle > 0 && tQueue.BeginWait();
    const int nEvents = tMulti.Sockets().Wait(ptEvents, nMost, bWait ? nIdle : 0);
    if (bWait)
    {
        tQueue.EndWait();
    }
    return nEvents;
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
    return pEasyHandle != nullptr && m_pImpl->bReady && pEasyHandle->m_ptTransfer->bInitialized &&
           m_pImpl->tQueue.Add(*pEasyHandle->m_ptTransfer, this);
}

bool WQCurlMulti::removeHandle(const WQCurlEasy* pEasyHandle)
{
    if (pEasyHandle == nullptr || pEasyHandle->m_ptTransfer->pMulti != this)
    {
        return false;
    }
    TRANSFER_t& tTransfer = *pEasyHandle->m_ptTransfer;
    SetCallbackTransfer(nullptr);
    bool bLast = false;
    bool bResult = true;
    switch (m_pImpl->tQueue.Remove(tTransfer, bLast))
    {
    case TRANSFER_t::STAGE_RUNNING:
    {
        const CSignalGuard tGuard; // its connection is closed, which may write to it
        bResult = m_pImpl->Release(tTransfer);
        break;
    }
    case TRANSFER_t::STAGE_FINISHED:
        m_pImpl->tFinished.Remove(pEasyHandle);
        break;
    default:
        break;
    }
    if (bLast)
    {
        m_pImpl->tConnections.AfterLast();
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
    m_pImpl->StartDue();
    const bool bResult = m_pImpl->tMulti.CheckTimeouts();
    m_pImpl->CollectFinished();
    m_pImpl->EndStopped();
    m_pImpl->ResumePaused();
    nRunningHandles = m_pImpl->tRunning.Count();
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
    /* Due work comes before the wait: a short transfer starts, is waited for and ends in one call. */
    m_pImpl->StartDue();
    bool bResult = m_pImpl->tMulti.RunExpired();
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
        if (arrEvents[i].data.fd == m_pImpl->tQueue.WakeUpDescriptor())
        {
            m_pImpl->tQueue.AcknowledgeWakeUp();
            continue;
        }
        bResult = m_pImpl->tMulti.HandleEvent(arrEvents[i]) && bResult;
    }
    m_pImpl->CollectFinished();
    m_pImpl->EndStopped();
    /* Short transfers under way go first: no more start than end, and they take over the connections. While long
     * transfers use up their time slices, all may start. */
    const bool bShort = nEvents > 0 && m_pImpl->vecPaused.empty();
    const size_t nEnded = m_pImpl->tFinished.CountUnread();
    m_pImpl->nMayStart = bShort ? std::clamp(nEnded, size_t{1}, STARTS_AT_ONCE) : STARTS_AT_ONCE;
    m_pImpl->ResumePaused();
    nRunningHandles = m_pImpl->tRunning.Count();
    return bResult;
}

WQCurlMulti::MultiMsg WQCurlMulti::InfoRead()
{
    MultiMsg tMsg = m_pImpl->tFinished.Take();
    if (tMsg.pEasyHandle == nullptr)
    {
        return tMsg;
    }
    TRANSFER_t& tTransfer = *tMsg.pEasyHandle->m_ptTransfer;
    tTransfer.eStage = TRANSFER_t::STAGE_REPORTED;
    tTransfer.optEnd = tMsg;
    tTransfer.bSynchronous = tTransfer.tStarter != std::this_thread::get_id(); // if it deletes the handle, too
    TellObserver(tTransfer);
    SetCallbackTransfer(&tTransfer);
    return tMsg;
}

} // namespace WQCurl
