#include "veltra/desktop/transfer_report.h"

#include <mutex>
#include <pthread.h>
#include <shared_mutex>

#include "veltra/desktop/tell_observer.h"

namespace WQCurl
{

namespace
{

/**
 * A reader-writer lock that prefers the writer. Calls of the observer are readers, which may overlap.
 * SetTransferObserver() is the writer: calls that overlap without a gap would keep it waiting with std::shared_mutex.
 */
class CObserverLock
{
public:
    void lock() { pthread_rwlock_wrlock(&m_tLock); }
    void unlock() { pthread_rwlock_unlock(&m_tLock); }
    void lock_shared() { pthread_rwlock_rdlock(&m_tLock); }
    void unlock_shared() { pthread_rwlock_unlock(&m_tLock); }

private:
    pthread_rwlock_t m_tLock = PTHREAD_RWLOCK_WRITER_NONRECURSIVE_INITIALIZER_NP;
};

CObserverLock g_tObserverLock;
TRANSFER_OBSERVER_t g_pfnObserver = nullptr;
void* g_pObserverUserData = nullptr;

template <class VALUE> VALUE Info(CURL* pEasy, CURLINFO eInfo)
{
    VALUE tValue{};
    curl_easy_getinfo(pEasy, eInfo, &tValue);
    return tValue;
}

std::string Text(CURL* pEasy, CURLINFO eInfo)
{
    const char* pszText = Info<char*>(pEasy, eInfo);
    return pszText != nullptr ? pszText : "";
}

const char* HttpVersion(CURL* pEasy)
{
    switch (Info<long>(pEasy, CURLINFO_HTTP_VERSION))
    {
    case CURL_HTTP_VERSION_1_0:
        return "1.0";
    case CURL_HTTP_VERSION_1_1:
        return "1.1";
    case CURL_HTTP_VERSION_2_0:
        return "2";
    case CURL_HTTP_VERSION_3:
        return "3";
    default:
        return "";
    }
}

double Seconds(CURL* pEasy, CURLINFO eInfo)
{
    return static_cast<double>(Info<curl_off_t>(pEasy, eInfo)) / 1e6;
}

TRANSFER_REPORT_t Report(CURL* pEasy, const CResume& tResume, const WQCurlMulti::MultiMsg& tMsg)
{
    TRANSFER_REPORT_t tReport;
    tReport.strUrl = Text(pEasy, CURLINFO_EFFECTIVE_URL);
    tReport.nHttpStatus = static_cast<int>(Info<long>(pEasy, CURLINFO_RESPONSE_CODE));
    tReport.nBytes = tResume.Received();
    tReport.nAttempts = tResume.Attempts();
    tReport.dLookUp = Seconds(pEasy, CURLINFO_NAMELOOKUP_TIME_T);
    tReport.dConnect = Seconds(pEasy, CURLINFO_CONNECT_TIME_T);
    tReport.dTls = Seconds(pEasy, CURLINFO_APPCONNECT_TIME_T);
    tReport.dFirstByte = Seconds(pEasy, CURLINFO_STARTTRANSFER_TIME_T);
    tReport.dTotal = tResume.Attempts() > 1 ? tResume.SecondsSinceBegin() : Seconds(pEasy, CURLINFO_TOTAL_TIME_T);
    tReport.strPeer = Text(pEasy, CURLINFO_PRIMARY_IP);
    tReport.bReused = IsReused(pEasy);
    tReport.nResultCode = tMsg.nResultCode;
    tReport.nSystemError = tMsg.nSystemError;
    tReport.strErrorMsg = tMsg.strErrorMsg;
    tReport.strHttpVersion = HttpVersion(pEasy);
    tReport.strContentType = Text(pEasy, CURLINFO_CONTENT_TYPE);
    tReport.strRedirectUrl = Text(pEasy, CURLINFO_REDIRECT_URL);
    tReport.nContentLength = Info<curl_off_t>(pEasy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T);
    return tReport;
}

} // namespace

bool IsReused(CURL* pEasy)
{
    return !Text(pEasy, CURLINFO_PRIMARY_IP).empty() && Info<long>(pEasy, CURLINFO_NUM_CONNECTS) == 0;
}

void TellObserver(CURL* pEasy, const CResume& tResume, const WQCurlMulti::MultiMsg& tMsg)
{
    const std::shared_lock<CObserverLock> tGuard(g_tObserverLock);
    if (g_pfnObserver != nullptr)
    {
        g_pfnObserver(Report(pEasy, tResume, tMsg), g_pObserverUserData);
    }
}

void SetTransferObserver(TRANSFER_OBSERVER_t pfnObserver, void* pUserData)
{
    const std::lock_guard<CObserverLock> tGuard(g_tObserverLock);
    g_pfnObserver = pfnObserver;
    g_pObserverUserData = pUserData;
}

} // namespace WQCurl
