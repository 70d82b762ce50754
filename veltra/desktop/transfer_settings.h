#pragma once

/**
 * @file
 * Desktop platform only: a device maker's platform need not offer it.
 */

#include <cstddef>
#include <list>
#include <memory>
#include <string>

#include "veltra/export.h"

namespace WQCurl
{

/** Selects a host's addresses. */
enum IP_FAMILY_e
{
    IP_FAMILY_ANY = 0, /**< all, the faster family first */
    IP_FAMILY_4 = 4,   /**< IPv4 only */
    IP_FAMILY_6 = 6    /**< IPv6 only */
};

struct PREPARED_SETTINGS_t; // defined by the platform

/**
 * Settings of transfers. As constructed, they change nothing. SetTransferDefaults() applies them to the whole process,
 * a CTransferScope to single calls. A transfer takes its settings when it is initialised, in Get(), Post(),
 * StartDownload() or SyncDownloadFile(), and keeps them through all its attempts.
 */
struct TRANSFER_SETTINGS_t
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
     * otherwise, if it is missing. A "/" may follow. Everything else is refused, and so are control characters
     * in the decoded USER and PASSWORD.
     */
    std::string strProxy{};
    /** Hosts that strProxy does not serve: names, domains and networks, separated by commas; "*" is all hosts. */
    std::string strNoProxy{};
    /** Path of the client's certificate in PEM, or a PKCS#11 URI where libcurl's TLS library takes one; empty: none. */
    std::string strClientCertificate{};
    /** The same for its key; empty: the key is in the certificate's file. Without a password. */
    std::string strClientKey{};
    /** The value of the User-Agent header line; empty: the line is not sent. Control characters are refused. */
    std::string strUserAgent{};
    /**
     * Header lines ("Name: value") of all requests and downloads, such as a bearer token. A line of a request's own
     * record replaces one of the same name. A line without a name and ":", or with a control character, is refused.
     */
    std::list<std::string> lstHeader{};
    /**
     * The most redirects (status 301, 302, 303, 307 and 308) that a GET or a download follows, at most 50; a POST
     * follows none. 0: none. Redirects from https to http, to another scheme, without a usable URL, and beyond the
     * limit fail the transfer. Header lines, user, password and client certificate go only to the server of the given
     * URL: the same scheme, host and port.
     */
    int nMostRedirects = 0;
    /** Accepts compressed answers of requests, not of downloads. strResponse and nLargestAnswer hold the decoded one.
     */
    bool bCompressed = false;
    /** Uses HTTP/2 with https servers that offer it. Transfers then share a connection, and fail together with it. */
    bool bHttp2 = false;
    IP_FAMILY_e eIpFamily = IP_FAMILY_ANY; /**< the addresses that are used */
    /** A status of 400 and more fails the transfer, with a text that names the status. A download keeps nothing. */
    bool bFailOnHttpError = false;
    /** The same for a status of 300 to 399 that is not followed: its body is not the requested one. */
    bool bFailOnRedirect = false;
    int nConnectTimeout = 30; /**< seconds for look-up, TCP and TLS together; 1 to 2147483 */
    /**
     * The most connections at the same time; transfers above the limit wait. 0: any number. This and the next three
     * limit the whole engine: their values in a CTransferScope do not count.
     */
    int nMostConnections = 0;
    int nMostConnectionsPerHost = 0; /**< the same for one host */
    /**
     * The most downloads of the engine at the same time; more wait in their order, without a connection. Requests and
     * synchronous downloads do not count. 0: any number.
     */
    int nMostDownloads = 0;
    /** If more connections than this are open after the last transfer has ended, all are closed. */
    int nMostIdleConnections = 8;
    /**
     * The size of the body in bytes, for a CTransferScope around one call; -1: any. A body of another size fails the
     * transfer: before any byte is written if the server announces another one, otherwise as soon as it is larger, or
     * at its end. Together with the next, it keeps a wrong file from its target, and holds for requests as well.
     */
    long long nExpectedSize = -1;
    /** The SHA-256 of the body as 64 hexadecimal digits; empty: any. Another one fails the transfer at its end. */
    std::string strExpectedSha256{};
    long long nLargestAnswer = 0; /**< bytes of a request's answer; more fails the request. 0: any number */
    long long nLargestFile = 0;   /**< bytes of a download; more fails the download. 0: any number */
    /**
     * The most retries in a row of a download that fails for a temporary reason: the network, or a status of 408, 429,
     * 500, 502, 503 or 504. Retries that receive 256 KiB do not count. A download that has received data is resumed,
     * for which the server must have sent an ETag or a date that identifies the file's version. If no retry is left,
     * those statuses fail the download. 0: none, and every status is accepted. Requests are never retried.
     */
    int nRetries = 0;
    int nRetrySeconds = 0; /**< seconds since a download's begin after which it is not retried; 0: any number */
};

/**
 * Sets the settings of every transfer of the process that is initialised from now on, except in a CTransferScope. Any
 * thread.
 * @return false, with nothing changed, for a number out of range or a text that the record's description refuses
 */
VELTRA_API bool SetTransferDefaults(const TRANSFER_SETTINGS_t& tSettings);

/**
 * Limits the bytes per second that all downloads of the process together receive, synchronous ones included. They share
 * them evenly. Downloads under way follow within a second. Requests are exempt. Any thread.
 *
 * 0 pauses all downloads: they neither fail for low speed nor for silence. A server may close their connections
 * meanwhile, which breaks them; nRetries then resumes them. The total time of SyncDownloadFile() goes on.
 *
 * @param nBytesPerSecond -1, as from the start, sets no limit
 * @return false, with nothing changed, for a number below -1
 */
VELTRA_API bool SetBandwidth(long long nBytesPerSecond);

/**
 * Settings for single calls. While the object lives, the transfers that its thread starts take these settings instead
 * of the process-wide ones: Get(), Post(), StartDownload(), SyncDownloadFile() and the queries. Scopes nest; the
 * innermost one counts. The object is a local variable only, so that it ends on the thread that has made it.
 */
class VELTRA_API CTransferScope
{
public:
    /** @param tSettings is copied. If SetTransferDefaults() would refuse it, the transfers in the scope are refused. */
    explicit CTransferScope(const TRANSFER_SETTINGS_t& tSettings);
    ~CTransferScope();
    CTransferScope(const CTransferScope&) = delete;
    CTransferScope& operator=(const CTransferScope&) = delete;
    static void* operator new(size_t) = delete;
    static void* operator new[](size_t) = delete;

    /** Returns whether the settings can be used. */
    bool IsValid() const { return m_ptSettings != nullptr; }

private:
    std::shared_ptr<const PREPARED_SETTINGS_t> m_ptSettings;      /**< null: invalid */
    const std::shared_ptr<const PREPARED_SETTINGS_t>* m_pptOuter; /**< those of the scope around; null: none */
};

} // namespace WQCurl
