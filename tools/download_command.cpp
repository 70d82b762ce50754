#include "download_command.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <deque>
#include <iterator>
#include <mutex>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "progress_view.h"
#include "session.h"

namespace
{

constexpr int RESULT_STARTED = 1;
constexpr int RESULT_EXISTS = -16;
constexpr std::chrono::milliseconds SIGNAL_INTERVAL(100); /* how often a signal is looked for */

/**
 * The signals that ask the process to end, blocked so that they can be waited for: to be called before any thread is
 * started. What the caller has ignored (nohup) stays ignored.
 */
sigset_t BlockStopSignals()
{
    sigset_t tSignals;
    sigemptyset(&tSignals);
    for (const int nSignal : {SIGINT, SIGTERM, SIGHUP})
    {
        struct sigaction tAction = {};
        sigaction(nSignal, nullptr, &tAction);
        if (tAction.sa_handler != SIG_IGN)
        {
            sigaddset(&tSignals, nSignal);
        }
    }
    pthread_sigmask(SIG_BLOCK, &tSignals, nullptr);
    return tSignals;
}

/** Takes a signal that has arrived. @return 0 for none */
int TakeSignal(const sigset_t& tSignals)
{
    const timespec tNoWait = {};
    return std::max(sigtimedwait(&tSignals, nullptr, &tNoWait), 0);
}

bool Exists(const std::string& strPath)
{
    struct stat tStat = {};
    return lstat(strPath.c_str(), &tStat) == 0;
}

class CDownloadRun
{
public:
    CDownloadRun(const DOWNLOAD_OPTIONS_t& tOptions, bool bVerbose);
    int Run();

private:
    struct ITEM_t
    {
        CDownloadRun* ptRun;
        std::string strUrl;
        std::string strFile;
        std::string strTempFile;
        int nId = 0;
        DOWNLOAD_STATUS_t tStatus{}; /**< guarded by m_tLock */
        bool bMoved = true;          /**< false: the data arrived and stayed in the temporary file */
        std::string strCause{};      /**< of a failure that was known before the session's end */
    };

    void m_StartAll();
    void m_SyncAll();
    void m_Report(ITEM_t& tItem, DOWNLOAD_TYPE_e eType, int nPercent, double dSpeed);
    static void OnEvent(int nId, DOWNLOAD_TYPE_e eType, int nPercent, double dSpeed, void* pItem);
    int m_WaitForAll();
    void m_Cancel(int nSignal);
    int m_PrintFailures();

    const DOWNLOAD_OPTIONS_t m_tOptions;
    const sigset_t m_tSignals;
    CSession m_tSession;
    std::mutex m_tLock;
    std::condition_variable m_tChange; /**< some status has changed */
    std::deque<ITEM_t> m_lstItem;
    std::atomic<const ITEM_t*> m_ptSyncItem{nullptr}; /**< what the synchronous thread is downloading */
    CProgressView m_tView;
};

std::vector<std::string> FileNames(const DOWNLOAD_OPTIONS_t& tOptions)
{
    std::vector<std::string> vecName;
    for (const auto& [strUrl, strFile] : tOptions.vecUrlAndFile)
    {
        vecName.push_back(strFile);
    }
    return vecName;
}

CDownloadRun::CDownloadRun(const DOWNLOAD_OPTIONS_t& tOptions, bool bVerbose)
    : m_tOptions(tOptions), m_tSignals(BlockStopSignals()), m_tSession(bVerbose),
      m_tView(FileNames(tOptions), !bVerbose)
{
    for (const auto& [strUrl, strFile] : tOptions.vecUrlAndFile)
    {
        m_lstItem.push_back({this, strUrl, strFile, strFile + ".bak"});
    }
}

int CDownloadRun::Run()
{
    std::thread tSyncThread;
    if (m_tOptions.bSync)
    {
        tSyncThread = std::thread(&CDownloadRun::m_SyncAll, this);
    }
    else
    {
        m_StartAll();
    }
    const int nSignal = m_WaitForAll();
    if (tSyncThread.joinable())
    {
        tSyncThread.join();
    }
    m_tSession.End();
    const int nStatus = m_PrintFailures();
    return nSignal != 0 ? 128 + nSignal : nStatus;
}

void CDownloadRun::m_StartAll()
{
    CWebConnector& tEngine = m_tSession.Engine();
    for (ITEM_t& tItem : m_lstItem)
    {
        tItem.nId = tEngine.CreateDownloadId();
        const int nResult = tEngine.StartDownload(tItem.nId, tItem.strUrl, tItem.strFile, &OnEvent, &tItem);
        if (nResult == RESULT_STARTED)
        {
            continue;
        }
        tItem.strCause = m_tSession.TakeCause();
        if (nResult == RESULT_EXISTS)
        {
            tItem.strCause =
                tItem.strTempFile + " exists: another download is writing it, or one that broke off left it";
        }
        m_Report(tItem, DOWNLOAD_TYPE_FAIL, 0, 0.0);
    }
}

void CDownloadRun::m_SyncAll()
{
    for (ITEM_t& tItem : m_lstItem)
    {
        m_ptSyncItem = &tItem;
        const auto tStart = std::chrono::steady_clock::now();
        const bool bResult = m_tSession.Engine().SyncDownloadFile(
            tItem.strUrl, tItem.strFile, m_tOptions.nTimeoutSeconds, m_tOptions.nConnectTimeoutSeconds);
        const std::chrono::duration<double> tElapsed = std::chrono::steady_clock::now() - tStart;
        m_ptSyncItem = nullptr;
        if (!bResult)
        {
            tItem.strCause = m_tSession.TakeCause();
        }
        struct stat tStat = {};
        const bool bSize = bResult && stat(tItem.strFile.c_str(), &tStat) == 0;
        m_Report(tItem, bResult ? DOWNLOAD_TYPE_SUCCESS : DOWNLOAD_TYPE_FAIL, 0,
                 bSize ? static_cast<double>(tStat.st_size) / tElapsed.count() : 0.0);
    }
}

void CDownloadRun::m_Report(ITEM_t& tItem, DOWNLOAD_TYPE_e eType, int nPercent, double dSpeed)
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    /* A download is a success to the engine also when its file could not be moved to the target. */
    tItem.bMoved = eType != DOWNLOAD_TYPE_SUCCESS || !Exists(tItem.strTempFile);
    tItem.tStatus.eType = tItem.bMoved ? eType : DOWNLOAD_TYPE_FAIL;
    tItem.tStatus.nPercent = std::max(tItem.tStatus.nPercent, nPercent);
    tItem.tStatus.dSpeed = dSpeed;
    m_tChange.notify_one();
}

