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

/** Selects a host's addresses. */
enum IP_FAMILY_e
{
    IP_FAMILY_ANY = 0, /**< all, the faster family first */
    IP_FAMILY_4 = 4,   /**< IPv4 only */
    IP_FAMILY_6 = 6    /**< IPv6 only */
};

/**
 * Process-wide settings of transfers. As constructed, they change nothing. A transfer takes the settings when it is
 * initialised, in Get(), Post(), StartDownload() or SyncDownloadFile(), and keeps them.
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
     * otherwise, if it is missing. A "/" may follow. SetTransferDefaults() refuses everything else, and control
     * characters in the decoded USER and PASSWORD.
     */
    std::string strProxy{};
    /** Path of the client's certificate in PEM, or a PKCS#11 URI where libcurl's TLS library takes one; empty: none. */
    std::string strClientCertificate{};
    /** The same for its key; empty: the key is in the certificate's file. Without a password. */
    std::string strClientKey{};
    /** Uses HTTP/2 with https servers that offer it. Transfers then share a connection, and fail together with it. */
    bool bHttp2 = false;
    IP_FAMILY_e eIpFamily = IP_FAMILY_ANY; /**< the addresses that are used */
    /** A status of 400 and more fails the transfer, with a text that names the status. A download keeps nothing. */
    bool bFailOnHttpError = false;
    /** The same for a status of 300 to 399: redirects are not followed, and the body is not the requested one. */
    bool bFailOnRedirect = false;
    int nConnectTimeout = 30;        /**< seconds for look-up, TCP and TLS together; 1 to 2147483 */
    int nMostConnections = 0;        /**< at the same time; transfers above the limit wait. 0: any number */
    int nMostConnectionsPerHost = 0; /**< the same for one host */
    /** If more connections than this are open after the last transfer has ended, all are closed. */
    int nMostIdleConnections = 8;
    long long nLargestAnswer = 0; /**< bytes of a request's answer; more fails the request. 0: any number */
    long long nLargestFile = 0;   /**< bytes of a download; more fails the download. 0: any number */
    /** The most bytes per second that each transfer receives on average, at least 4096; 0: any number. */
    long long nMostBytesPerSecond = 0;
    /**
     * The most attempts in a row to resume a download that the network has broken; attempts that receive 256 KiB do not
     * count. 0: none. The server must send an ETag or a date that identifies the file's version.
     */
    int nRetries = 0;
    int nRetrySeconds = 0; /**< seconds since a download's begin after which it is not resumed; 0: any number */
};

/**
 * Sets the record for every transfer that is initialised from now on.
 * @return false, with nothing changed, for a number out of range or a proxy that cannot be used
 */
VELTRA_API bool SetTransferDefaults(const TRANSFER_SETTINGS_t& tDefaults);

} // namespace WQCurl
