/* The attempts of a transfer: the first one, and those that follow it. */

#include "veltra/desktop/header_values.h"
#include "veltra/desktop/request_header.h"
#include "veltra/desktop/transfer.h"
#include "veltra/desktop/transfer_options.h"
#include "veltra/desktop/transfer_share.h"

namespace WQCurl
{

namespace
{

/** Returns whether the cause of a failure may pass by itself: the network, and not the disk or the application. */
bool IsTemporary(int nCode, CURL* pEasy, long lStatus)
{
    long lProxyStatus = 0;
    curl_off_t nSent = 0;
    switch (nCode)
    {
    case CURLE_HTTP_RETURNED_ERROR:
        return IsTemporaryStatus(lStatus);
    case CURLE_RECV_ERROR: // also a proxy's refusal
        curl_easy_getinfo(pEasy, CURLINFO_HTTP_CONNECTCODE, &lProxyStatus);
        return lStatus != 0 || lProxyStatus < 400 || IsTemporaryStatus(lProxyStatus);
    case CURLE_UNSUPPORTED_PROTOCOL: // an answer without a status line; otherwise the URL's or a redirect's scheme
        curl_easy_getinfo(pEasy, CURLINFO_PRETRANSFER_TIME_T, &nSent);
        return nSent > 0 && lStatus == 0;
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_CONNECT:
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
    case CURLE_PARTIAL_FILE:
    case CURLE_OPERATION_TIMEDOUT:
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
        return true;
    default:
        return false;
    }
}

} // namespace

long TRANSFER_t::BufferSize(bool bSmall) const
{
    constexpr long USUAL = CURL_MAX_WRITE_SIZE;
    constexpr long SMALL = 64L * 1024;
    constexpr long LARGE = 512L * 1024;
    /* Downloads expect much data: fewer and larger reads. */
    return !bReporting ? USUAL : bSmall ? SMALL : LARGE;
}

CURLcode TRANSFER_t::Begin(CSocketSet* ptSockets, CPausedTransfers* ptPaused, bool bSmallBuffer)
{
    const TRANSFER_SETTINGS_t& tSettings = ptSettings->tRecord;
    m_ptSockets = ptSockets;
    m_ptPaused = ptPaused;
    tAttempts.Begin(tSettings, bReporting, lTotalSeconds);
    tRedirects.Begin(bPost ? 0 : tSettings.nMostRedirects);
    tResume.Begin(tAttempts.MayRetry());
    tExpected.Begin(tSettings);
    curl_easy_setopt(pEasy.get(), CURLOPT_BUFFERSIZE, BufferSize(bSmallBuffer));
    if (tSettings.bCompressed && !bReporting)
    {
        curl_easy_setopt(pEasy.get(), CURLOPT_ACCEPT_ENCODING, ""); // all that libcurl can decode
    }
    return SetHeader();
}

/** Sets the header lines of the next attempt. Those of the application do not go to another server than the first. */
CURLcode TRANSFER_t::SetHeader()
{
    const std::list<std::string>& lstSettings = ptSettings->tRecord.lstHeader;
    const bool bFirstServer = tRedirects.IsAtFirstServer();
    const bool bRest = tResume.Before() > 0;
    if (bFirstServer && !bRest && lstSettings.empty())
    {
        return curl_easy_setopt(pEasy.get(), CURLOPT_HTTPHEADER, pHeader.get());
    }
    if (!BuildRequestHeader(bFirstServer ? pHeader.get() : nullptr,
                            bFirstServer ? lstSettings : std::list<std::string>(), bRest ? tResume.Validator() : "",
                            pBuiltHeader))
    {
        return CURLE_OUT_OF_MEMORY;
    }
    return curl_easy_setopt(pEasy.get(), CURLOPT_HTTPHEADER, pBuiltHeader.get());
}

/** Prepares another libcurl handle with the same options. @return a refusal */
CURLcode TRANSFER_t::Duplicate()
{
    /* Some libcurls must not make two transfers with one handle; see CTransferPool::Recycle(). */
    EASY_PTR_t pNext(curl_easy_duphandle(pEasy.get()));
    if (pNext == nullptr)
    {
        return CURLE_OUT_OF_MEMORY;
    }
    curl_easy_setopt(pNext.get(), CURLOPT_SHARE, TransferShare());
    tAttempts.SetTimeLeft(pNext.get());
    pEasy = std::move(pNext);
    tAttempt = {};
    szError[0] = '\0';
    return CURLE_OK;
}

CURLcode TRANSFER_t::BeginAgain()
{
    const CURLcode eResult = Duplicate();
    curl_easy_setopt(pEasy.get(), CURLOPT_FRESH_CONNECT, 1L);
    return eResult;
}

CURLcode TRANSFER_t::BeginRedirected()
{
    CURLcode eResult = Duplicate();
    eResult = eResult == CURLE_OK ? tRedirects.Follow(pEasy.get()) : eResult;
    SetOwnCertificate(pEasy.get(), ptSettings->tRecord, tRedirects.IsAtFirstServer());
    return eResult == CURLE_OK ? SetHeader() : eResult;
}

CURLcode TRANSFER_t::BeginRetry()
{
    CURLcode eResult = BeginAgain();
    tResume.BeginAttempt();
    curl_easy_setopt(pEasy.get(), CURLOPT_DNS_CACHE_TIMEOUT, 0L); // the server may have another address by now
    if (tResume.Before() > 0)
    {
        const std::string strRange = std::to_string(tResume.Before()) + "-";
        eResult = eResult == CURLE_OK ? curl_easy_setopt(pEasy.get(), CURLOPT_RANGE, strRange.c_str()) : eResult;
        curl_easy_setopt(pEasy.get(), CURLOPT_FAILONERROR, 0L); // CResume checks the status
    }
    else
    {
        eResult = eResult == CURLE_OK ? tRedirects.Restart(pEasy.get()) : eResult;
        SetOwnCertificate(pEasy.get(), ptSettings->tRecord, true);
    }
    return eResult == CURLE_OK ? SetHeader() : eResult;
}

/* libcurl does so itself, but gives up after five dead connections, and not for every error of HTTP/2. */
bool TRANSFER_t::MayBeginAgain(int nCode) const
{
    const bool bDied =
        nCode == CURLE_HTTP2 || nCode == CURLE_GOT_NOTHING || nCode == CURLE_SEND_ERROR || nCode == CURLE_RECV_ERROR;
    return bDied && !tAttempt.tHeaderLines.HaveBegun() && tResume.Received() == 0 && IsReused();
}

std::optional<CAttempts::Clock::time_point> TRANSFER_t::NextAttempt(int nCode)
{
    if (!tAttempts.MayRetry() || !tResume.CanGoOn() || !IsTemporary(nCode, pEasy.get(), Status()))
    {
        return std::nullopt;
    }
    const int nRetryAfter = nCode == CURLE_HTTP_RETURNED_ERROR ? RetryAfter(tAttempt.tHeaderLines) : 0;
    return tAttempts.Next(tResume.Received() - tResume.Before(), nRetryAfter);
}

} // namespace WQCurl
