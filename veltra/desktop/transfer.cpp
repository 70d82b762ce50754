/* A transfer's set-up, its attempts and its outcome. */

#include "veltra/desktop/transfer.h"

#include <algorithm>

#include "veltra/desktop/tell_observer.h"
#include "veltra/desktop/transfer_options.h"
#include "veltra/desktop/transfer_pool.h"
#include "veltra/desktop/transfer_share.h"

namespace WQCurl
{

TRANSFER_t* TRANSFER_t::Of(CURL* pEasy)
{
    char* pTransfer = nullptr;
    curl_easy_getinfo(pEasy, CURLINFO_PRIVATE, &pTransfer);
    return reinterpret_cast<TRANSFER_t*>(pTransfer);
}

CURLcode TRANSFER_t::SetUp()
{
    if (pEasy == nullptr)
    {
        pEasy.reset(curl_easy_init());
    }
    if (pEasy == nullptr)
    {
        return CURLE_FAILED_INIT;
    }
    ptSettings = CurrentSettings();
    SetFunctions(pEasy.get());
    CURLcode eResult = curl_easy_setopt(pEasy.get(), CURLOPT_NOSIGNAL, 1L);
    /* Otherwise the removal of a transfer would wait for a name look-up that hangs, and all other transfers too. */
    eResult = eResult == CURLE_OK ? curl_easy_setopt(pEasy.get(), CURLOPT_QUICK_EXIT, 1L) : eResult;
    eResult = eResult == CURLE_OK ? curl_easy_setopt(pEasy.get(), CURLOPT_SHARE, TransferShare()) : eResult;
    eResult = eResult == CURLE_OK ? ApplySettings(pEasy.get(), *ptSettings) : eResult;
    if (eResult != CURLE_OK)
    {
        pEasy.reset(); // some of its options are set
    }
    bInitialized = eResult == CURLE_OK;
    return eResult;
}

void TRANSFER_t::Clear()
{
    if (bInitialized)
    {
        CTransferPool::Recycle(pEasy);
    }
    bInitialized = false;
    pHeaders.reset();
    ptSettings.reset();
    pfnWrite = nullptr;
    pWriteData = nullptr;
    bReporting = false;
    pfnProgress = nullptr;
    pProgressData = nullptr;
    pPrivate = nullptr;
    lTotalSeconds = 0;
    strLastError.clear();
    szError[0] = '\0';
}

long TRANSFER_t::BufferSize() const
{
    constexpr long USUAL = CURL_MAX_WRITE_SIZE;
    constexpr long LARGE = 512L * 1024;
    /* Downloads expect much data: fewer and larger reads. Some libcurls limit the speed between reads only. */
    const long long nMost = ptSettings->tDefaults.nMostBytesPerSecond;
    return nMost > 0 ? static_cast<long>(std::min<long long>(nMost, USUAL)) : bReporting ? LARGE : USUAL;
}

void TRANSFER_t::Begin(CSocketSet* ptDriverSockets, std::vector<TRANSFER_t*>* pvecDriverPaused)
{
    m_ptSockets = ptDriverSockets;
    m_pvecPaused = pvecDriverPaused;
    tResume.Begin(ptSettings->tDefaults, bReporting, lTotalSeconds);
    tCounts = {};
    tAttempt = {};
    curl_easy_setopt(pEasy.get(), CURLOPT_BUFFERSIZE, BufferSize());
}

CURLcode TRANSFER_t::BeginAgain()
{
    /* Some libcurls must not make two transfers with one handle; see CTransferPool::Recycle(). */
    EASY_PTR_t pNext(curl_easy_duphandle(pEasy.get()));
    if (pNext == nullptr)
    {
        return CURLE_OUT_OF_MEMORY;
    }
    curl_easy_setopt(pNext.get(), CURLOPT_SHARE, TransferShare());
    curl_easy_setopt(pNext.get(), CURLOPT_FRESH_CONNECT, 1L);
    tResume.SetTimeLeft(pNext.get());
    pEasy = std::move(pNext);
    tAttempt = {};
    szError[0] = '\0';
    return CURLE_OK;
}

CURLcode TRANSFER_t::BeginResume()
{
    const CURLcode eResult = BeginAgain();
    return eResult == CURLE_OK ? tResume.RequestRest(pEasy.get(), pHeaders.get()) : eResult;
}

/* libcurl does so itself, but gives up after five dead connections, and not for every error of HTTP/2. */
bool TRANSFER_t::MayBeginAgain(int nCode) const
{
    const bool bDied =
        nCode == CURLE_HTTP2 || nCode == CURLE_GOT_NOTHING || nCode == CURLE_SEND_ERROR || nCode == CURLE_RECV_ERROR;
    return bDied && !tAttempt.tHeaderLines.HaveBegun() && tResume.Received() == 0 && IsReused(pEasy.get());
}

bool TRANSFER_t::Check(CURLcode eCode)
{
    if (eCode != CURLE_OK)
    {
        strLastError = ErrorText(eCode);
    }
    return eCode == CURLE_OK;
}

long TRANSFER_t::Status() const
{
    long lStatus = 0;
    curl_easy_getinfo(pEasy.get(), CURLINFO_RESPONSE_CODE, &lStatus);
    return lStatus;
}

std::string TRANSFER_t::ErrorText(CURLcode eCode) const
{
    return szError[0] != '\0' ? szError : curl_easy_strerror(eCode);
}

TRANSFER_t::FAULT_t TRANSFER_t::OwnFault(CURLcode eCode) const
{
    constexpr long PROXY_AUTHENTICATION_REQUIRED = 407;
    const TRANSFER_SETTINGS_t& tDefaults = ptSettings->tDefaults;
    if (tAttempt.pszRefusal != nullptr)
    {
        return {CURLE_FILESIZE_EXCEEDED, tAttempt.pszRefusal};
    }
    if (tResume.Refusal() != nullptr)
    {
        return {CURLE_RANGE_ERROR, tResume.Refusal()};
    }
    if (eCode != CURLE_OK)
    {
        return {};
    }
    if (tResume.IsShort())
    {
        return {CURLE_PARTIAL_FILE, "The rest of the file is not as long as was announced"};
    }
    if (!tAttempt.tHeaderLines.AreComplete())
    {
        return {CURLE_PARTIAL_FILE, "The answer ended within its header lines"};
    }
    if (!tDefaults.strProxy.empty() && Status() == PROXY_AUTHENTICATION_REQUIRED)
    {
        return {CURLE_HTTP_RETURNED_ERROR, "The proxy asks for a user and a password, or refuses them"};
    }
    if (tDefaults.bFailOnRedirect && Status() / 100 == 3)
    {
        return {CURLE_HTTP_RETURNED_ERROR, "The server redirects, which is not followed"};
    }
    return {};
}

WQCurlMulti::MultiMsg TRANSFER_t::Outcome(CURLcode eCode) const
{
    WQCurlMulti::MultiMsg tMsg;
    tMsg.pEasyHandle = ptOwner;
    tMsg.nResultCode = eCode;
    const FAULT_t tFault = OwnFault(eCode);
    if (tFault.pszText != nullptr)
    {
        tMsg.nResultCode = tFault.eCode;
        tMsg.strErrorMsg = tFault.pszText;
    }
    else if (eCode != CURLE_OK)
    {
        long lSystemError = 0;
        curl_easy_getinfo(pEasy.get(), CURLINFO_OS_ERRNO, &lSystemError);
        tMsg.nSystemError = tAttempt.nOpenError != 0 ? tAttempt.nOpenError : static_cast<int>(lSystemError);
        tMsg.strErrorMsg = ErrorText(eCode);
    }
    tMsg.bResult = tMsg.nResultCode == CURLE_OK;
    return tMsg;
}

bool TRANSFER_t::IsOverdue() const
{
    constexpr double GRACE_SECONDS = 1; // libcurl itself ends a transfer with a connection, and its text says more
    return lTotalSeconds > 0 && tResume.SecondsSinceBegin() > static_cast<double>(lTotalSeconds) + GRACE_SECONDS;
}

} // namespace WQCurl
