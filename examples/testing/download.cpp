#include "download.h"

#include <utility>

namespace
{

constexpr int MOST_STARTS = 2;

/* Result codes of libcurl. */
constexpr int UNKNOWN_HOST = 6;
constexpr int REFUSED = 7;
constexpr int PARTIAL_FILE = 18;
constexpr int ERROR_STATUS = 22;
constexpr int WRITE_ERROR = 23;
constexpr int TIMED_OUT = 28;

bool IsTemporary(const WQCurl::TRANSFER_REPORT_t& tReport)
{
    switch (tReport.nResultCode)
    {
    case UNKNOWN_HOST:
    case REFUSED:
    case PARTIAL_FILE:
    case TIMED_OUT:
        return true;
    default:
        return false;
    }
}

std::string Reason(const WQCurl::TRANSFER_REPORT_t& tReport)
{
    switch (tReport.nResultCode)
    {
    case UNKNOWN_HOST:
    case REFUSED:
        return "The server cannot be reached";
    case PARTIAL_FILE:
        return "The connection was lost";
    case ERROR_STATUS:
        return "The server answers with the status " + std::to_string(tReport.nHttpStatus);
    case WRITE_ERROR:
        return "The disk is full";
    case TIMED_OUT:
        return "The server is too slow";
    case WQCurl::RESULT_UNEXPECTED:
        return "The file is damaged";
    default:
        return tReport.strErrorMsg;
    }
}

} // namespace

CDownload::CDownload(std::string strUrl, std::string strFile, std::string strSha256)
    : m_strUrl(std::move(strUrl)), m_strFile(std::move(strFile)), m_strSha256(std::move(strSha256))
{
}

CDownload::~CDownload()
{
    if (Status().nStarts > 0)
    {
        Cancel();
        Wait();
    }
}

void CDownload::Start()
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    if (!Begin())
    {
        End("The file cannot be written");
    }
}

/* The engine never calls back while it starts or cancels: the lock may be held. */
bool CDownload::Begin()
{
    WQCurl::TRANSFER_SETTINGS_t tSettings;
    tSettings.bFailOnHttpError = true;
    tSettings.strExpectedSha256 = m_strSha256;
    const WQCurl::CTransferScope tScope(tSettings);
    CWebConnector* ptEngine = CSingleton<CWebConnector>::GetInstance();
    m_nId = ptEngine->CreateDownloadId();
    ++m_tStatus.nStarts;
    return ptEngine->StartDownload(m_nId, m_strUrl, m_strFile, &OnEvent, this) == 1;
}

void CDownload::Cancel()
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    m_bCancelled = true;
    CSingleton<CWebConnector>::GetInstance()->CancelDownload(m_nId, true);
}

CDownload::STATUS_t CDownload::Status()
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    return m_tStatus;
}

CDownload::STATUS_t CDownload::Wait()
{
    std::unique_lock<std::mutex> tGuard(m_tLock);
    m_tEnded.wait(tGuard, [this] { return m_tStatus.bEnded; });
    return m_tStatus;
}

void CDownload::OnEvent(int /*nId*/, DOWNLOAD_TYPE_e eType, int nPercent, double /*dSpeed*/, void* pThis)
{
    auto& tDownload = *static_cast<CDownload*>(pThis);
    const std::lock_guard<std::mutex> tGuard(tDownload.m_tLock);
    switch (eType)
    {
    case DOWNLOAD_TYPE_PROGRESS:
        tDownload.m_tStatus.nPercent = nPercent;
        break;
    case DOWNLOAD_TYPE_SUCCESS:
        tDownload.End("");
        break;
    case DOWNLOAD_TYPE_CANCEL:
        tDownload.End("Cancelled");
        break;
    case DOWNLOAD_TYPE_FAIL:
        tDownload.EndFailed();
        break;
    }
}

/** Retries a download that has failed, or ends it. */
void CDownload::EndFailed()
{
    WQCurl::TRANSFER_REPORT_t tReport;
    if (!WQCurl::TransferReport(tReport))
    {
        End("The program ends");
    }
    else if (m_bCancelled) // too late for the engine
    {
        End("Cancelled");
    }
    else if (!IsTemporary(tReport) || m_tStatus.nStarts == MOST_STARTS || !Begin())
    {
        End(Reason(tReport));
    }
}

void CDownload::End(const std::string& strReason)
{
    m_tStatus.bEnded = true;
    m_tStatus.strReason = strReason;
    m_tEnded.notify_all();
}