void CDownloadRun::OnEvent(int /*nId*/, DOWNLOAD_TYPE_e eType, int nPercent, double dSpeed, void* pItem)
{
    auto& tItem = *static_cast<ITEM_t*>(pItem);
    tItem.ptRun->m_Report(tItem, eType, nPercent, dSpeed);
}

/** @return the signal that cancelled them; 0 for none */
int CDownloadRun::m_WaitForAll()
{
    int nSignal = 0;
    bool bAllFinal = false;
    while (!bAllFinal)
    {
        std::vector<DOWNLOAD_STATUS_t> vecStatus;
        {
            std::unique_lock<std::mutex> tGuard(m_tLock);
            m_tChange.wait_for(tGuard, SIGNAL_INTERVAL);
            std::transform(m_lstItem.begin(), m_lstItem.end(), std::back_inserter(vecStatus),
                           [](const ITEM_t& tItem) { return tItem.tStatus; });
        }
        m_tView.Show(vecStatus);
        bAllFinal = std::all_of(vecStatus.begin(), vecStatus.end(),
                                [](const DOWNLOAD_STATUS_t& tStatus) { return tStatus.IsFinal(); });
        const int nNewSignal = TakeSignal(m_tSignals);
        if (nNewSignal != 0 && nSignal != 0)
        {
            _exit(128 + nSignal);
        }
        if (nNewSignal != 0 && !bAllFinal)
        {
            nSignal = nNewSignal;
            m_Cancel(nSignal);
        }
    }
    return nSignal;
}

void CDownloadRun::m_Cancel(int nSignal)
{
    if (m_tOptions.bSync)
    {
        /* Nothing stops a synchronous download but the end of the process. */
        const ITEM_t* ptItem = m_ptSyncItem;
        if (ptItem != nullptr)
        {
            static_cast<void>(remove(ptItem->strTempFile.c_str()));
        }
        _exit(128 + nSignal);
    }
    for (const ITEM_t& tItem : m_lstItem)
    {
        m_tSession.Engine().CancelDownload(tItem.nId, true);
    }
}

int CDownloadRun::m_PrintFailures()
{
    int nStatus = 0;
    for (const ITEM_t& tItem : m_lstItem)
    {
        if (!tItem.bMoved)
        {
            nStatus =
                PrintError(tItem.strFile, "the downloaded file could not be moved there from " + tItem.strTempFile);
        }
        else if (tItem.tStatus.eType == DOWNLOAD_TYPE_FAIL)
        {
            nStatus = PrintError(tItem.strFile,
                                 tItem.strCause.empty() ? m_tSession.DownloadCause(tItem.nId) : tItem.strCause);
        }
    }
    return nStatus;
}

} // namespace

int RunDownloads(const DOWNLOAD_OPTIONS_t& tOptions, bool bVerbose)
{
    return CDownloadRun(tOptions, bVerbose).Run();
}
