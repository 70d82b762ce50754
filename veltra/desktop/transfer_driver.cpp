#include "veltra/desktop/transfer_driver.h"

#include <algorithm>
#include <thread>

#include "veltra/desktop/signal_guard.h"

namespace WQCurl
{

namespace
{

/* Small batches: a transfer's data is still in the CPU cache when it ends, and later transfers reuse the connections of
 * earlier ones. */
constexpr int EVENTS_AT_ONCE = 16;
constexpr int MOST_LARGE_BUFFERS = 32;

} // namespace

bool CTransferDriver::Open()
{
    return m_tQueue.Open() && m_tMulti.Open() && m_tMulti.Sockets().Want(m_tQueue.WakeUpDescriptor(), EPOLLIN);
}

/**
 * Starts the first of the transfers that other threads have added, and the next attempt of those whose back-off is
 * over. A change of network ends all back-offs.
 */
void CTransferDriver::StartDue()
{
    TRANSFER_t* arrTaken[STARTS_AT_ONCE + 1];
    std::list<TRANSFER_t*> lstDownloads;
    size_t nRegistered = 0;
    size_t nTaken = m_tQueue.Take(arrTaken, m_nMayStart, lstDownloads, nRegistered);
    while (!lstDownloads.empty())
    {
        m_tRunning.Add(*lstDownloads.front());
        m_tWaiting.AddFirst(lstDownloads);
    }
    const int nMostDownloads = m_tWaiting.IsEmpty() ? 0 : ProcessSettings()->tRecord.nMostDownloads;
    /* Requests go first, but in each step a download may start: otherwise those that never cease would keep it waiting.
     */
    const size_t nMost = std::max(m_nMayStart, nTaken + 1);
    while (nTaken < nMost && (arrTaken[nTaken] = m_tWaiting.Start(nMostDownloads)) != nullptr)
    {
        ++nTaken;
    }
    if (nTaken == 0 && m_tRetries.IsEmpty())
    {
        return;
    }
    if (m_tConnections.LookAtNetwork())
    {
        m_tRetries.MakeAllDue();
    }
    if (nTaken > 0)
    {
        m_tConnections.BeforeStart(nRegistered);
    }
    for (size_t nIndex = 0; nIndex < nTaken; ++nIndex)
    {
        TRANSFER_t& tTransfer = *arrTaken[nIndex];
        if (!tTransfer.bReporting)
        {
            m_tRunning.Add(tTransfer);
        }
        const bool bSmallBuffer = m_tWaiting.CountRunning() > MOST_LARGE_BUFFERS;
        const CURLcode ePrepared = tTransfer.Begin(&m_tMulti.Sockets(), &m_tPaused, bSmallBuffer);
        m_tConnections.Prepare(tTransfer);
        Drive(tTransfer, ePrepared);
    }
    for (TRANSFER_t* ptTransfer : m_tRetries.TakeDue())
    {
        Drive(*ptTransfer, ptTransfer->BeginRetry());
    }
}

/** Has libcurl make an attempt, if that could be prepared. A transfer that libcurl refuses has failed. */
void CTransferDriver::Drive(TRANSFER_t& tTransfer, CURLcode ePrepared)
{
    if (ePrepared != CURLE_OK || !m_tMulti.Add(tTransfer))
    {
        Finish(tTransfer, ePrepared != CURLE_OK ? ePrepared : CURLE_FAILED_INIT);
    }
}

/** Starts a transfer that has just ended for libcurl again, in another way. */
void CTransferDriver::StartAgain(TRANSFER_t& tTransfer, CURLcode (TRANSFER_t::*pfnPrepare)())
{
    m_tMulti.Remove(tTransfer);
    Drive(tTransfer, (tTransfer.*pfnPrepare)());
}

void CTransferDriver::CollectFinished()
{
    for (auto tEnd = m_tMulti.NextFinished(); tEnd.first != nullptr; tEnd = m_tMulti.NextFinished())
    {
        Finish(*tEnd.first, tEnd.second);
    }
}

/** Ends the transfers whose progress function stops them, or whose time is over. */
void CTransferDriver::EndStopped()
{
    for (const auto& [ptTransfer, eCode] : m_tRunning.FindStopped())
    {
        ptTransfer->szError[0] = '\0'; // it may tell of an address that has failed before
        Finish(*ptTransfer, eCode);
    }
}

/**
 * Continues paused transfers. libcurl delivers what it has kept for one inside this call: it may use up the next time
 * slice, too, and its write may fail, which libcurl does not remember.
 */
void CTransferDriver::ResumePaused()
{
    for (TRANSFER_t* ptTransfer : m_tPaused.TakeDue())
    {
        ptTransfer->GoOn();
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
void CTransferDriver::Finish(TRANSFER_t& tTransfer, CURLcode eCode)
{
    WQCurlMulti::MultiMsg tMsg = tTransfer.Outcome(eCode);
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
        m_tPaused.Remove(tTransfer);
        m_tMulti.Remove(tTransfer);
        tTransfer.tAttempt.nSocket = -1;
        tTransfer.tAttempt.bEnded = true;
        m_tRetries.Add(tTransfer, *tNext);
        return;
    }
    m_tFinished.Add(std::move(tMsg)); // first: without memory, the transfer goes on
    Release(tTransfer);
    tTransfer.eStage = TRANSFER_t::STAGE_FINISHED;
}

/** Takes a running transfer from libcurl and from all lists. The signal guard is the caller's. */
bool CTransferDriver::Release(TRANSFER_t& tTransfer)
{
    m_tRunning.Remove(tTransfer);
    m_tRetries.Remove(tTransfer);
    m_tPaused.Remove(tTransfer);
    m_tWaiting.Remove(tTransfer);
    return m_tMulti.Remove(tTransfer);
}

/** Returns how long there is nothing to do, in milliseconds. */
int CTransferDriver::IdleTime() const
{
    constexpr std::chrono::seconds LONGEST_WAIT(1);
    if (m_tFinished.CountUnread() > 0 || m_tPaused.IsAnyUsedUp() || m_tWaiting.CanStart())
    {
        return 0;
    }
    const Clock::time_point tNow = Clock::now();
    Clock::time_point tDue = tNow + LONGEST_WAIT;
    for (const auto& tMoment : {m_tMulti.Timer(), m_tRunning.NextAsking(), m_tRetries.Next(), m_tPaused.Next()})
    {
        tDue = tMoment.has_value() ? std::min(tDue, *tMoment) : tDue;
    }
    /* Rounded up: a wake-up before the moment would only wait again. */
    const auto tIdle = std::chrono::ceil<std::chrono::milliseconds>(tDue - tNow);
    return std::max(static_cast<int>(tIdle.count()), 0);
}

/** Waits for events, as CSocketSet::Wait(). A thread that adds a transfer ends the wait. */
int CTransferDriver::Wait(epoll_event* ptEvents, int nMost)
{
    const int nIdle = IdleTime();
    const bool bWait = nIdle > 0 && m_tQueue.BeginWait();
    const int nEvents = m_tMulti.Sockets().Wait(ptEvents, nMost, bWait ? nIdle : 0);
    if (bWait)
    {
        m_tQueue.EndWait();
    }
    return nEvents;
}

bool CTransferDriver::Step()
{
    StartDue();
    const bool bResult = m_tMulti.CheckTimeouts();
    CollectFinished();
    EndStopped();
    ResumePaused();
    return bResult;
}

bool CTransferDriver::WaitAndStep()
{
    constexpr std::chrono::milliseconds PAUSE_WHEN_UNUSABLE(10);
    /* Due work comes before the wait: a short transfer starts, is waited for and ends in one call. */
    StartDue();
    bool bResult = m_tMulti.RunExpired();
    CollectFinished();
    epoll_event arrEvents[EVENTS_AT_ONCE];
    const int nEvents = Wait(arrEvents, EVENTS_AT_ONCE);
    if (nEvents < 0)
    {
        std::this_thread::sleep_for(PAUSE_WHEN_UNUSABLE);
        bResult = false;
    }
    for (int i = 0; i < nEvents; ++i)
    {
        if (arrEvents[i].data.fd == m_tQueue.WakeUpDescriptor())
        {
            m_tQueue.AcknowledgeWakeUp();
            continue;
        }
        bResult = m_tMulti.HandleEvent(arrEvents[i]) && bResult;
    }
    CollectFinished();
    EndStopped();
    /* Short transfers under way go first: no more start than end, and they take over the connections. While long
     * transfers use up their time slices, all may start. */
    const bool bShort = nEvents > 0 && !m_tPaused.IsAnyUsedUp();
    const size_t nEnded = m_tFinished.CountUnread();
    m_nMayStart = bShort ? std::clamp(nEnded, size_t{1}, STARTS_AT_ONCE) : STARTS_AT_ONCE;
    ResumePaused();
    return bResult;
}

bool CTransferDriver::Remove(const WQCurlEasy* pEasyHandle, TRANSFER_t& tTransfer)
{
    bool bLast = false;
    bool bResult = true;
    switch (m_tQueue.Remove(tTransfer, bLast))
    {
    case TRANSFER_t::STAGE_RUNNING:
    {
        const CSignalGuard tGuard; // its connection is closed, which may write to it
        bResult = Release(tTransfer);
        break;
    }
    case TRANSFER_t::STAGE_FINISHED:
        m_tFinished.Remove(pEasyHandle);
        break;
    default:
        break;
    }
    if (bLast)
    {
        m_tConnections.AfterLast();
    }
    return bResult;
}

} // namespace WQCurl
