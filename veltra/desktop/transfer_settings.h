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

} // namespace WQCurl
