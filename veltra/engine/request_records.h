#pragma once

#include <atomic>
#include <cstdio>
#include <list>
#include <string>

#include "veltra/platform/sync.h"
#include "veltra/platform/wqcurl.h"

/** What a request does; any other value is refused. */
enum HTTP_METHOD_e
{
    HTTP_METHOD_GET = 1, /**< asks for strUrl */
    HTTP_METHOD_POST = 2 /**< sends strPostData to strUrl */
};

/** What a _REQ_HANDLER_t's record is. */
enum REQ_TYPE_e
{
    REQ_TYPE_HTTP = 0,    /**< an _HTTP_REQ_INFO_t */
    REQ_TYPE_DOWNLOAD = 1 /**< an _HTTP_REQ_FILE_t */
};

/** What a download callback is told. */
enum DOWNLOAD_TYPE_e
{
    DOWNLOAD_TYPE_PROGRESS = 1, /**< another multiple of 5 percent has arrived */
    DOWNLOAD_TYPE_SUCCESS = 2,  /**< final: the file stands at its target path */
    DOWNLOAD_TYPE_FAIL = 3,     /**< final: the transfer failed, the temporary file is gone */
    DOWNLOAD_TYPE_CANCEL = 4    /**< final: it was cancelled, however the transfer ended */
};

/**
 * Called once when an HTTP request has ended, on the engine's worker thread.
 *
 * The texts are valid only during the call: copy what is to be kept. The callback may start asynchronous requests and
 * downloads and cancel downloads. It must not throw and must not make a synchronous request, which would wait for
 * itself and is refused; while it runs, no other transfer of the engine goes on. The record of a synchronous request
 * is still in use: its callback may start an asynchronous request with it, but must not free it.
 *
 * @param bResult the record's: see _HTTP_REQ_INFO_t::bResult
 * @param strErrorMsg the error text of the transfer; empty on success
 * @param strResponse the response body; for a synchronous request the caller's own
 * @param pUserData the record's pUserData
 */
typedef void (*HTTP_REQUEST_CB_t)(bool bResult, std::string& strErrorMsg, std::string& strResponse, void* pUserData);

/**
 * Called on the engine's worker thread: any number of times with DOWNLOAD_TYPE_PROGRESS, then exactly once with one of
 * the other events; not at all any more after a silent cancellation. What holds for HTTP_REQUEST_CB_t's doings holds
 * here.
 *
 * @param nDownloadId the id given to StartDownload()
 * @param nPercent progress events: a multiple of 5, different from the one before; otherwise 0
 * @param dSpeed final events: the average speed in bytes per second; otherwise 0.0
 * @param pUserData the pointer given to StartDownload()
 */
typedef void (*DOWNLOAD_CB_t)(int nDownloadId, DOWNLOAD_TYPE_e eType, int nPercent, double dSpeed, void* pUserData);

/**
 * One HTTP or HTTPS request. The caller fills the first six fields; the engine writes the others. In a synchronous
 * request the engine uses the caller's record until the call returns, in an asynchronous one its own copy.
 */
struct _HTTP_REQ_INFO_t
{
    int eMethod = 0;      /**< an HTTP_METHOD_e; decides over Get() and Post() alike */
    std::string strUrl{}; /**< the full URL, http or https */
    /** Extra header lines ("Name: value"), sent unchecked: no line breaks. A line without a colon is dropped. */
    std::list<std::string> lstHeader{};
    std::string strPostData{};                /**< the body of a POST, any bytes; ignored for GET */
    HTTP_REQUEST_CB_t pfnRequestCB = nullptr; /**< needed for an asynchronous request */
    void* pUserData = nullptr;                /**< handed to the callback; not owned */

    /** Success: a whole answer has come, whatever its HTTP status, which is not examined. */
    bool bResult = false;
    std::string strResponse{};    /**< the response body is appended; never cleared */
    bool bSync = false;           /**< set by Get() and Post() */
    CSync tSync{};                /**< what a synchronous caller waits on; nothing for the caller */
    std::string strErrorReason{}; /**< why the transfer failed or a synchronous request was refused; else empty */
};

/** One file download, the engine's own record. Destroying it does not close pFile. */
struct _HTTP_REQ_FILE_t
{
    int nDownloadId = 0;                               /**< names it in CancelDownload() and in events */
    int nLastPercent = -1;                             /**< the last percentage that was reported */
    std::atomic<bool> bCancel{false};                  /**< set by any thread, read by the worker */
    std::string strUrl{};                              /**< what is downloaded */
    std::string strTempFilePath{};                     /**< the target path followed by ".bak" */
    FILE* pFile = nullptr;                             /**< the temporary file's stream; null once it is closed */
    std::atomic<DOWNLOAD_CB_t> pfnDownloadCB{nullptr}; /**< cleared by any thread, read by the worker */
    void* pUserData = nullptr;                         /**< for the callback; not owned */
};

/** Ties a transfer's easy handle to its record; its address is the easy handle's private pointer. */
struct _REQ_HANDLER_t
{
    int eReqType = REQ_TYPE_HTTP;              /**< a REQ_TYPE_e: what ptReqInfo points to */
    WQCurl::WQCurlEasy* pEasyHandle = nullptr; /**< the transfer */
    void* ptReqInfo = nullptr;                 /**< the record */
};
