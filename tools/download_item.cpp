#include "download_item.h"

#include <algorithm>
#include <cerrno>
#include <curl/curl.h>

#include "download_target.h"
#include "messages.h"
#include "text.h"

namespace
{

constexpr int RESULT_STARTED = 1;

} // namespace

CDownloadItem::CDownloadItem(DOWNLOAD_CONTEXT_t& tContext, DOWNLOAD_t& tDownload)
    : m_tContext(tContext), m_tDownload(tDownload)
{
    m_tProgress.strName = Printable(tDownload.strFile);
}

void CDownloadItem::Start()
{
    if (m_tContext.tOptions.bForce)
    {
        RemoveLeftOvers(m_tDownload);
    }
    WQCurl::TRANSFER_SETTINGS_t tSettings = m_tContext.tSession.Settings();
    tSettings.nExpectedSize = m_tDownload.nSize;
    tSettings.strExpectedSha256 = m_tDownload.strSha256;
    const WQCurl::CTransferScope tScope(tSettings);
    const auto pfnOnEvent = [](int /*nId*/, DOWNLOAD_TYPE_e eType, int /*nPercent*/, double /*dSpeed*/, void* pItem)
    { static_cast<CDownloadItem*>(pItem)->m_OnEvent(eType); };
    CWebConnector& tEngine = m_tContext.tSession.Engine();
    m_nId = tEngine.CreateDownloadId();
    m_tDownload.eState = DOWNLOAD_RUNNING;
    m_tProgress.Update(0, m_tDownload.nSize);
    if (tEngine.StartDownload(m_nId, m_tDownload.strUrl, EnginePath(m_tDownload), pfnOnEvent, this) != RESULT_STARTED)
    {
        const std::string strRefusal = TargetRefusal(m_tDownload, m_tContext.tOptions.bForce);
        m_tDownload.strReason = strRefusal.empty() ? "cannot be started; the library's log (-v) says why" : strRefusal;
        m_optOutcome = DOWNLOAD_TYPE_FAIL;
    }
}

void CDownloadItem::Cancel()
{
    if (m_tDownload.eState == DOWNLOAD_WAITING)
    {
        m_optOutcome = DOWNLOAD_TYPE_CANCEL;
    }
    else if (m_tDownload.eState == DOWNLOAD_RUNNING)
    {
        m_tContext.tSession.Engine().CancelDownload(m_nId, true);
    }
}

bool CDownloadItem::IsUnderWay()
{
    const std::lock_guard<std::mutex> tGuard(m_tContext.tLock);
    return m_tDownload.eState == DOWNLOAD_RUNNING && !m_optOutcome.has_value();
}

bool CDownloadItem::Finish()
{
    {
        const std::lock_guard<std::mutex> tGuard(m_tContext.tLock);
        if (IsFinal(m_tDownload.eState) || !m_optOutcome.has_value())
        {
            return false;
        }
    }
    if (m_tDownload.strReason.empty())
    {
        m_tDownload.strReason = m_Failure();
    }
    m_tDownload.strStamp = FileStamp(m_tDownload.strFile); // now: it may change before the run ends
    m_tDownload.eState = !m_tDownload.strReason.empty()         ? DOWNLOAD_FAILED
                         : m_optOutcome == DOWNLOAD_TYPE_CANCEL ? DOWNLOAD_CANCELLED
                                                                : DOWNLOAD_DONE;
    m_tHeld.Close();
    return true;
}

const PROGRESS_t& CDownloadItem::Progress()
{
    const std::lock_guard<std::mutex> tGuard(m_tContext.tLock);
    m_tProgress.Update(std::max(m_tHeld.Size(), 0LL),
                       m_tDownload.nSize > 0 ? m_tDownload.nSize : m_tDownload.tReport.nContentLength);
    return m_tProgress;
}

/* On the engine's thread. The first event precedes all data. Until its end the engine keeps the file open at its path.
 */
void CDownloadItem::m_OnEvent(DOWNLOAD_TYPE_e eType)
{
    const std::lock_guard<std::mutex> tGuard(m_tContext.tLock);
    m_tDownload.tReport = CurrentReport();
    if (eType != DOWNLOAD_TYPE_PROGRESS)
    {
        m_optOutcome = eType;
        m_tContext.bArrived = true;
        m_tContext.tArrival.notify_one();
        return;
    }
    if (!m_optTakeError.has_value())
    {
        m_optTakeError = m_tHeld.Take(TempPath(m_tDownload));
    }
    if (*m_optTakeError != 0)
    {
        m_tContext.tSession.Engine().CancelDownload(m_nId, true);
    }
}

/** @return the reason why an ended transfer has failed; empty if it has not, or was cancelled */
std::string CDownloadItem::m_Failure() const
{
    if (const int nError = m_optTakeError.value_or(0); nError != 0)
    {
        const bool bAnother = nError == EBUSY || nError == ENOENT || nError == ELOOP;
        return TempPath(m_tDownload) + ": " +
               (bAnother ? "another process has removed or replaced it" : SystemText(nError));
    }
    if (m_optOutcome != DOWNLOAD_TYPE_FAIL)
    {
        return m_optOutcome == DOWNLOAD_TYPE_SUCCESS ? ArrivalFailure(m_tDownload, m_tHeld) : "";
    }
    const WQCurl::TRANSFER_REPORT_t& tReport = m_tDownload.tReport;
    const bool bReceived = tReport.nResultCode == 0 && tReport.nHttpStatus != 0; // and could not be flushed or closed
    if (tReport.nResultCode != CURLE_WRITE_ERROR && !bReceived)
    {
        return Reason(tReport);
    }
    /* The engine does not report the cause. The file is still open, so that another write fails in the same way. */
    const int nError = m_tHeld.WriteError();
    return nError == 0 ? "the file cannot be written" : SystemText(nError);
}
