#pragma once

#include <atomic>
#include <string_view>
#include <vector>

#include "veltra/platform/desktop/resume.h"
#include "veltra/platform/desktop/socket_set.h"

namespace WQCurl
{

/** What both wrapper classes know of a transfer. CURLOPT_PRIVATE points to it. */
struct WQCurlEasy::IMPL_t
{
    /** Where a transfer is between addHandle() and removeHandle(). */
    enum STAGE_e
    {
        STAGE_APART,    /**< not registered */
        STAGE_QUEUED,   /**< added, and not handed to libcurl yet */
        STAGE_RUNNING,  /**< libcurl's */
        STAGE_FINISHED, /**< taken from libcurl, with its message not read yet */
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

    /** Makes a libcurl handle with all that holds for every transfer. @return the first refusal */
    CURLcode SetUp();

    /** Forgets what Initialize() and all since have set. */
    void Clear();

    /** Bytes that libcurl is to read at once. */
    long BufferSize() const;

    /** Forgets the transfer before, when another is about to begin. */
    void Begin();

    /** Forgets the attempt before. */
    void BeginAttempt();

    /** Prepares another attempt over a new connection. @return a refusal */
    CURLcode Reopen();

    /** Prepares another attempt, which asks for the rest of what the attempt before has received. @return a refusal */
    CURLcode BeginRest();

    /**
     * Prepares another attempt of a request that failed on a reused connection before any answer: the server had closed
     * that connection meanwhile. @return a refusal
     */
    CURLcode BeginAgain();

    /** Returns whether BeginAgain() is due for a transfer that has ended with this code. */
    bool MayBeginAgain(int nCode) const;

    /** Waits until that is to happen, on the calling thread. @return CURLE_OK, or why the transfer is over */
    CURLcode WaitForRest(CResume::Clock::time_point tNext) const;

    /** For libcurl's functions, which refuse null. */
    CURL* Handle() const { return bInitialized ? pEasy.get() : nullptr; }

    /** Keeps the outcome of a libcurl call for getLastError(). @return true for CURLE_OK */
    bool Check(CURLcode eCode);

    /** The status of the answer that came last; 0 when there was none. */
    long Status() const;

    /** What a transfer comes to that has ended for libcurl, as its message. */
    WQCurlMulti::MultiMsg Outcome(CURLcode eCode) const;

    /** libcurl's own words for a failure, as detailed as it gave them. */
    std::string ErrorText(CURLcode eCode) const;

    /** Keeps why the wrapper itself ends the transfer. @return false */
    bool Refuse(const char* pszReason);

    /** Counts header lines, those of interim answers and trailers included. @return false when they are too large */
    bool CountHeader(size_t nBytes);

    /** Counts bytes of the body. @return false when there are more than the settings allow */
    bool CountReceived(size_t nBytes);

    /** Counts one call with data. After many calls or bytes in a turn it pauses the transfer, so that others continue.
     */
    void CountTurn(size_t nBytes);

    /** Judges one header line. @return whether the transfer goes on */
    bool TakesHeader(std::string_view strLine);

    /** Whether the transfer has taken longer than it may. libcurl does not look at what waits for a connection. */
    bool IsOverdue() const;

    /** Asks the progress function, if there is one, whether to go on, with the last known counts. @return 0 for yes */
    int AskProgress() const;

    static curl_socket_t OnOpenSocket(void* pImpl, curlsocktype ePurpose, curl_sockaddr* ptAddress);
    static size_t OnHeader(char* pData, size_t nSize, size_t nCount, void* pImpl);
    static size_t OnWrite(char* pData, size_t nSize, size_t nCount, void* pImpl);
    static int OnProgress(void* pImpl, curl_off_t nTotal, curl_off_t nNow, curl_off_t nUpTotal, curl_off_t nUpNow);

    WQCurlEasy* ptOwner = nullptr;
    /* The lists outlive the handle that points into them: members are destroyed in reverse order. */
    SLIST_PTR_t pHeaders;
    std::shared_ptr<const TRANSFER_SETTINGS_t> ptSettings;
    EASY_PTR_t pEasy;
    bool bInitialized = false; /**< between Initialize() and reset(); the libcurl handle may live longer */
    bool bBlocking = false;    /**< send() has used it */

    WRITE_FUNCTION_t pfnWrite = nullptr;
    void* pWriteData = nullptr;
    bool bReporting = false; /**< NOPROGRESS is 0 */
    PROGRESS_FUNCTION_t pfnProgress = nullptr;
    void* pProgressData = nullptr;
    void* pPrivate = nullptr;
    long lTotalSeconds = 0; /**< the longest that the transfer may take; 0: any time */

    /** The multi handle that it is registered with. */
    std::atomic<const WQCurlMulti*> pMulti{nullptr};
    STAGE_e eStage = STAGE_APART; /**< the driving thread's, but for the step to STAGE_QUEUED */

    /* Of the running transfer, and the driving thread's. */
    bool bHeadersWhole = false;       /**< the empty line that ends the answer's header lines has come */
    CResume tResume;                  /**< counts the body, and knows of attempts before */
    bool bBegunAgain = false;         /**< BeginAgain() has been used, which is done once */
    size_t nHeaderBytes = 0;          /**< of the answer's header lines and trailers so far */
    const char* pszRefusal = nullptr; /**< why the wrapper ends the transfer as too large; null if it does not */
    int nOpenError = 0;               /**< errno of the last socket that the system refused; 0 for none */
    COUNTS_t tCounts;                 /**< what libcurl told last */
    size_t nInTurn = 0;               /**< bytes received in this turn */
    size_t nCallsInTurn = 0;          /**< calls that brought them */
    CSocketSet* ptSockets = nullptr;  /**< where its multi handle waits for sockets; null for send() */
    std::vector<IMPL_t*>* pvecPaused = nullptr; /**< where its multi handle expects transfers that CountTurn() paused */
    size_t nRunningIndex = 0;                   /**< its place among the multi handle's running transfers */
    int nSocket = -1;                           /**< the socket that libcurl last waited on for it; -1 for none */

    std::string strLastError;
    char szError[CURL_ERROR_SIZE] = "";
};

} // namespace WQCurl
