#pragma once

#include <condition_variable>
#include <mutex>
#include <optional>

#include "download_run.h"
#include "held_file.h"
#include "speedometer.h"

/** The state that the downloads of one run share. */
struct DOWNLOAD_CONTEXT_t
{
    CSession& tSession;
    const DOWNLOAD_OPTIONS_t& tOptions;
    std::mutex tLock{};                /**< guards the state of all downloads */
    std::condition_variable tChange{}; /**< is notified when a state changes */
};

/** One download of a run: its transfer, its files and its result. The owner calls it on one thread. */
class CDownloadItem
{
public:
    /** @param tDownload receives the result; it must outlive this */
    CDownloadItem(DOWNLOAD_CONTEXT_t& tContext, DOWNLOAD_t& tDownload);

    /** Starts the transfer; its result becomes visible in State(). */
    void Start();

    /** Checks and flushes a file that has arrived. */
    void Finish();

    /** Cancels the download unless it has ended. */
    void Cancel();

    const std::string& Name() const { return m_strName; } /**< printable */
    DOWNLOAD_STATE_e State() const;
    DOWNLOAD_END_t End() const;
    PROGRESS_t Progress();

private:
    void m_SetEnd(DOWNLOAD_STATE_e eState, const std::string& strReason = "");
    void m_OnEvent(DOWNLOAD_TYPE_e eType);
    void m_OnProgress(long long nTotal);
    std::string m_FailureReason(const WQCurl::TRANSFER_REPORT_t& tReport) const;

    DOWNLOAD_CONTEXT_t& m_tContext;
    DOWNLOAD_t& m_tDownload; /**< its result is guarded by the context's lock */
    const std::string m_strName;
    int m_nId = 0;
    CSpeedometer m_tSpeedometer;

    /* Guarded by the context's lock. */
    CHeldFile m_tHeld;                   /**< while it runs */
    std::optional<int> m_optTakeError{}; /**< the result of m_tHeld.Take(); none before that call */
    long long m_nTotal = -1;             /**< bytes that the server announces; -1: unknown */
};
