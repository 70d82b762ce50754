#pragma once

#include <atomic>
#include <cstdio>
#include <list>
#include <string>

#include "veltra/platform/sync.h"
#include "veltra/platform/wqcurl.h"

/** The methods of requests. Any other value is refused. */
enum HTTP_METHOD_e
{
    HTTP_METHOD_GET = 1, /**< asks for strUrl */
    HTTP_METHOD_POST = 2 /**< sends strPostData to strUrl */
};

/** The kinds of records that a _REQ_HANDLER_t points to. */
enum REQ_TYPE_e
{
    REQ_TYPE_HTTP = 0,    /**< an _HTTP_REQ_INFO_t */
    REQ_TYPE_DOWNLOAD = 1 /**< an _HTTP_REQ_FILE_t */
};

/** The events of a download. All but the first are final. */
enum DOWNLOAD_TYPE_e
{
    DOWNLOAD_TYPE_PROGRESS = 1, /**< another multiple of 5 percent has arrived */
    DOWNLOAD_TYPE_SUCCESS = 2,  /**< the file stands at its target path */
    DOWNLOAD_TYPE_FAIL = 3,     /**< the transfer failed; the temporary file is gone */
    DOWNLOAD_TYPE_CANCEL = 4    /**< the download was cancelled, however its transfer ended */
};

/**
 * Called once on the engine's worker thread when an HTTP request has ended.
 *
 * The texts are valid only during the call. The callback may start asynchronous requests and downloads and cancel
 * downloads. It must not throw. A synchronous request in it is refused, because it would wait for itself. No other
 * transfer goes on while the callback runs. The record of a synchronous request is still in use: its callback may
 * start an asynchronous request with it, but must not free it.
 *
 * @param bResult the record's bResult
 * @param strErrorMsg the error text of the transfer; empty on success
 * @param strResponse the response body; in a synchronous request the caller's own text
 * @param pUserData the record's pUserData
 */
typedef void (*HTTP_REQUEST_CB_t)(bool bResult, std::string& strErrorMsg, std::string& strResponse, void* pUserData);

/**
 * Called on the engine's worker thread: any number of times with DOWNLOAD_TYPE_PROGRESS, then once with a final event.
 * After a silent cancellation it is not called any more. It may do what an HTTP_REQUEST_CB_t may do.
 *
 * @param nDownloadId the id given to StartDownload()
 * @param eType the event
 * @param nPercent progress events: a multiple of 5 that differs from the one before; otherwise 0
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
    int eMethod = 0;      /**< an HTTP_METHOD_e, for Get() and Post() alike */
    std::string strUrl{}; /**< the full URL, http or https */
    /** Extra header lines ("Name: value"), sent unchecked: no line breaks. A line without a colon is dropped. */
    std::list<std::string> lstHeader{};
    std::string strPostData{};                /**< the body of a POST, any bytes; ignored for GET */
    HTTP_REQUEST_CB_t pfnRequestCB = nullptr; /**< required for an asynchronous request */
    void* pUserData = nullptr;                /**< passed to the callback; not owned */

    /** True if a whole answer has come. Its HTTP status is not examined. */
    bool bResult = false;
    std::string strResponse{};    /**< the response body is appended to it; never cleared */
    bool bSync = false;           /**< set by Get() and Post() */
    CSync tSync{};                /**< the engine's own: a synchronous caller waits on it */
    std::string strErrorReason{}; /**< why the transfer failed or a synchronous request was refused; else empty */
};

/** One file download; the engine's own record. Its destruction does not close pFile. */
struct _HTTP_REQ_FILE_t
{
    int nDownloadId = 0;                               /**< names it in CancelDownload() and in events */
    int nLastPercent = -1;                             /**< the last reported percentage */
    std::atomic<bool> bCancel{false};                  /**< set by any thread, read by the worker */
    std::string strUrl{};                              /**< the source */
    std::string strTempFilePath{};                     /**< the target path followed by ".bak" */
    FILE* pFile = nullptr;                             /**< the temporary file's stream; null once it is closed */
    std::atomic<DOWNLOAD_CB_t> pfnDownloadCB{nullptr}; /**< cleared by any thread, read by the worker */
    void* pUserData = nullptr;                         /**< passed to the callback; not owned */
};

/** Ties a transfer's easy handle to its record. Its address is the easy handle's private pointer. */
struct _REQ_HANDLER_t
{
    int eReqType = REQ_TYPE_HTTP;              /**< a REQ_TYPE_e, the kind of ptReqInfo */
    WQCurl::WQCurlEasy* pEasyHandle = nullptr; /**< the transfer */
    void* ptReqInfo = nullptr;                 /**< the record */
};
