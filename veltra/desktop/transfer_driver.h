#pragma once

#include <chrono>

#include "veltra/desktop/connection_rules.h"
#include "veltra/desktop/curl_multi.h"
#include "veltra/desktop/finished_transfers.h"
#include "veltra/desktop/paused_transfers.h"
#include "veltra/desktop/retry_schedule.h"
#include "veltra/desktop/running_transfers.h"
#include "veltra/desktop/transfer_queue.h"
#include "veltra/desktop/waiting_downloads.h"

namespace WQCurl
{

/** Drives the transfers of a multi handle, step by step. Any thread adds; the rest belongs to the driving thread. */
class CTransferDriver
{
public:
    bool Open();

    /** Adds a transfer. @return false if it is registered with a multi handle already */
    bool Add(TRANSFER_t& tTransfer, const WQCurlMulti* ptMulti) { return m_tQueue.Add(tTransfer, ptMulti); }

    /** Takes a transfer out, finished or not. @return false if libcurl reports an error of its own, as the next two */
    bool Remove(const WQCurlEasy* pEasyHandle, TRANSFER_t& tTransfer);

    /** Drives what can go on. The signal guard is the caller's, here and in the next. */
    bool Step();

    /** Waits at most a second for something to do, then drives it. */
    bool WaitAndStep();

    int CountRunning() const { return m_tRunning.Count(); }

    /** Returns the message of the next finished transfer; its handle is null if there is none. */
    WQCurlMulti::MultiMsg TakeFinished() { return m_tFinished.Take(); }

private:
    typedef std::chrono::steady_clock Clock;

    static constexpr size_t STARTS_AT_ONCE = 16;

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

    CCurlMulti m_tMulti;
    CTransferQueue m_tQueue;
    CWaitingDownloads m_tWaiting;
    CRunningTransfers m_tRunning;
    CRetrySchedule m_tRetries;
    CConnectionRules m_tConnections{m_tMulti, m_tRunning};
    CPausedTransfers m_tPaused;
    CFinishedTransfers m_tFinished;
    size_t m_nMayStart = STARTS_AT_ONCE; /**< the most transfers that start in the next step */
};

} // namespace WQCurl
