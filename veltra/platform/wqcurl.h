#pragma once

#include <cstddef>
#include <list>
#include <memory>
#include <string>

#include "veltra/export.h"

/** An object layer over libcurl's easy and multi interfaces, as far as the engine needs it. */
namespace WQCurl
{

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
    class CPool;
    struct IMPL_t;
    std::unique_ptr<IMPL_t> m_pImpl;
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

/**
 * @name Desktop platform only
 * What a device's maker or an application may want besides; a maker's wrapper need not offer it. Any thread may call.
 * @{
 */

/** Which of a host's addresses are used. */
enum IP_FAMILY_e
{
    IP_FAMILY_ANY = 0, /**< all, the faster family first */
    IP_FAMILY_4 = 4,   /**< IPv4 only */
    IP_FAMILY_6 = 6    /**< IPv6 only */
};

/**
 * Process-wide settings of transfers. As constructed, they change nothing. A transfer takes what is set when it is
 * initialised, in Get(), Post(), StartDownload() or SyncDownloadFile(), and keeps that.
 */
struct TRANSFER_DEFAULTS_t
{
    /**
     * Path of the CA bundle in PEM that is trusted alone, for https servers and for an https proxy; empty: the
     * system's. It may be kept in memory for a day.
     */
    std::string strCaFile{};
    /** "HOST:PORT:CONNECT-HOST:CONNECT-PORT", as libcurl's CONNECT_TO. */
    std::list<std::string> lstConnectTo{};
    /**
     * Path of a folder of CA certificates in PEM that "openssl rehash" has named, trusted together with strCaFile and
     * instead of the system's bundle; empty: none. Each connection reads those it needs, so that none fill the memory.
     * It holds for an https proxy too.
     */
    std::string strCaFolder{};
    /**
     * "[SCHEME://][USER[:PASSWORD]@]HOST[:PORT]" of a proxy for all hosts; empty: none. The environment's do not count.
     * SCHEME is http (as without it), https, socks4, socks4a, socks5 or socks5h. USER and PASSWORD are percent-encoded:
     * "%40" for "@". HOST is a name or an address; brackets enclose an IPv6 address. PORT is 443 for https and 1080
     * otherwise, if it is missing. A "/" may follow. SetTransferDefaults() refuses everything else, and control
     * characters in the decoded USER and PASSWORD.
     */
    std::string strProxy{};
    /** Path of the client's certificate in PEM, or a PKCS#11 URI where libcurl's TLS library takes one; empty: none. */
    std::string strClientCertificate{};
    /** The same for its key; empty: the key is in the certificate's file. Without a password. */
    std::string strClientKey{};
    /** Speaks HTTP/2 over https with servers that do: many transfers then share a connection, and its fate. */
    bool bHttp2 = false;
    IP_FAMILY_e eIpFamily = IP_FAMILY_ANY; /**< which addresses are used */
    /** A status of 400 and more fails the transfer, with a text that names it; of a download, nothing is kept. */
    bool bFailOnHttpError = false;
    /** The same for a status of 300 to 399: redirects are not followed, so that its body is not what was asked for. */
    bool bFailOnRedirect = false;
    int nConnectTimeout = 30; /**< seconds for look-up, TCP and TLS together; 1 to 2147483 */
    /** Connections in all and to one host at the same time; 0: any number. What is over waits its turn. */
    int nMostConnections = 0;
    int nMostConnectionsPerHost = 0; /**< see nMostConnections */
    /** When nothing is under way any more and more connections than this are open, all are closed. */
    int nMostIdleConnections = 8;
    long long nLargestAnswer = 0; /**< bytes of a request's answer; more fails the request. 0: any number */
    long long nLargestFile = 0;   /**< bytes of a download; more fails the download. 0: any number */
    /** Bytes per second that each transfer receives on average, at least 4096; 0: as many as come. */
    long long nMostBytesPerSecond = 0;
    /**
     * How often in a row the rest of a download that a network broke is asked for before it fails; attempts that bring
     * 256 KiB do not count. 0: never. Only for servers that let the rest be told from that of another file.
     */
    int nResumeAttempts = 0;
    int nResumeSeconds = 0; /**< since a download's begin, after which the rest is not asked for; 0: any number */
};

/**
 * Sets the record for every transfer that is initialised from now on.
 * @return false, with nothing changed, for a number out of range or a proxy that cannot be used
 */
VELTRA_API bool SetTransferDefaults(const TRANSFER_DEFAULTS_t& tDefaults);

/**
 * Tells the library that the device is in another network, or that its connections are dead. Transfers that begin from
 * now on look names up again and use no connection that was open before. Downloads that wait for their next attempt
 * make it within about a second. Transfers under way are not disturbed. Time that the device has slept has the same
 * effect by itself.
 */
VELTRA_API void NetworkChanged();

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

/** @} */

} // namespace WQCurl
