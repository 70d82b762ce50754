#pragma once

/**
 * @file
 * Desktop platform only: a device maker's platform need not offer it.
 */

#include <string>

#include "veltra/export.h"

namespace WQCurl
{

/**
 * What is known of a transfer that has ended. Times are seconds since its start, or for a download of several attempts
 * since the start of the last one, and 0 for what was not reached. The answer is that of the last attempt, too.
 */
struct TRANSFER_REPORT_t
{
    std::string strUrl;      /**< as it was given, at most with a "/" added for an empty path */
    int nHttpStatus = 0;     /**< of the answer; 0: none came */
    long long nBytes = 0;    /**< of the body that have arrived, by all attempts; none of them arrived twice */
    int nAttempts = 1;       /**< more than 1 for a download whose rest was asked for */
    double dLookUp = 0.0;    /**< until the name was looked up */
    double dConnect = 0.0;   /**< until the server was connected */
    double dTls = 0.0;       /**< until the TLS handshake was done */
    double dFirstByte = 0.0; /**< until the answer began */
    double dTotal = 0.0;     /**< until the end; since the start of the first attempt */
    std::string strPeer;     /**< the address that was connected, without the port; empty: none */
    bool bReused = false;    /**< its connection had been used before */
    int nResultCode = 0;     /**< libcurl's result code; 0: the transfer succeeded */
    int nSystemError = 0;    /**< errno of a failed connect, 0 otherwise */
    std::string strErrorMsg; /**< the error text; empty on success */

    std::string strHttpVersion;    /**< of the answer: "1.0", "1.1", "2" or "3"; empty: none came */
    std::string strContentType;    /**< of the answer; empty: it names none */
    std::string strRedirectUrl;    /**< where the answer redirects, as a whole URL; empty: nowhere */
    long long nContentLength = -1; /**< bytes of the body, as the answer announces them; -1: it does not */
};

/**
 * Told of each transfer that ends, right before its end is reported and on the same thread: the worker's before the
 * callback, the caller's before SyncDownloadFile() returns. So a callback learns its own status and reason from what
 * was noted last on its thread. A transfer that Destroy() ends is reported without this. Calls may overlap on different
 * threads. It must not throw, and must not call SetTransferObserver() or wait for a transfer.
 * @param tReport valid only during the call
 * @param pUserData what SetTransferObserver() was given
 */
typedef void (*TRANSFER_OBSERVER_t)(const TRANSFER_REPORT_t& tReport, void* pUserData);

/**
 * Has pfnObserver told of every transfer from now on, with pUserData, which the caller keeps valid; null ends that.
 * Once it returns, the observer before it is not called any more.
 */
VELTRA_API void SetTransferObserver(TRANSFER_OBSERVER_t pfnObserver, void* pUserData);

} // namespace WQCurl
