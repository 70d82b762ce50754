#pragma once

#include <condition_variable>
#include <mutex>
#include <optional>

#include "download_run.h"
#include "held_file.h"
#include "progress_view.h"

/** The state that the downloads of one run share. */
struct DOWNLOAD_CONTEXT_t
{
    CSession& tSession;
    const DOWNLOAD_OPTIONS_t& tOptions;
    std::mutex tLock{};                 /**< guards the members that callbacks use */
    std::condition_variable tArrival{}; /**< is notified when a transfer ends */
    bool bArrived = true;               /**< a transfer has ended since the run looked, or it has not looked yet */
};

/** One download of a run: its transfer, its files and its result. The owner calls it on one thread. */
class CDownloadItem
{
public:
    /** @param tDownload receives the result; it must outlive this */
    CDownloadItem(DOWNLOAD_CONTEXT_t& tContext, DOWNLOAD_t& tDownload);

    /** Starts the transfer. */
    void Start();

    /** Cancels the download unless it has ended. */
    void Cancel();

    /** Returns whether the transfer has been started and has not ended. */
    bool IsUnderWay();

    /** Checks and flushes the file of a transfer that has ended. @return whether the download has just ended */
    bool Finish();

    const DOWNLOAD_t& Download() const { return m_tDownload; }
    const PROGRESS_t& Progress();

private:
    void m_OnEvent(DOWNLOAD_TYPE_e eType);
    std::string m_Failure() const;

    DOWNLOAD_CONTEXT_t& m_tContext;
    DOWNLOAD_t& m_tDownload; /**< callbacks write its report */
    PROGRESS_t m_tProgress;
    int m_nId = 0;

    /* Guarded by the context's lock while the transfer runs. */
    CHeldFile m_tHeld;
    std::optional<int> m_optTakeError{};           /**< the result of m_tHeld.Take(); none before that call */
    std::optional<DOWNLOAD_TYPE_e> m_optOutcome{}; /**< of the transfer; none while it runs */
};
