/* A transfer's set-up and its outcome. */

#include "veltra/desktop/transfer.h"

#include "veltra/desktop/transfer_options.h"
#include "veltra/desktop/transfer_pool.h"
#include "veltra/desktop/transfer_share.h"

#define VELTRA_LOG_MODULE "WQCurl"
#include "veltra/log.h"

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
    Clear();
    ptSettings = CurrentSettings();
    if (ptSettings == nullptr)
    {
        VELTRA_LOG_ERROR("The settings of this thread's transfers are invalid!");
        return CURLE_BAD_FUNCTION_ARGUMENT;
    }
    if (pEasy == nullptr)
    {
        pEasy.reset(curl_easy_init());
    }
    if (pEasy == nullptr)
    {
        return CURLE_FAILED_INIT;
    }
    m_bUsed = true;
    tStarter = std::this_thread::get_id();
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
    if (m_bUsed)
    {
        CTransferPool::Recycle(pEasy);
    }
    m_bUsed = false;
    bInitialized = false;
    pHeader.reset();
    pBuiltHeader.reset();
    ptSettings.reset();
    pfnWrite = nullptr;
    pWriteData = nullptr;
    bPost = false;
    bReporting = false;
    pfnProgress = nullptr;
    pProgressData = nullptr;
    pPrivate = nullptr;
    lTotalSeconds = lLowSpeedLimit = lLowSpeedSeconds = 0;
    tAttempts = {};
    tRedirects = {};
    tResume = {};
    tCounts = {};
    tAttempt.tHeaderLines.Clear();
    tAttempt = {};
    optEnd.reset();
    bSynchronous = false;
    strLastError.clear();
    szError[0] = '\0';
}

bool TRANSFER_t::IsReused() const
{
    const char* pszPeer = nullptr;
    long lConnections = 0;
    curl_easy_getinfo(pEasy.get(), CURLINFO_PRIMARY_IP, &pszPeer);
    curl_easy_getinfo(pEasy.get(), CURLINFO_NUM_CONNECTS, &lConnections);
    return pszPeer != nullptr && *pszPeer != '\0' && lConnections == 0;
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

/** Returns whether the settings fail a transfer with this status, whatever its body is. */
bool TRANSFER_t::FailsByStatus() const
{
    constexpr long FIRST_ERROR = 400;
    const TRANSFER_SETTINGS_t& tSettings = ptSettings->tRecord;
    const long lStatus = Status();
    const bool bRedirect = lStatus / 100 == 3 && !tAttempt.bRedirected;
    return (tSettings.bFailOnRedirect && bRedirect) || (tSettings.bFailOnHttpError && lStatus >= FIRST_ERROR);
}

FAULT_t TRANSFER_t::OwnFault(CURLcode eCode) const
{
    constexpr long PROXY_AUTHENTICATION_REQUIRED = 407;
    const TRANSFER_SETTINGS_t& tSettings = ptSettings->tRecord;
    if (tAttempt.tFault || eCode != CURLE_OK)
    {
        return tAttempt.tFault;
    }
    if (tResume.IsShort())
    {
        return {CURLE_PARTIAL_FILE, "The rest of the file is not as long as was announced"};
    }
    if (!tAttempt.tHeaderLines.AreComplete())
    {
        return {CURLE_PARTIAL_FILE, "The answer ended within its header lines"};
    }
    if (!tSettings.strProxy.empty() && Status() == PROXY_AUTHENTICATION_REQUIRED)
    {
        return {CURLE_HTTP_RETURNED_ERROR, "The proxy asks for a user and a password, or refuses them"};
    }
    if (FailsByStatus())
    {
        return {CURLE_HTTP_RETURNED_ERROR, Status() / 100 == 3 ? "The server redirects, which is not followed"
                                                               : "The server answers with an error status"};
    }
    return tAttempt.bRedirected ? FAULT_t() : tExpected.CheckEnd(tResume.Received());
}

WQCurlMulti::MultiMsg TRANSFER_t::Outcome(CURLcode eCode) const
{
    WQCurlMulti::MultiMsg tMsg;
    tMsg.pEasyHandle = ptOwner;
    /* The wrapper itself ends a redirect's body that is too long. */
    eCode = tAttempt.bRedirected && eCode == CURLE_WRITE_ERROR ? CURLE_OK : eCode;
    tMsg.nResultCode = eCode;
    const FAULT_t tFault = OwnFault(eCode);
    if (tFault)
    {
        tMsg.nResultCode = tFault.nCode;
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

void TRANSFER_t::GoOn()
{
    tAttempt.tTimeSlice = CTimeSlice();
    if (tAttempt.bHeldBack)
    {
        tAttempt.bHeldBack = false;
        tAttempt.optSpeed.reset();
    }
}

bool TRANSFER_t::IsTooSlow()
{
    curl_off_t nSent = 0;
    curl_easy_getinfo(pEasy.get(), CURLINFO_PRETRANSFER_TIME_T, &nSent);
    if (lLowSpeedSeconds == 0 || nSent == 0 || tAttempt.bHeldBack || tAttempt.bEnded)
    {
        return false;
    }
    if (!tAttempt.optSpeed.has_value())
    {
        tAttempt.optSpeed.emplace().Restart(tResume.Received());
    }
    const bool bTooSlow = tAttempt.optSpeed->IsTooSlow(tResume.Received(), lLowSpeedLimit, lLowSpeedSeconds);
    tAttempt.tFault =
        bTooSlow ? FAULT_t{CURLE_OPERATION_TIMEDOUT, "The transfer has been too slow for too long"} : tAttempt.tFault;
    return bTooSlow;
}

bool TRANSFER_t::IsOverdue() const
{
    constexpr double GRACE_SECONDS = 1; // libcurl itself ends a transfer with a connection, and its text says more
    return lTotalSeconds > 0 && tAttempts.SecondsSinceBegin() > static_cast<double>(lTotalSeconds) + GRACE_SECONDS;
}

} // namespace WQCurl
