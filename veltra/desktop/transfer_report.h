#pragma once

/**
 * @file
 * Desktop platform only: a device maker's platform need not offer it.
 */

#include <list>
#include <string>

#include "veltra/export.h"

namespace WQCurl
{

/** The result code of a body that is not the expected one (nExpectedSize, strExpectedSha256). libcurl's are smaller. */
constexpr int RESULT_UNEXPECTED = 1000;

/**
 * Describes a transfer that runs or has ended. Answer and times are those of the last attempt. Times are seconds since
 * its start, and 0 for a phase that it has not reached.
 */
struct TRANSFER_REPORT_t
{
    std::string strUrl;      /**< the given URL, at most with a "/" added for an empty path */
    int nHttpStatus = 0;     /**< the answer's status; 0: no answer came */
    long long nBytes = 0;    /**< bytes of the body that all attempts have received, each counted once */
    int nAttempts = 1;       /**< more than 1 for a download that was retried */
    double dLookUp = 0.0;    /**< the name has been looked up */
    double dConnect = 0.0;   /**< the server is connected */
    double dTls = 0.0;       /**< the TLS handshake is done */
    double dFirstByte = 0.0; /**< the answer begins */
    double dTotal = 0.0;     /**< the end, or now; since the start of the first attempt */
    std::string strPeer;     /**< the connected address without the port; empty: none */
    bool bReused = false;    /**< the connection had been used before */
    int nResultCode = 0;  /**< libcurl's result code, or RESULT_UNEXPECTED; 0: the transfer succeeded, or still runs */
    int nSystemError = 0; /**< errno of a failed connect, 0 otherwise */
    std::string strErrorMsg; /**< the error text; empty on success */

    std::string strHttpVersion;    /**< the answer's version: "1.0", "1.1", "2" or "3"; empty: no answer came */
    std::string strContentType;    /**< the answer's Content-Type; empty: none */
    std::string strRedirectUrl;    /**< the whole URL to which the answer redirects; empty: it does not */
    long long nContentLength = -1; /**< bytes of the whole body as the server announces them; -1: it does not */

    std::string strFinalUrl;          /**< the URL after the redirects that were followed; strUrl if there were none */
    std::string strEtag;              /**< the answer's ETag, with its quotation marks; empty: none */
    std::string strLastModified;      /**< the answer's Last-Modified; empty: none */
    int nRetryAfter = -1;             /**< seconds that the answer asks to wait (Retry-After); -1: it does not */
    std::list<std::string> lstHeader; /**< the answer's header lines in their order; without status line, trailers */
};

/**
 * Describes a transfer, without an observer:
 * - in a request's or download's callback: the callback's own, so far or at its end;
 * - otherwise, after Get() or Post() with bSync true and after SyncDownloadFile(): the last one that this thread has
 *   made in that way, until it starts another transfer.
 * A file that cannot be renamed or closed is no failure of its transfer.
 * @return false, with tReport unchanged, if there is none, as for a transfer that Destroy() has ended or that was
 * refused
 */
VELTRA_API bool TransferReport(TRANSFER_REPORT_t& tReport);

/**
 * Receives the report of each transfer that ends, right before the end is reported and on the same thread: on the
 * worker before the callback, on the caller's thread before SyncDownloadFile() returns. It serves to log all transfers;
 * see TransferReport() for single ones. A transfer that Destroy() ends has no report. Calls may overlap on different
 * threads. It must not throw, and must not call SetTransferObserver() or wait for a transfer.
 * @param tReport valid only during the call
 * @param pUserData the pointer given to SetTransferObserver()
 */
typedef void (*TRANSFER_OBSERVER_t)(const TRANSFER_REPORT_t& tReport, void* pUserData);

/**
 * Sets the observer of all transfers, with pUserData, which the caller keeps valid; null removes it. Any thread, but
 * not within an observer. Once it returns, the observer before is not called any more.
 */
VELTRA_API void SetTransferObserver(TRANSFER_OBSERVER_t pfnObserver, void* pUserData);

} // namespace WQCurl
