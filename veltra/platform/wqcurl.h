#pragma once

#include <cstddef>
#include <list>
#include <memory>
#include <string>

#include "veltra/export.h"

/** An object layer over libcurl's easy and multi interfaces, as far as the engine needs it. */
namespace WQCurl
{

struct TRANSFER_t; // the platform's own

/** Each stands for the libcurl option of the same name. */
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

/** What WQCurlEasy::getInfo() reads. */
enum WQCURL_INFO_TYPE
{
    SPEED_DOWNLOAD = 28, /**< double: average download speed in bytes per second */
    PRIVATE_INFO = 39    /**< void*: the pointer stored with PRIVATE */
};

/**
 * Receives nCount items of nSize bytes. A result other than nSize * nCount fails the transfer; so does an exception,
 * which goes no further.
 */
typedef size_t (*WRITE_FUNCTION_t)(char* pData, size_t nSize, size_t nCount, void* pUser);

/**
 * Byte counts of a running transfer, 0 for a total that is unknown. A non-zero result or an exception ends it as
 * failed. A registered transfer is asked about once a second at least, in whatever state it is: queued, looking up a
 * name, connecting, in a TLS handshake, or without data.
 */
typedef int (*PROGRESS_FUNCTION_t)(void* pUser, double dTotal, double dNow, double dUpTotal, double dUpNow);

/**
 * One transfer. It belongs to one thread at a time: to its creator until it is handed to WQCurlMulti::addHandle(), then
 * to the thread that drives the multi handle until removeHandle(). Not copyable.
 *
 * Every transfer speaks HTTP/1.1 over http or https, verifies certificates and host names, follows no redirect, prints
 * nothing and raises no signal. It fails when connecting (name look-up, TCP and TLS together) takes more than 30
 * seconds, when sent data are not acknowledged or cannot be sent for 30, when the answer breaks off in its header
 * lines, and when these and the trailers are larger than 300 KiB. A reused connection that dies before any byte of an
 * answer is replaced by a new one, for a POST too.
 */
class VELTRA_API WQCurlEasy
{
public:
    WQCurlEasy();
    ~WQCurlEasy();
    WQCurlEasy(const WQCurlEasy&) = delete;
    WQCurlEasy& operator=(const WQCurlEasy&) = delete;

    /** Prepares the handle; needed before any option is set, and again after reset(). @return false without memory */
    bool Initialize();

    /**
     * @name Options
     * Each sets one option. Texts given as POSTFIELDS are not copied: they must outlive the transfer; URL and
     * HTTPHEADER are copied, up to a zero character if they hold one.
     * @return false exactly when libcurl refuses the option or the handle is not initialised; getLastError() says why
     * @{
     */
    /** For the enumerators that stand for a number, a time in seconds or a switch. */
    bool setOption(WQCURL_OPTION_TYPE eOption, const long& lValue);
    /** URL and POSTFIELDS. */
    bool setOption(WQCURL_OPTION_TYPE eOption, const std::string& strValue);
    /** HTTPHEADER. */
    bool setOption(WQCURL_OPTION_TYPE eOption, const std::list<std::string>& lstValue);
    /** WRITEFUNCTION; null discards what arrives. */
    bool setOption(WQCURL_OPTION_TYPE eOption, WRITE_FUNCTION_t pfnWrite);
    /** PROGRESSFUNCTION; called only with NOPROGRESS set to 0. */
    bool setOption(WQCURL_OPTION_TYPE eOption, PROGRESS_FUNCTION_t pfnProgress);
    /** WRITEDATA, PROGRESSDATA and PRIVATE: handed back, not owned. */
    bool setOption(WQCURL_OPTION_TYPE eOption, void* pValue);
    /** @} */

    /**
     * Limits the time to connect and the whole transfer, in seconds. 0 and less leave the usual limits: 30 seconds to
     * connect, none for the whole. More than 2147483 counts as that.
     */
    void setTimeout(int nConnectSeconds, int nTotalSeconds);

    /** Runs the transfer on the calling thread. @return false when it failed; getLastError() says why */
    bool send();

    /** Reads a result of the finished transfer. @return false when there is none; the argument is then unchanged */
    bool getInfo(WQCURL_INFO_TYPE eInfo, double* pdValue);
    /** The same for a pointer. */
    bool getInfo(WQCURL_INFO_TYPE eInfo, void** ppValue);

    /** The text of the last failure; empty when nothing has failed since Initialize(). */
    std::string getLastError();

    /** Returns to the state before Initialize(). Not while the handle is registered. */
    void reset();

private:
    friend class WQCurlMulti;
    std::unique_ptr<TRANSFER_t> m_ptTransfer;
};

/**
 * Drives many transfers on one thread. addHandle() may be called from any thread at any time and wakes that thread up
 * if it waits in fdSelect(); all other operations belong to that thread, or to the owner while it does not run.
 */
class VELTRA_API WQCurlMulti
{
public:
    /** Says how one transfer ended. */
    struct MultiMsg
    {
        WQCurlEasy* pEasyHandle = nullptr; /**< the finished transfer; null when none is pending */
        bool bResult = false;              /**< true when it completed without an error */
        std::string strErrorMsg;           /**< libcurl's error text, or the wrapper's own; empty on success */
        int nResultCode = 0;               /**< libcurl's result code; 18 for broken header lines */
        int nSystemError = 0;              /**< errno of a failed connect, 0 otherwise */
    };

    WQCurlMulti();

    /** All handles must have been removed before. */
    ~WQCurlMulti();
    WQCurlMulti(const WQCurlMulti&) = delete;
    WQCurlMulti& operator=(const WQCurlMulti&) = delete;

    /** Prepares the handle; may be tried again after a failure, from any one thread. @return whether it is ready */
    bool Initialize();

    /** Registers a configured transfer. @return false for one that is null, not initialised or already registered */
    bool addHandle(const WQCurlEasy* pEasyHandle);

    /** Unregisters a transfer, finished or not. @return false for one that is null or not registered here */
    bool removeHandle(const WQCurlEasy* pEasyHandle);

    /**
     * Drives all transfers one step.
     * @param nRunningHandles receives the number still running
     * @return false when the handle is not initialised or libcurl reports an error of its own
     */
    bool Perform(int& nRunningHandles);

    /**
     * Waits at most a second for a transfer that can go on, then drives those that can.
     * @param nRunningHandles receives the number still running
     * @return as Perform(); a transfer that fails is no failure of this call
     */
    bool fdSelect(int& nRunningHandles);

    /** Returns the next finished transfer, each once; pEasyHandle is null when there is none. */
    MultiMsg InfoRead();

private:
    struct IMPL_t;
    std::unique_ptr<IMPL_t> m_pImpl;
};

} // namespace WQCurl
