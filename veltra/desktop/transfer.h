#pragma once

#include <atomic>
#include <string_view>
#include <thread>

#include "veltra/desktop/attempts.h"
#include "veltra/desktop/bandwidth.h"
#include "veltra/desktop/expected_body.h"
#include "veltra/desktop/header_lines.h"
#include "veltra/desktop/low_speed.h"
#include "veltra/desktop/paused_transfers.h"
#include "veltra/desktop/prepared_settings.h"
#include "veltra/desktop/redirects.h"
#include "veltra/desktop/resume.h"
#include "veltra/desktop/socket_set.h"
#include "veltra/desktop/time_slice.h"
#include "veltra/platform/wqcurl.h"

namespace WQCurl
{

/** The run of one transfer, which both wrapper classes work on. CURLOPT_PRIVATE points to it. */
struct TRANSFER_t
{
    /** The stage of a transfer between addHandle() and removeHandle(). */
    enum STAGE_e
    {
        STAGE_NONE,     /**< not registered */
        STAGE_QUEUED,   /**< added, but not given to libcurl yet */
        STAGE_RUNNING,  /**< libcurl's */
        STAGE_FINISHED, /**< taken from libcurl, but its message has not been read yet */
        STAGE_REPORTED  /**< its message has been read */
    };

    /** Byte counts, as the progress function takes them. */
    struct COUNTS_t
    {
        curl_off_t nTotal = 0;
        curl_off_t nNow = 0;
        curl_off_t nUpTotal = 0;
        curl_off_t nUpNow = 0;
    };

    /** The state of one attempt. */
    struct ATTEMPT_t
    {
        CTimeSlice tTimeSlice;
        FAULT_t tFault;                    /**< why the wrapper ends it */
        bool bRedirected = false;          /**< the answer is a redirect, and its body is not the requested one */
        size_t nDiscarded = 0;             /**< bytes of such a body */
        bool bEnded = false;               /**< another one is to follow */
        bool bHeldBack = false;            /**< waits for bandwidth */
        std::optional<CLowSpeed> optSpeed; /**< since the request has been sent */
        int nOpenError = 0;                /**< errno of the last socket that the system refused; 0 for none */
        int nSocket = -1;                  /**< the socket that libcurl last waited on for it; -1 for none */
        CHeaderLines tHeaderLines;
    };

    /** Returns the transfer that a libcurl handle makes; null for a handle of libcurl's own. */
    static TRANSFER_t* Of(CURL* pEasy);

    /** Makes a libcurl handle with the current settings. @return the first refusal */
    CURLcode SetUp();

    /** Forgets everything since SetUp(), so that the object can make another transfer. */
    void Clear();

    /** Returns the libcurl handle between SetUp() and Clear(), otherwise null, which libcurl's functions refuse. */
    CURL* Handle() const { return bInitialized ? pEasy.get() : nullptr; }

    /**
     * Begins the transfer.
     * @param ptSockets, ptPaused the driving multi handle's
     * @param bSmallBuffer many other downloads have a buffer
     * @return a refusal
     */
    CURLcode Begin(CSocketSet* ptSockets, CPausedTransfers* ptPaused, bool bSmallBuffer);

    /** Prepares the same attempt over a new connection. @return a refusal */
    CURLcode BeginAgain();

    /** Prepares an attempt at the URL to which the server has redirected the last one. @return a refusal */
    CURLcode BeginRedirected();

    /**
     * Prepares another attempt, which requests the rest of what has been received, or else begins from the start.
     * @return a refusal
     */
    CURLcode BeginRetry();

    /**
     * Returns whether BeginAgain() is due for a transfer that has ended with this code: no answer has begun on a reused
     * connection, which the server had closed meanwhile. The new connection excludes a second time.
     */
    bool MayBeginAgain(int nCode) const;

    /** Returns when another attempt follows the one that has ended with this code; none if the transfer has ended. */
    std::optional<CAttempts::Clock::time_point> NextAttempt(int nCode);

    /** Returns whether the transfer had a connection that had been used before, and no other. */
    bool IsReused() const;

    /** Returns the answer's status; 0 if no answer has come. */
    long Status() const;

    /** Keeps the outcome of a libcurl call for getLastError(). @return true for CURLE_OK */
    bool Check(CURLcode eCode);

