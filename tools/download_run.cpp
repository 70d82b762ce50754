#include "download_run.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <deque>
#include <set>
#include <unistd.h>

#include "download_item.h"
#include "messages.h"
#include "stop_signals.h"
#include "text.h"

namespace
{

constexpr std::chrono::milliseconds POLL_INTERVAL(100); /* for signals and file sizes */

std::string DoneText(const WQCurl::TRANSFER_REPORT_t& tReport)
{
    const auto dBytes = static_cast<double>(tReport.nBytes);
    const double dSeconds = tReport.dTotal;
    return "done, " + FormatBytes(dBytes) + Format(" in %.1f s", dSeconds) +
           (dSeconds > 0.0 ? ", " + FormatBytes(dBytes / dSeconds) + "/s" : "");
}

class CDownloadRun
{
public:
    CDownloadRun(CSession& tSession, std::vector<DOWNLOAD_t>& vecDownload, const DOWNLOAD_OPTIONS_t& tOptions);
    int Run();

private:
    void m_StartMore();
    bool m_ShowAll();
    void m_ShowEnd(const CDownloadItem& tItem);
    void m_HandleSignal(int nSignal);

    DOWNLOAD_CONTEXT_t m_tContext;
    const CStopSignals m_tSignals;
    CProgressView m_tView;
    int m_nSignal = 0; /**< the signal that cancelled the run; 0: none */
    std::deque<CDownloadItem> m_lstItem;
    std::set<const CDownloadItem*> m_setShown; /**< whose end has been printed */
};

CDownloadRun::CDownloadRun(CSession& tSession, std::vector<DOWNLOAD_t>& vecDownload, const DOWNLOAD_OPTIONS_t& tOptions)
    : m_tContext{tSession, tOptions}, m_tView(tOptions.bQuiet || tOptions.bJson ? VIEW_NOTHING
                                              : tSession.Options().bVerbose     ? VIEW_LINES
                                                                                : tOptions.eView)
{
    for (DOWNLOAD_t& tDownload : vecDownload)
    {
        if (!IsFinal(tDownload.tEnd.eState))
        {
            m_lstItem.emplace_back(m_tContext, tDownload);
        }
    }
}

int CDownloadRun::Run()
{
    WQCurl::SetBandwidth(m_tContext.tOptions.nBandwidth);
    for (bool bAllFinal = m_lstItem.empty(); !bAllFinal;)
    {
        if (m_nSignal == 0)
        {
            m_StartMore();
        }
        {
            std::unique_lock<std::mutex> tGuard(m_tContext.tLock);
            m_tContext.tChange.wait_for(tGuard, POLL_INTERVAL);
        }
        /* Files are flushed on this thread, so that the other transfers go on. */
        for (CDownloadItem& tItem : m_lstItem)
        {
            tItem.Finish();
        }
        bAllFinal = m_ShowAll();
        const bool bBrokenPipe = fflush(stdout) != 0 && errno == EPIPE;
        const int nSignal = m_tSignals.Take();
        if (!bAllFinal)
        {
            m_HandleSignal(nSignal == 0 && bBrokenPipe && m_nSignal == 0 ? SIGPIPE : nSignal);
        }
    }
    return m_nSignal != 0 ? 128 + m_nSignal : 0;
}

void CDownloadRun::m_StartMore()
{
    int nFree = m_tContext.tOptions.nJobs;
    for (CDownloadItem& tItem : m_lstItem)
    {
        const DOWNLOAD_STATE_e eState = tItem.State();
        if (eState == DOWNLOAD_WAITING && nFree > 0)
        {
            tItem.Start();
        }
        nFree -= eState == DOWNLOAD_RUNNING || eState == DOWNLOAD_WAITING ? 1 : 0;
    }
}

/** @return whether all have ended */
bool CDownloadRun::m_ShowAll()
{
    std::vector<PROGRESS_t> vecRunning;
    size_t nFinal = 0;
    for (CDownloadItem& tItem : m_lstItem)
    {
        const DOWNLOAD_STATE_e eState = tItem.State();
        if (eState == DOWNLOAD_RUNNING || eState == DOWNLOAD_ARRIVED)
        {
            vecRunning.push_back(tItem.Progress());
        }
        if (IsFinal(eState) && m_setShown.insert(&tItem).second)
        {
            m_ShowEnd(tItem);
        }
        nFinal += IsFinal(eState) ? 1 : 0;
    }
    const size_t nAll = m_lstItem.size();
    m_tView.Show(vecRunning, nFinal == nAll || nAll == 1 ? "" : Format("%zu of %zu ended", nFinal, nAll));
    return nFinal == nAll;
}

void CDownloadRun::m_ShowEnd(const CDownloadItem& tItem)
{
    const DOWNLOAD_END_t tEnd = tItem.End();
    if (tEnd.eState == DOWNLOAD_FAILED)
    {
        m_tView.PrintFailure(tItem.Name(), tEnd.strReason);
    }
    else
    {
        m_tView.PrintEnd(tItem.Name(), tEnd.eState == DOWNLOAD_DONE ? DoneText(tEnd.tReport) : "cancelled");
    }
}

/** @param nSignal 0: none */
void CDownloadRun::m_HandleSignal(int nSignal)
{
    if (nSignal == 0)
    {
        return;
    }
    if (m_nSignal != 0)
    {
        _exit(128 + m_nSignal);
    }
    m_nSignal = nSignal;
    for (CDownloadItem& tItem : m_lstItem)
    {
        tItem.Cancel();
    }
}

} // namespace

int RunDownloads(CSession& tSession, std::vector<DOWNLOAD_t>& vecDownload, const DOWNLOAD_OPTIONS_t& tOptions)
{
    const int nSignalStatus = CDownloadRun(tSession, vecDownload, tOptions).Run();
    const auto itFailed =
        std::find_if(vecDownload.begin(), vecDownload.end(),
                     [](const DOWNLOAD_t& tDownload) { return tDownload.tEnd.eState >= DOWNLOAD_FAILED; });
    return nSignalStatus != 0 || itFailed == vecDownload.end() ? nSignalStatus : ExitStatus(itFailed->tEnd.tReport);
}
