#include "download_item.h"

#include <cerrno>
#include <curl/curl.h>

#include "download_target.h"
#include "messages.h"
#include "text.h"

namespace
{

constexpr int RESULT_STARTED = 1;

std::string TakeFailure(int nError)
{
    const bool bAnother = nError == EBUSY || nError == ENOENT || nError == ELOOP;
    return bAnother ? "another process has removed or replaced it" : SystemText(nError);
}

} // namespace

CDownloadItem::CDownloadItem(DOWNLOAD_CONTEXT_t& tContext, DOWNLOAD_t& tDownload)
    : m_tContext(tContext), m_tDownload(tDownload), m_strName(Printable(tDownload.strFile))
{
}

void CDownloadItem::Start()
{
    if (m_tContext.tOptions.bForce)
    {
        RemoveLeftOvers(m_tDownload);
    }
    {
        const std::lock_guard<std::mutex> tGuard(m_tContext.tLock);
        m_tDownload.tEnd.eState = DOWNLOAD_RUNNING;
        m_tSpeedometer = CSpeedometer();
    }
    WQCurl::TRANSFER_SETTINGS_t tSettings = m_tContext.tSession.Settings();
    tSettings.nExpectedSize = m_tDownload.nSize;
    tSettings.strExpectedSha256 = m_tDownload.strSha256;
    const WQCurl::CTransferScope tScope(tSettings);
    const auto pfnOnEvent = [](int /*nId*/, DOWNLOAD_TYPE_e eType, int /*nPercent*/, double /*dSpeed*/, void* pItem)
    { static_cast<CDownloadItem*>(pItem)->m_OnEvent(eType); };
    CWebConnector& tEngine = m_tContext.tSession.Engine();
    m_nId = tEngine.CreateDownloadId();
    if (tEngine.StartDownload(m_nId, m_tDownload.strUrl, EnginePath(m_tDownload), pfnOnEvent, this) != RESULT_STARTED)
    {
        const std::string strRefusal = TargetRefusal(m_tDownload, m_tContext.tOptions.bForce);
        m_SetEnd(DOWNLOAD_FAILED,
                 strRefusal.empty() ? "cannot be started; the library's log (-v) says why" : strRefusal);
    }
}

void CDownloadItem::Finish()
{
    if (State() == DOWNLOAD_ARRIVED)
    {
        const std::string strFailure = ArrivalFailure(m_tDownload, m_tHeld);
        m_tDownload.tEnd.strStamp = FileStamp(m_tDownload.strFile); // now: it may change before the run ends
        m_SetEnd(strFailure.empty() ? DOWNLOAD_DONE : DOWNLOAD_FAILED, strFailure);
    }
}

void CDownloadItem::Cancel()
{
    const std::lock_guard<std::mutex> tGuard(m_tContext.tLock);
    if (m_tDownload.tEnd.eState == DOWNLOAD_WAITING)
    {
        m_tDownload.tEnd.eState = DOWNLOAD_CANCELLED;
    }
    else if (m_tDownload.tEnd.eState == DOWNLOAD_RUNNING)
    {
        m_tContext.tSession.Engine().CancelDownload(m_nId, true);
    }
}

DOWNLOAD_STATE_e CDownloadItem::State() const
{
    const std::lock_guard<std::mutex> tGuard(m_tContext.tLock);
    return m_tDownload.tEnd.eState;
}

DOWNLOAD_END_t CDownloadItem::End() const
{
    const std::lock_guard<std::mutex> tGuard(m_tContext.tLock);
    return m_tDownload.tEnd;
}

PROGRESS_t CDownloadItem::Progress()
{
    const std::lock_guard<std::mutex> tGuard(m_tContext.tLock);
    PROGRESS_t tProgress;
    tProgress.strName = m_strName;
    tProgress.nBytes = std::max(m_tHeld.Size(), 0LL);
    tProgress.nTotal = m_tDownload.nSize > 0 ? m_tDownload.nSize : m_nTotal;
    if (tProgress.nTotal > 0)
    {
        tProgress.nPercent = static_cast<int>(std::min(tProgress.nBytes * 100 / tProgress.nTotal, 100LL));
    }
    tProgress.dSpeed = m_tSpeedometer.Measure(tProgress.nBytes);
    return tProgress;
}

void CDownloadItem::m_SetEnd(DOWNLOAD_STATE_e eState, const std::string& strReason)
{
    const std::lock_guard<std::mutex> tGuard(m_tContext.tLock);
    m_tDownload.tEnd.eState = eState;
    m_tDownload.tEnd.strReason = strReason;
    if (IsFinal(eState))
    {
        m_tHeld.Close();
    }
    m_tContext.tChange.notify_one();
}

/* On the thread of the transfer. */
void CDownloadItem::m_OnEvent(DOWNLOAD_TYPE_e eType)
{
    const WQCurl::TRANSFER_REPORT_t tReport = CurrentReport();
    if (eType == DOWNLOAD_TYPE_PROGRESS)
    {
        m_OnProgress(tReport.nContentLength);
        return;
    }
    {
        const std::lock_guard<std::mutex> tGuard(m_tContext.tLock);
        m_tDownload.tEnd.tReport = tReport;
    }
    if (const int nTakeError = m_optTakeError.value_or(0); nTakeError != 0)
    {
        m_SetEnd(DOWNLOAD_FAILED, TempPath(m_tDownload) + ": " + TakeFailure(nTakeError));
    }
    else if (eType == DOWNLOAD_TYPE_SUCCESS)
    {
        m_SetEnd(DOWNLOAD_ARRIVED);
    }
    else if (eType == DOWNLOAD_TYPE_CANCEL)
    {
        m_SetEnd(DOWNLOAD_CANCELLED);
    }
    else
    {
        m_SetEnd(DOWNLOAD_FAILED, m_FailureReason(tReport));
    }
}

/* The first event precedes all data. Until the end of the callback, the engine keeps the file open at its path. */
void CDownloadItem::m_OnProgress(long long nTotal)
{
    const std::lock_guard<std::mutex> tGuard(m_tContext.tLock);
    m_nTotal = nTotal;
    if (!m_optTakeError.has_value())
    {
        m_optTakeError = m_tHeld.Take(TempPath(m_tDownload));
    }
    if (*m_optTakeError != 0)
    {
        m_tContext.tSession.Engine().CancelDownload(m_nId, true);
    }
}

std::string CDownloadItem::m_FailureReason(const WQCurl::TRANSFER_REPORT_t& tReport) const
{
    const bool bReceived = tReport.nResultCode == 0 && tReport.nHttpStatus != 0; // and could not be flushed or closed
    if (tReport.nResultCode != CURLE_WRITE_ERROR && !bReceived)
    {
        return Reason(tReport);
    }
    /* The engine does not report the cause. Its file still exists, so that another write fails in the same way. */
    const int nError = m_tHeld.WriteError();
    return nError == 0 ? "the file cannot be written" : SystemText(nError);
}
