#pragma once

#include <mutex>
#include <optional>
#include <string>

#include "veltra/veltra.h"

constexpr int FIRST_HTTP_ERROR = 400; /* status */

/** How a transfer ended; empty for one that never began. */
typedef std::optional<WQCurl::TRANSFER_REPORT_t> TRANSFER_END_t;

/**
 * The running engine of one command, and how its transfers end. A verbose session prints the library's log on standard
 * error, printable. Signals reach the thread that made it, never the engine's.
 */
class CSession
{
public:
    explicit CSession(bool bVerbose);
    ~CSession();
    CSession(const CSession&) = delete;
    CSession& operator=(const CSession&) = delete;

    CWebConnector& Engine() { return *CSingleton<CWebConnector>::GetInstance(); }

    /** Ends the engine, and all that is under way. */
    void End();

    /** As long as the result lives, no transfer comes to its end: each keeps its temporary file and has it open. */
    std::unique_lock<std::mutex> HoldEnds() { return std::unique_lock<std::mutex>(m_tLock); }

    /**
     * Returns, once, how the transfer ended that ended last. That is the own one in a callback, and after a synchronous
     * call while nothing else is under way.
     */
    TRANSFER_END_t TakeEnd();

private:
    static void OnTransferEnd(const WQCurl::TRANSFER_REPORT_t& tReport, void* pUserData);

    std::mutex m_tLock;
    TRANSFER_END_t m_tLastEnd; /**< guarded by m_tLock */
};

/** The reason why a transfer failed: "HTTP 404", say, otherwise the library's text. */
std::string Reason(const TRANSFER_END_t& tEnd);

/** Prints one message of the tool on standard error, what others named made printable. @return the exit status 1 */
int PrintError(const std::string& strWhat, const std::string& strCause);

/** The words for an errno. */
std::string SystemText(int nError);
