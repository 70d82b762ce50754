#pragma once

#include <cstddef>
#include <list>
#include <memory>
#include <string>

#include "veltra/export.h"

/** An object layer over the parts of libcurl's easy and multi interfaces that the engine needs. */
namespace WQCurl
{

struct TRANSFER_t; // defined by the platform

/** The libcurl options of the same names. */
enum WQCURL_OPTION_TYPE
{
    NOSIGNAL = 3,
    NOPROGRESS = 4,
    POST = 16,
    HTTPGET = 17,
    POSTFIELDSIZE = 19,
    TIMEOUT = 30,
    LOW_SPEED_LIMIT = 31,
    LOW_SPEED_TIME = 32,
    URL = 50,
    POSTFIELDS = 59,
    HTTPHEADER = 75,
    WRITEFUNCTION = 78,
    PROGRESSFUNCTION = 82,
    WRITEDATA = 86,
    PROGRESSDATA = 89,
    PRIVATE = 92
};

/** The results that WQCurlEasy::getInfo() reads. */
enum WQCURL_INFO_TYPE
{
    SPEED_DOWNLOAD = 28, /**< double: average download speed in bytes per second */
    PRIVATE_INFO = 39    /**< void*: the pointer stored with PRIVATE */
};

/**
 * Receives nCount items of nSize bytes. A result other than nSize * nCount fails the transfer. So does an exception,
 * which the wrapper stops.
 */
typedef size_t (*WRITE_FUNCTION_t)(char* pData, size_t nSize, size_t nCount, void* pUser);

/**
 * Receives the byte counts of a running transfer; an unknown total is 0. A non-zero result or an exception ends the
 * transfer as failed. The function of a registered transfer is called at least about once a second in every state:
 * queued, looking up a name, connecting, in a TLS handshake, or without data.
 */
typedef int (*PROGRESS_FUNCTION_t)(void* pUser, double dTotal, double dNow, double dUpTotal, double dUpNow);

/**
 * One transfer. It belongs to its creator until WQCurlMulti::addHandle(), then to the thread that drives the multi
 * handle until removeHandle(). Not copyable.
 *
 * Every transfer speaks HTTP/1.1 over http or https, verifies certificates and host names, follows no redirect, prints
 * nothing and raises no signal. It fails if connecting (name look-up, TCP and TLS together) takes more than 30 seconds,
 * if sent data is not acknowledged or data cannot be sent for 30 seconds, if the answer breaks off in its header lines,
 * or if header lines and trailers together exceed 300 KiB. If a reused connection breaks before the first byte of the
 * answer, the transfer, even a POST, is repeated on a new connection.
 */
class VELTRA_API WQCurlEasy
{
public:
    WQCurlEasy();
    ~WQCurlEasy();
    WQCurlEasy(const WQCurlEasy&) = delete;
    WQCurlEasy& operator=(const WQCurlEasy&) = delete;

    /** Prepares the handle before any option is set, and again after reset(). @return false if memory runs out */
    bool Initialize();

    /**
     * @name Options
     * Each sets one option. A POSTFIELDS text is not copied and must outlive the transfer. URL and HTTPHEADER are
     * copied, up to a zero character if they hold one.
     * @return false only if libcurl refuses the option or the handle is not initialised; getLastError() says why
     * @{
     */
    /** Sets a number, a time in seconds or a switch. */
    bool setOption(WQCURL_OPTION_TYPE eOption, const long& lValue);
    /** Sets URL or POSTFIELDS. */
    bool setOption(WQCURL_OPTION_TYPE eOption, const std::string& strValue);
    /** Sets HTTPHEADER. */
    bool setOption(WQCURL_OPTION_TYPE eOption, const std::list<std::string>& lstValue);
    /** Sets WRITEFUNCTION; null discards the body. */
    bool setOption(WQCURL_OPTION_TYPE eOption, WRITE_FUNCTION_t pfnWrite);
    /** Sets PROGRESSFUNCTION, which is called only if NOPROGRESS is 0. */
    bool setOption(WQCURL_OPTION_TYPE eOption, PROGRESS_FUNCTION_t pfnProgress);
    /** Sets WRITEDATA, PROGRESSDATA or PRIVATE: passed back unchanged, not owned. */
    bool setOption(WQCURL_OPTION_TYPE eOption, void* pValue);
    /** @} */

    /**
     * Limits the time to connect and the time of the whole transfer, in seconds. 0 or less leaves the usual limit: 30
     * seconds to connect, none for the whole. A larger value than 2147483 counts as 2147483.
     */
    void setTimeout(int nConnectSeconds, int nTotalSeconds);

    /** Runs the transfer on the calling thread. @return false if it failed; getLastError() says why */
    bool send();

    /** Reads a result of the finished transfer. @return false if there is none; the argument is then unchanged */
    bool getInfo(WQCURL_INFO_TYPE eInfo, double* pdValue);
    /** Does the same for a pointer. */
    bool getInfo(WQCURL_INFO_TYPE eInfo, void** ppValue);

    /** Returns the text of the last failure; empty if nothing has failed since Initialize(). */
    std::string getLastError();

    /** Restores the state before Initialize(). The handle must not be registered. */
    void reset();

private:
    friend class WQCurlMulti;
    std::unique_ptr<TRANSFER_t> m_ptTransfer;
};

/**
 * Drives many transfers on one thread. Any thread may call addHandle() at any time, which wakes the driving thread up
 * if it waits in fdSelect(). All other operations belong to the driving thread, or to the owner while it does not run.
 */
class VELTRA_API WQCurlMulti
{
public:
    /** Tells how one transfer ended. */
    struct MultiMsg
    {
        WQCurlEasy* pEasyHandle = nullptr; /**< the finished transfer; null if none is pending */
        bool bResult = false;              /**< true if it completed without an error */
        std::string strErrorMsg;           /**< libcurl's error text, or the wrapper's own; empty on success */
        int nResultCode = 0;               /**< libcurl's result code; 18 for broken header lines */
        int nSystemError = 0;              /**< errno of a failed connect, 0 otherwise */
    };

    WQCurlMulti();

    /** The owner must have removed all handles. */
    ~WQCurlMulti();
    WQCurlMulti(const WQCurlMulti&) = delete;
    WQCurlMulti& operator=(const WQCurlMulti&) = delete;

    /** Prepares the handle. Any one thread may try again after a failure. @return true if the handle is ready */
    bool Initialize();

    /** Registers a configured transfer. @return false if it is null, not initialised or already registered */
    bool addHandle(const WQCurlEasy* pEasyHandle);

    /** Unregisters a transfer, finished or not. @return false if it is null or not registered here */
    bool removeHandle(const WQCurlEasy* pEasyHandle);

    /**
     * Drives all transfers one step.
     * @param nRunningHandles receives the number still running
     * @return false if the handle is not initialised or libcurl reports an error of its own
     */
    bool Perform(int& nRunningHandles);

    /**
     * Waits at most a second for activity, then drives the transfers that can go on.
     * @param nRunningHandles receives the number still running
     * @return the same as Perform(). A transfer that fails is no failure of this call
     */
    bool fdSelect(int& nRunningHandles);

    /** Returns each finished transfer once; pEasyHandle is null if none is pending. */
    MultiMsg InfoRead();

private:
    struct IMPL_t;
    std::unique_ptr<IMPL_t> m_pImpl;
};

} // namespace WQCurl
