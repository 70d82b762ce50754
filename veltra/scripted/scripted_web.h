#pragma once

/**
 * @file
 * Part of libveltra-scripted only, which the tests of an application link instead of libveltra.
 *
 * libveltra-scripted is the same library over a scripted web instead of the network. It opens no connection. Engine,
 * files, callbacks, threads, log, queries, settings, retries, redirects, limits, expected sizes and checksums,
 * bandwidth and reports are the same code as in libveltra; only libcurl's transfers are scripted.
 *
 * It differs from the network as follows:
 * - There are no connections: proxies, addresses, certificates, HTTP versions and limits on the number of connections
 *   have no effect. An https URL needs no certificate. A report has no strPeer, no dTls, and bReused is false.
 * - The time to connect is not limited. The total time of a transfer ends one that is held, up to a second late. The
 *   low-speed limit ends a download that is held for 30 seconds. No test need wait for them: Fail() with code 28 is a
 *   time-out.
 * - A compressed body is not decoded.
 * - User and password in a URL are a part of it; no Authorization line is made of them.
 */

#include <list>
#include <memory>
#include <string>

#include "veltra/export.h"

class CScripts;

/** An answer of a scripted server. */
struct SCRIPTED_ANSWER_t
{
    int nStatus = 200; /**< 200 to 599 */
    /**
     * Header lines ("Name: value"). Content-Length is added, unless a line names it or Transfer-Encoding. A
     * Content-Length that is larger than strBody breaks the answer off at the end of strBody (code 18); a smaller one
     * cuts strBody.
     */
    std::list<std::string> lstHeader{};
    std::string strBody{}; /**< the statuses 204 and 304 do not send it */
    int nChunk = 0;        /**< bytes that arrive at once, at most 16384; 0: 16384 */
};

/** A request that the library has made. Each retry and each redirect that it follows is a request of its own. */
struct SCRIPTED_REQUEST_t
{
    std::string strUrl;    /**< without a fragment, with "/" for an empty path */
    std::string strMethod; /**< "GET" or "POST" */
    /**
     * The header lines of the request's record and of the settings, Range, If-Range and User-Agent. Those that libcurl
     * adds by itself, such as Host and Content-Length, are missing.
     */
    std::list<std::string> lstHeader;
    std::string strBody; /**< of a POST */
};

/**
 * The scripted web. A test makes one object, tells it what servers answer, and then lets the application make its
 * transfers. URLs without a script fail like a host that does not exist (code 6). So do all while no object lives. If
 * several live, the oldest serves alone.
 *
 * Scripts of one URL are used in their order, one for each request. The last one serves until another is added.
 * "http://host" and "http://host/" are the same URL; a fragment does not count. Result codes are those of libcurl, as
 * TransferReport() returns them.
 *
 * Any thread may call any operation, also in a callback, except WaitUntilHeld().
 */
class VELTRA_API CScriptedWeb
{
public:
    CScriptedWeb();

    /** Releases all transfers that are held. Those under way keep the scripts that they have. */
    ~CScriptedWeb();

    CScriptedWeb(const CScriptedWeb&) = delete;
    CScriptedWeb& operator=(const CScriptedWeb&) = delete;

    /**
     * Adds an answer to the scripts of a URL. A request for the rest of the body ("Range: bytes=N-") is answered with
     * the rest and the status 206 if the answer has the status 200 and the ETag or Last-Modified that the request's
     * If-Range names; otherwise with the whole answer.
     */
    void Answer(const std::string& strUrl, const SCRIPTED_ANSWER_t& tAnswer = {});

    /**
     * Adds a failure before any answer. Useful codes are 6 (unknown host), 7 (refused, with the nSystemError
     * ECONNREFUSED), 28 (time-out), 35 (TLS), 52 (no answer) and 60 (certificate). nResultCode must not be 0.
     */
    void Fail(const std::string& strUrl, int nResultCode, const std::string& strErrorMsg);

    /**
     * Adds an answer that breaks off: its header lines and the first nAfterBytes bytes of the body that it sends
     * arrive, then the transfer fails. Useful codes are 18 (the server closes the connection), 28 (time-out) and 56
     * (the connection is reset).
     */
    void Fail(const std::string& strUrl, int nResultCode, const std::string& strErrorMsg,
              const SCRIPTED_ANSWER_t& tAnswer, long long nAfterBytes);

    /**
     * Holds the transfers of a URL until Release(): before the answer, or with nAfterBytes after so many bytes of its
     * body. Cancelling a held download takes milliseconds.
     */
    void Hold(const std::string& strUrl, long long nAfterBytes = 0);

    /** Lets the transfers of a URL go on, those that are held and those to come. */
    void Release(const std::string& strUrl);

    /**
     * Waits until a transfer has been held since Hold(), for ten seconds at most. Its progress has then been reported.
     * Not in a callback, which would keep the transfer from going on.
     * @return false if none has been held
     */
    bool WaitUntilHeld(const std::string& strUrl);

    /**
     * From now on the disk is full for the downloads of a URL: each write to their ".bak" file fails with ENOSPC, so
     * that the transfer fails with code 23.
     */
    void RefuseWrites(const std::string& strUrl);

    /** Returns the requests so far, in their order. Those that a script fails are among them, and those without one. */
    std::list<SCRIPTED_REQUEST_t> Requests() const;

private:
    std::shared_ptr<CScripts> m_ptScripts;
};
