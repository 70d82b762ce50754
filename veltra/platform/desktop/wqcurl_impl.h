#pragma once

#include <atomic>
#include <curl/curl.h>
#include <vector>

#include "veltra/platform/wqcurl.h"

namespace WQCurl
{

struct EASY_DELETER_t
{
    void operator()(CURL* pEasy) const { curl_easy_cleanup(pEasy); }
};

struct SLIST_DELETER_t
{
    void operator()(curl_slist* pList) const { curl_slist_free_all(pList); }
};

typedef std::unique_ptr<CURL, EASY_DELETER_t> EASY_PTR_t;
typedef std::unique_ptr<curl_slist, SLIST_DELETER_t> SLIST_PTR_t;

/** What SetTransferDefaults() was given, as libcurl takes it. */
struct DEFAULTS_t
{
    std::string strCaFile;
    SLIST_PTR_t pConnectTo;
};

/** What both wrapper classes know of an easy handle. CURLOPT_PRIVATE points back to the WQCurlEasy. */
struct WQCurlEasy::IMPL_t
{
    /** Makes the handle ready for one transfer. @return the first refusal */
    CURLcode Prepare(WQCurlEasy* ptOwner);

    /** Gives a fresh handle what holds for every transfer. @return the first refusal */
    CURLcode SetUp();

    /** Takes back what setOption() and a multi handle can have set in libcurl. */
    void UndoOptions() const;

    /** For libcurl's functions, which refuse null. */
    CURL* Handle() const { return bInitialized ? pEasy.get() : nullptr; }

    /** Notes the outcome of a libcurl call for getLastError(). @return true for CURLE_OK */
    bool Note(CURLcode eCode);

    /** Counts what a transfer got of its turn; after much of it, the others get theirs. */
    void CountTurn(size_t nBytes);

    /** libcurl's own words for a failure, as detailed as it gave them. */
    std::string ErrorText(CURLcode eCode) const;

    static curl_socket_t OnOpenSocket(void* pUnused, curlsocktype ePurpose, curl_sockaddr* ptAddress);
    static size_t OnWrite(char* pData, size_t nSize, size_t nCount, void* pImpl);
    static int OnProgress(void* pImpl, curl_off_t nTotal, curl_off_t nNow, curl_off_t nUpTotal, curl_off_t nUpNow);

    /* The lists outlive the handle that points into them: members are destroyed in reverse order. */
    SLIST_PTR_t pHeaders;
    std::shared_ptr<const DEFAULTS_t> ptDefaults;
    EASY_PTR_t pEasy;
    bool bInitialized = false; /**< between Initialize() and reset(); the handle lives longer */
    bool bBlocking = false;    /**< send() has used it */

    WRITE_FUNCTION_t pfnWrite = nullptr;
    void* pWriteData = nullptr;
    PROGRESS_FUNCTION_t pfnProgress = nullptr;
    void* pProgressData = nullptr;
    void* pPrivate = nullptr;

    /** The multi handle that it is registered with. */
    std::atomic<const WQCurlMulti*> pMulti{nullptr};
    bool bQueued = false; /**< added there, but not handed to libcurl yet; guarded by that multi handle's lock */
    /** The socket on which it waits for its peer, if it does; the driving thread's. */
    curl_socket_t nSocket = CURL_SOCKET_BAD;
    std::vector<CURL*>* ptPaused = nullptr; /**< where its multi handle expects those that have had their turn */
    size_t nInTurn = 0;                     /**< bytes received in this turn */
    bool bEnded = false;                    /**< finished there; the driving thread's */
    bool bUnread = false;                   /**< finished there, with its message not read yet; the driving thread's */

    std::string strLastError;
    char szError[CURL_ERROR_SIZE] = "";
};

} // namespace WQCurl
