#include "download_run.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <deque>
#include <unistd.h>

#include "download_item.h"
#include "messages.h"
#include "text.h"

namespace
{

constexpr std::chrono::milliseconds POLL_INTERVAL(100); /* for signals and file sizes */

volatile std::sig_atomic_t g_nSignal = 0; /* the signal that cancels the run; 0: none */

extern "C" void OnStopSignal(int nSignal)
{
    if (g_nSignal != 0)
    {
        _exit(128 + g_nSignal);
    }
    g_nSignal = nSignal;
}

/** Handles the signals that ask the process to end. One that its caller ignores (nohup) stays ignored. */
void HandleStopSignals(void (*pfnHandler)(int))
{
    for (const int nSignal : {SIGINT, SIGTERM, SIGHUP})
    {
        if (signal(nSignal, pfnHandler) == SIG_IGN)
        {
            static_cast<void>(signal(nSignal, SIG_IGN));
        }
    }
}

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
    void Run();

private:
    void m_StartOrCancel();
    void m_ShowEnd(const DOWNLOAD_t& tDownload);

    DOWNLOAD_CONTEXT_t m_tContext;
    const bool m_bPrintEnds;
    CProgressView m_tView;
    std::deque<CDownloadItem> m_lstItem;
    bool m_bCancelled = false;
};

CDownloadRun::CDownloadRun(CSession& tSession, std::vector<DOWNLOAD_t>& vecDownload, const DOWNLOAD_OPTIONS_t& tOptions)
    : m_tContext{tSession, tOptions}, m_bPrintEnds(!tOptions.bQuiet && !tOptions.bJson && !tOptions.bTable),
      m_tView(!tOptions.bQuiet && !tOptions.bJson && !tSession.Options().bVerbose)
{
    for (DOWNLOAD_t& tDownload : vecDownload)
    {
        if (!IsFinal(tDownload.eState))
        {
            m_lstItem.emplace_back(m_tContext, tDownload);
        }
    }
}

void CDownloadRun::Run()
{
    const size_t nAll = m_lstItem.size();
    for (size_t nEnded = 0; nEnded < nAll;)
    {
        {
            std::unique_lock<std::mutex> tGuard(m_tContext.tLock);
            m_tContext.tArrival.wait_for(tGuard, POLL_INTERVAL, [this] { return m_tContext.bArrived; });
            m_tContext.bArrived = false;
        }
        m_StartOrCancel();
        std::vector<PROGRESS_t> vecRunning;
        for (CDownloadItem& tItem : m_lstItem)
        {
            /* This flushes the file on this thread, so that the other transfers go on. */
            if (tItem.Finish())
            {
                ++nEnded;
                m_ShowEnd(tItem.Download());
            }
            else if (tItem.Download().eState == DOWNLOAD_RUNNING)
            {
                vecRunning.push_back(tItem.Progress());
            }
        }
        m_tView.Show(vecRunning, nEnded == nAll || nAll == 1 ? "" : Format("%zu of %zu ended", nEnded, nAll));
        if (fflush(stdout) != 0 && errno == EPIPE && nEnded < nAll && g_nSignal == 0)
        {
            g_nSignal = SIGPIPE;
        }
    }
}

void CDownloadRun::m_StartOrCancel()
{
    if (m_bCancelled)
    {
        return;
    }
    m_bCancelled = g_nSignal != 0;
    int nFree = m_bCancelled ? 0 : m_tContext.tOptions.nJobs;
    for (CDownloadItem& tItem : m_lstItem)
    {
        if (m_bCancelled)
        {
            tItem.Cancel();
        }
        else if (tItem.Download().eState == DOWNLOAD_WAITING && nFree > 0)
        {
            tItem.Start();
        }
        nFree -= tItem.IsUnderWay() ? 1 : 0;
    }
}

void CDownloadRun::m_ShowEnd(const DOWNLOAD_t& tDownload)
{
    m_tView.Erase();
    if (tDownload.eState == DOWNLOAD_FAILED)
    {
        PrintError(tDownload.strFile, tDownload.strReason);
    }
    else if (m_bPrintEnds)
    {
        printf("%s: %s\n", Printable(tDownload.strFile).c_str(),
               tDownload.eState == DOWNLOAD_DONE ? DoneText(tDownload.tReport).c_str() : "cancelled");
    }
}

} // namespace

int RunDownloads(CSession& tSession, std::vector<DOWNLOAD_t>& vecDownload, const DOWNLOAD_OPTIONS_t& tOptions)
{
    WQCurl::SetBandwidth(tOptions.nBandwidth);
    HandleStopSignals(&OnStopSignal);
    const auto pfnOnBrokenPipe = signal(SIGPIPE, SIG_IGN); // only the write fails
    CDownloadRun(tSession, vecDownload, tOptions).Run();
    static_cast<void>(signal(SIGPIPE, pfnOnBrokenPipe));
    HandleStopSignals(SIG_DFL);
    const auto itFailed = std::find_if(vecDownload.begin(), vecDownload.end(),
                                       [](const DOWNLOAD_t& tDownload) { return tDownload.eState >= DOWNLOAD_FAILED; });
    return g_nSignal != 0 ? 128 + g_nSignal : itFailed == vecDownload.end() ? 0 : ExitStatus(itFailed->tReport);
}
