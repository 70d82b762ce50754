#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "veltra/veltra.h"

/**
 * The running engine of one command, and what it says meanwhile: the library's error records are kept, so that a
 * command that fails can name the cause, and a verbose session prints all records on standard error as well.
 */
class CSession
{
public:
    explicit CSession(bool bVerbose);
    ~CSession();
    CSession(const CSession&) = delete;
    CSession& operator=(const CSession&) = delete;

    CWebConnector& Engine() { return *CSingleton<CWebConnector>::GetInstance(); }

    /** Ends the engine. From then on every record of its transfers has been seen. */
    void End();

    /** What went wrong first since the last call, downloads in the background left aside. Never empty. */
    std::string TakeCause();

    /** Why a download in the background failed. The engine says so after its last event: End() the session first. */
    std::string DownloadCause(int nDownloadId);

private:
    static void OnRecord(unsigned int level, const char* record, void* pUserData);

    const bool m_bVerbose;
    std::mutex m_tLock;
    std::vector<std::string> m_vecError; /**< bare texts, in the order they were written */
    size_t m_nTaken;                     /**< how many of them TakeCause() has passed */
};

/** Prints one error message of the tool. @return the exit status of a failed command */
int PrintError(const std::string& strWhat, const std::string& strCause);