    /** Converts libcurl's result code into the message that InfoRead() returns. */
    WQCurlMulti::MultiMsg Outcome(CURLcode eCode) const;

    /** Begins a time slice after a pause. */
    void GoOn();

    /** Returns whether it has stayed below the low-speed limit for too long. Time that it waits for bandwidth does not
     * count. */
    bool IsTooSlow();

    /** Returns whether the transfer has taken longer than it may. libcurl does not check while it waits in a queue. */
    bool IsOverdue() const;

    /** Asks the progress function, if there is one, whether to go on, with the last known counts. @return 0 for yes */
    int AskProgress() const;

    WQCurlEasy* ptOwner = nullptr;
    /* The lists outlive the handle that points into them: members are destroyed in reverse order. */
    SLIST_PTR_t pHeader; /**< the request's own header lines */
    SLIST_PTR_t pBuiltHeader;
    SETTINGS_PTR_t ptSettings;
    EASY_PTR_t pEasy;

    WRITE_FUNCTION_t pfnWrite = nullptr;
    void* pWriteData = nullptr;
    PROGRESS_FUNCTION_t pfnProgress = nullptr;
    void* pProgressData = nullptr;
    void* pPrivate = nullptr;
    long lTotalSeconds = 0; /**< the longest that the transfer may take; 0: any time */
    long lLowSpeedLimit = 0;
    long lLowSpeedSeconds = 0; /**< 0: any speed */
    bool bInitialized = false; /**< between SetUp() and Clear(); the libcurl handle may live longer */
    bool bPost = false;
    bool bReporting = false;   /**< NOPROGRESS is 0, which marks a download */
    bool bSynchronous = false; /**< the thread that has set it up waits for its end, and may ask for the report */

    STAGE_e eStage = STAGE_NONE; /**< belongs to the driving thread, except for the step to STAGE_QUEUED */
    /** The multi handle that it is registered with. */
    std::atomic<const WQCurlMulti*> pMulti{nullptr};

    /* These belong to the driving thread while the transfer runs. */
    CAttempts tAttempts;
    CRedirects tRedirects;
    CExpectedBody tExpected;
    CResume tResume;          /**< counts the body over all attempts */
    COUNTS_t tCounts;         /**< the last that libcurl has told */
    size_t nRunningIndex = 0; /**< its place in CRunningTransfers */
    BANDWIDTH_SHARE_t tShare;
    ATTEMPT_t tAttempt;    /**< the one that runs */
    bool bCounted = false; /**< CWaitingDownloads has started it */

    std::optional<WQCurlMulti::MultiMsg> optEnd; /**< how it has ended, once InfoRead() has told */
    std::thread::id tStarter;                    /**< the thread that has set it up */

    std::string strLastError;
    char szError[CURL_ERROR_SIZE] = "";

private:
    void SetFunctions(CURL* pNewEasy);
    CURLcode Duplicate();
    CURLcode SetHeader();
    long BufferSize(bool bSmall) const;
    std::string ErrorText(CURLcode eCode) const;
    FAULT_t OwnFault(CURLcode eCode) const;
    bool Accept(const FAULT_t& tFault);
    bool TakeHeaderLine(std::string_view strLine);
    bool FailsByStatus() const;
    FAULT_t CheckAnswer();
    FAULT_t CheckBody(const char* pData, size_t nBytes);
    size_t TakeBody(char* pData, size_t nSize, size_t nCount);

    static curl_socket_t OnOpenSocket(void* pTransfer, curlsocktype ePurpose, curl_sockaddr* ptAddress);
    static size_t OnHeader(char* pData, size_t nSize, size_t nCount, void* pTransfer);
    static size_t OnWrite(char* pData, size_t nSize, size_t nCount, void* pTransfer);
    static int OnProgress(void* pTransfer, curl_off_t nTotal, curl_off_t nNow, curl_off_t nUpTotal, curl_off_t nUpNow);

    bool m_bUsed = false;              /**< SetUp() has changed the libcurl handle */
    CSocketSet* m_ptSockets = nullptr; /**< where the multi handle waits for sockets */
    CPausedTransfers* m_ptPaused = nullptr;
};

} // namespace WQCurl
