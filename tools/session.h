#pragma once

#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "veltra/veltra.h"

constexpr int FIRST_HTTP_ERROR = 400; /* status */

/** How a transfer ended. */
struct TRANSFER_END_t
{
    WQCurl::TRANSFER_REPORT_t tReport;
    bool bDiskFull = false; /**< a folder that downloads go to was full then */
};

/**
 * The running engine of one command, and how its transfers end. A verbose session prints the library's log on standard
 * error. Signals reach the thread that made it, never the engine's.
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

    /** Where downloads go: it is looked at when one cannot be written. Before the first of them starts. */
    void SetFolders(std::set<std::string> setFolder) { m_setFolder = std::move(setFolder); }

    /**
     * How the transfer ended that ended last, once: the own one's in a callback, and after a synchronous call while
     * nothing else is under way. Empty for one that never began.
     */
    std::optional<TRANSFER_END_t> TakeEnd();

private:
    static void OnTransferEnd(const WQCurl::TRANSFER_REPORT_t& tReport, void* pUserData);

    std::set<std::string> m_setFolder;
    std::mutex m_tLock;
    std::optional<TRANSFER_END_t> m_tLastEnd; /**< guarded by m_tLock */
};

/** Why a transfer failed, in words: "HTTP 404" where that is why, otherwise the library's text. */
std::string Reason(const std::optional<TRANSFER_END_t>& tEnd);

/** Prints one message of the tool on standard error, what others named made printable. @return the exit status 1 */
int PrintError(const std::string& strWhat, const std::string& strCause);

/** The words for an errno. */
std::string SystemText(int nError);
