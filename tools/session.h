#pragma once

#include <mutex>

#include "messages.h"
#include "options.h"

/**
 * The running engine of one command, with the settings of its options. A verbose session prints the library's log on
 * standard error, without control characters. Only the thread that created the session receives signals, never the
 * engine's threads.
 */
class CSession
{
public:
    /**
     * @param tOptions must outlive the session
     * @param bFailOnHttpError a redirect or a status of 400 and more fails each transfer
     * @throws std::runtime_error if the library refuses the settings
     */
    explicit CSession(const OPTIONS_t& tOptions, bool bFailOnHttpError = true);
    ~CSession();
    CSession(const CSession&) = delete;
    CSession& operator=(const CSession&) = delete;

    CWebConnector& Engine() { return *CSingleton<CWebConnector>::GetInstance(); }
    const OPTIONS_t& Options() const { return m_tOptions; }

    /** While the result lives, no transfer ends: each keeps its temporary file, and keeps it open. */
    std::unique_lock<std::mutex> HoldEnds() { return std::unique_lock<std::mutex>(m_tLock); }

    /**
     * Returns, once, the report of the transfer that ended last. In a callback that is the callback's own transfer. The
     * same holds after a synchronous call if no other transfer is running.
     */
    TRANSFER_END_t TakeEnd();

private:
    static void OnTransferEnd(const WQCurl::TRANSFER_REPORT_t& tReport, void* pUserData);

    const OPTIONS_t& m_tOptions;
    std::mutex m_tLock;
    TRANSFER_END_t m_tLastEnd; /**< guarded by m_tLock */
};
