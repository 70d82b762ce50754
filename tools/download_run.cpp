#include "download_run.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <curl/curl.h>
#include <deque>
#include <mutex>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <tuple>
#include <unistd.h>

#include "download_target.h"
#include "stop_signals.h"
#include "text.h"

namespace
{

typedef std::chrono::steady_clock Clock;

constexpr int RESULT_STARTED = 1;
constexpr std::chrono::milliseconds LOOK_INTERVAL(100); /* how often signals and sizes are looked at */

/** The speed of the last moments. */
class CSpeedometer
{
public:
    double Measure(long long nBytes)
    {
        const auto tNow = Clock::now();
        const std::chrono::duration<double> tPassed = tNow - m_tLast;
        if (tPassed.count() >= LEAST_SECONDS)
        {
            const double dSpeed = static_cast<double>(std::max(nBytes - m_nLast, 0LL)) / tPassed.count();
            m_dSpeed = m_dSpeed > 0.0 ? m_dSpeed + WEIGHT * (dSpeed - m_dSpeed) : dSpeed;
            m_tLast = tNow;
            m_nLast = nBytes;
        }
        return m_dSpeed;
    }

private:
    static constexpr double LEAST_SECONDS = 0.5;
    static constexpr double WEIGHT = 0.3; /* of the newest measurement */

    Clock::time_point m_tLast = Clock::now();
    long long m_nLast = 0;
    double m_dSpeed = 0.0;
};

struct ITEM_t
{
    class CDownloadRun* ptRun = nullptr;
    DOWNLOAD_t tDownload;
    std::string strName; /**< printable */
    int nId = 0;
    CHeldFile tHeld;    /**< while it runs */
    int nTakeError = 0; /**< errno of tHeld.Take(); 0: none */
    CSpeedometer tSpeedometer{};
    bool bShown = false; /**< its end has been */

    /* Guarded by m_tLock. */
    DOWNLOAD_END_t tEnd{};
    int nPercent = -1;
    long long nReckonedTotal = 0;
};

bool IsFinal(DOWNLOAD_STATE_e eState)
{
    return eState >= DOWNLOAD_DONE;
}

std::string TakeFailure(int nError)
{
    const bool bAnother = nError == EBUSY || nError == ENOENT || nError == ELOOP;
    return bAnother ? "another process has removed or replaced it" : SystemText(nError);
}

/** The engine does not tell why a write failed. Its file is still there, so that another write fails alike. */
std::string WriteFailure(const CHeldFile& tHeld)
{
    const int nError = tHeld.WriteError();
    return nError == 0 ? "the file cannot be written" : SystemText(nError);
}

/** Adds all names of a download, told apart by their folders' identity. @return false when one is there already */
bool AddNames(const DOWNLOAD_t& tDownload, std::set<std::tuple<dev_t, ino_t, std::string>>& setName)
{
    struct stat tFolder = {};
    std::vector<std::string> vecPath = SidePaths(tDownload);
    vecPath.push_back(tDownload.strFile);
    bool bNew = true;
    static_cast<void>(stat(FolderOf(tDownload.strFile).c_str(), &tFolder));
    for (const std::string& strPath : vecPath)
    {
        bNew = setName.emplace(tFolder.st_dev, tFolder.st_ino, strPath.substr(strPath.rfind('/') + 1)).second && bNew;
    }
    return bNew;
}

class CDownloadRun
{
public:
    CDownloadRun(CSession& tSession, const std::vector<DOWNLOAD_t>& vecDownload, const DOWNLOAD_OPTIONS_t& tOptions);
    int Run();
    std::vector<DOWNLOAD_END_t> Ends() const;

private:
    void m_WaitForAll();
    void m_StartMore();
    void m_Start(ITEM_t& tItem);
    bool m_Begin(ITEM_t& tItem);
    void m_SyncAll();
    void m_Sync(ITEM_t& tItem);
    void m_SetEnd(ITEM_t& tItem, DOWNLOAD_STATE_e eState, const std::string& strReason = "");
    void m_OnEvent(ITEM_t& tItem, DOWNLOAD_TYPE_e eType, int nPercent);
    void m_CheckArrived();
    bool m_ShowAll();
    void m_ShowEnd(ITEM_t& tItem);
    PROGRESS_t m_Progress(ITEM_t& tItem);
    void m_HeedSignals(int nNewSignal);
    void m_Cancel();
    size_t m_Count(DOWNLOAD_STATE_e eState);

    CSession& m_tSession;
    const DOWNLOAD_OPTIONS_t m_tOptions;
    const CStopSignals m_tSignals;
    CProgressView m_tView;
    int m_nSignal = 0; /**< that cancelled them */
    std::mutex m_tLock;
    std::condition_variable m_tChange;
    std::deque<ITEM_t> m_lstItem;
    std::deque<ITEM_t>::iterator m_itNext; /**< the first that has not been started */
};

CDownloadRun::CDownloadRun(CSession& tSession, const std::vector<DOWNLOAD_t>& vecDownload,
                           const DOWNLOAD_OPTIONS_t& tOptions)
    : m_tSession(tSession), m_tOptions(tOptions), m_tView(tOptions.eView)
{
    for (const DOWNLOAD_t& tDownload : vecDownload)
    {
        ITEM_t& tItem = m_lstItem.emplace_back();
        tItem.ptRun = this;
        tItem.tDownload = tDownload;
        tItem.strName = Printable(tDownload.strFile);
    }
    m_itNext = m_lstItem.begin();
}

int CDownloadRun::Run()
{
    if (m_tOptions.bSync)
    {
        std::thread tSyncThread(&CDownloadRun::m_SyncAll, this);
        m_WaitForAll();
        tSyncThread.join();
    }
    else
    {
        m_WaitForAll();
    }
    const bool bAllDone = m_Count(DOWNLOAD_DONE) == m_lstItem.size();
    return m_nSignal != 0 ? 128 + m_nSignal : static_cast<int>(!bAllDone);
}

std::vector<DOWNLOAD_END_t> CDownloadRun::Ends() const
{
    std::vector<DOWNLOAD_END_t> vecEnd;
    for (const ITEM_t& tItem : m_lstItem)
    {
        vecEnd.push_back(tItem.tEnd);
    }
    return vecEnd;
}

void CDownloadRun::m_WaitForAll()
{
    for (bool bAllFinal = m_lstItem.empty(); !bAllFinal;)
    {
        if (!m_tOptions.bSync && m_nSignal == 0)
        {
            m_StartMore();
        }
        {
            std::unique_lock<std::mutex> tGuard(m_tLock);
            m_tChange.wait_for(tGuard, LOOK_INTERVAL);
        }
        m_CheckArrived();
        bAllFinal = m_ShowAll();
        const bool bBrokenPipe = fflush(stdout) != 0 && errno == EPIPE;
        const int nNewSignal = m_tSignals.Take();
        if (!bAllFinal)
        {
            m_HeedSignals(nNewSignal == 0 && bBrokenPipe && m_nSignal == 0 ? SIGPIPE : nNewSignal);
        }
    }
}

void CDownloadRun::m_StartMore()
{
    auto nFree = static_cast<size_t>(m_tOptions.nJobs) - m_Count(DOWNLOAD_RUNNING);
    for (; nFree > 0 && m_itNext != m_lstItem.end(); --nFree, ++m_itNext)
    {
        m_Start(*m_itNext);
    }
}

void CDownloadRun::m_Start(ITEM_t& tItem)
{
    const auto pfnOnEvent = [](int /*nId*/, DOWNLOAD_TYPE_e eType, int nPercent, double /*dSpeed*/, void* pItem)
    {
        auto& tEventItem = *static_cast<ITEM_t*>(pItem);
        tEventItem.ptRun->m_OnEvent(tEventItem, eType, nPercent);
    };
    m_Begin(tItem);
    CWebConnector& tEngine = m_tSession.Engine();
    tItem.nId = tEngine.CreateDownloadId();
    const auto tNoEnd = m_tSession.HoldEnds();
    if (tEngine.StartDownload(tItem.nId, tItem.tDownload.strUrl, EnginePath(tItem.tDownload), pfnOnEvent, &tItem) !=
        RESULT_STARTED)
    {
        m_SetEnd(tItem, DOWNLOAD_FAILED, StartFailure(tItem.tDownload, m_tOptions.bForce));
        return;
    }
    tItem.nTakeError = tItem.tHeld.Take(TempPath(tItem.tDownload));
    if (tItem.nTakeError != 0)
    {
        tEngine.CancelDownload(tItem.nId, true);
    }
}

/** @return false for an item that has been cancelled */
bool CDownloadRun::m_Begin(ITEM_t& tItem)
{
    if (m_tOptions.bForce)
    {
        RemoveLeftOvers(tItem.tDownload);
    }
    tItem.tSpeedometer = CSpeedometer();
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    const bool bWaiting = tItem.tEnd.eState == DOWNLOAD_WAITING;
    tItem.tEnd.eState = bWaiting ? DOWNLOAD_RUNNING : tItem.tEnd.eState;
    return bWaiting;
}

void CDownloadRun::m_SyncAll()
{
    for (ITEM_t& tItem : m_lstItem)
    {
        if (m_Begin(tItem))
        {
            m_Sync(tItem);
        }
    }
}

void CDownloadRun::m_Sync(ITEM_t& tItem)
{
    std::unique_lock<std::mutex> tGuard(m_tLock);
    const bool bCreated = tItem.tHeld.Create(TempPath(tItem.tDownload)) == 0;
    tGuard.unlock();
    if (!bCreated)
    {
        m_SetEnd(tItem, DOWNLOAD_FAILED, StartFailure(tItem.tDownload, m_tOptions.bForce));
        return;
    }
    const bool bWhole =
        m_tSession.Engine().SyncDownloadFile(tItem.tDownload.strUrl, EnginePath(tItem.tDownload),
                                             m_tOptions.nTimeoutSeconds, m_tOptions.nConnectTimeoutSeconds);
    if (!bWhole)
    {
        RemoveHeld(tItem.tDownload, tItem.tHeld);
    }
    m_OnEvent(tItem, bWhole ? DOWNLOAD_TYPE_SUCCESS : DOWNLOAD_TYPE_FAIL, 0);
}

void CDownloadRun::m_SetEnd(ITEM_t& tItem, DOWNLOAD_STATE_e eState, const std::string& strReason)
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    tItem.tEnd.eState = eState;
    tItem.tEnd.strReason = strReason;
    if (IsFinal(eState))
    {
        tItem.tHeld.Close();
    }
    m_tChange.notify_one();
}

/* On the thread of the transfer. */
void CDownloadRun::m_OnEvent(ITEM_t& tItem, DOWNLOAD_TYPE_e eType, int nPercent)
{
    if (eType == DOWNLOAD_TYPE_PROGRESS)
    {
        const long long nBytes = FileSize(TempPath(tItem.tDownload));
        const std::lock_guard<std::mutex> tGuard(m_tLock);
        tItem.nPercent = nPercent > 0 ? nPercent : tItem.nPercent;
        tItem.nReckonedTotal = nPercent > 0 ? nBytes * 100 / nPercent : 0;
        return;
    }
    const TRANSFER_END_t tTransferEnd = m_tSession.TakeEnd();
    {
        const std::lock_guard<std::mutex> tGuard(m_tLock);
        tItem.tEnd.tReport = tTransferEnd.value_or(WQCurl::TRANSFER_REPORT_t());
    }
    if (tItem.nTakeError != 0)
    {
        m_SetEnd(tItem, DOWNLOAD_FAILED, TempPath(tItem.tDownload) + ": " + TakeFailure(tItem.nTakeError));
    }
    else if (eType == DOWNLOAD_TYPE_SUCCESS)
    {
        m_SetEnd(tItem, DOWNLOAD_ARRIVED);
    }
    else if (eType == DOWNLOAD_TYPE_CANCEL)
    {
        m_SetEnd(tItem, DOWNLOAD_CANCELLED);
    }
    else
    {
        const bool bUnwritten = tItem.tEnd.tReport.nResultCode == CURLE_WRITE_ERROR;
        m_SetEnd(tItem, DOWNLOAD_FAILED, bUnwritten ? WriteFailure(tItem.tHeld) : Reason(tTransferEnd));
    }
}

/* On this thread, so that the others' transfers go on meanwhile. */
void CDownloadRun::m_CheckArrived()
{
    for (ITEM_t& tItem : m_lstItem)
    {
        std::unique_lock<std::mutex> tGuard(m_tLock);
        if (tItem.tEnd.eState != DOWNLOAD_ARRIVED)
        {
            continue;
        }
        tGuard.unlock();
        const std::string strFailure = CheckAndMove(tItem.tDownload, tItem.tHeld, tItem.tEnd.tReport.nBytes);
        m_SetEnd(tItem, strFailure.empty() ? DOWNLOAD_DONE : DOWNLOAD_FAILED, strFailure);
    }
}

/** @return whether all have ended */
bool CDownloadRun::m_ShowAll()
{
    std::vector<PROGRESS_t> vecRunning;
    size_t nFinal = 0;
    for (ITEM_t& tItem : m_lstItem)
    {
        std::unique_lock<std::mutex> tGuard(m_tLock);
        const DOWNLOAD_STATE_e eState = tItem.tEnd.eState;
        if (eState == DOWNLOAD_RUNNING || eState == DOWNLOAD_ARRIVED)
        {
            vecRunning.push_back(m_Progress(tItem));
        }
        nFinal += IsFinal(eState) ? 1 : 0;
        tGuard.unlock();
        if (IsFinal(eState) && !tItem.bShown)
        {
            m_ShowEnd(tItem);
        }
    }
    const bool bAllFinal = nFinal == m_lstItem.size();
    const size_t nAll = m_lstItem.size();
    m_tView.Show(vecRunning, bAllFinal || nAll == 1 ? "" : Format("%zu of %zu ended", nFinal, nAll));
    return bAllFinal;
}

void CDownloadRun::m_ShowEnd(ITEM_t& tItem)
{
    tItem.bShown = true;
    const DOWNLOAD_END_t& tEnd = tItem.tEnd;
    if (tEnd.eState == DOWNLOAD_FAILED)
    {
        m_tView.PrintFailure(tItem.strName, tEnd.strReason);
    }
    else if (tEnd.eState == DOWNLOAD_CANCELLED)
    {
        m_tView.PrintEnd(tItem.strName, "cancelled");
    }
    else
    {
        const auto dBytes = static_cast<double>(tEnd.tReport.nBytes);
        const double dSeconds = tEnd.tReport.dTotal;
        m_tView.PrintEnd(tItem.strName, "done, " + FormatBytes(dBytes) + Format(" in %.1f s", dSeconds) +
                                            (dSeconds > 0.0 ? ", " + FormatBytes(dBytes / dSeconds) + "/s" : ""));
    }
}

PROGRESS_t CDownloadRun::m_Progress(ITEM_t& tItem)
{
    PROGRESS_t tProgress;
    tProgress.strName = tItem.strName;
    const long long nTempSize = FileSize(TempPath(tItem.tDownload));
    tProgress.nBytes = std::max(nTempSize >= 0 ? nTempSize : FileSize(EnginePath(tItem.tDownload)), 0LL);
    tProgress.bTotalGuess = tItem.tDownload.nSize <= 0;
    tProgress.nTotal = tProgress.bTotalGuess ? tItem.nReckonedTotal : tItem.tDownload.nSize;
    tProgress.nPercent = tItem.nPercent;
    if (tProgress.nTotal > 0)
    {
        tProgress.nPercent = static_cast<int>(std::min(tProgress.nBytes * 100 / tProgress.nTotal, 100LL));
    }
    tProgress.dSpeed = tItem.tSpeedometer.Measure(tProgress.nBytes);
    return tProgress;
}

void CDownloadRun::m_HeedSignals(int nNewSignal)
{
    if (nNewSignal != 0 && m_nSignal != 0)
    {
        _exit(128 + m_nSignal);
    }
    if (nNewSignal != 0)
    {
        m_nSignal = nNewSignal;
        m_Cancel();
    }
}

void CDownloadRun::m_Cancel()
{
    for (ITEM_t& tItem : m_lstItem)
    {
        const std::unique_lock<std::mutex> tGuard(m_tLock);
        const DOWNLOAD_STATE_e eState = tItem.tEnd.eState;
        if (m_tOptions.bSync && eState == DOWNLOAD_RUNNING)
        {
            /* Nothing stops a synchronous download but the end of the process. */
            RemoveHeld(tItem.tDownload, tItem.tHeld);
            _exit(128 + m_nSignal);
        }
        if (eState == DOWNLOAD_WAITING)
        {
            tItem.tEnd.eState = DOWNLOAD_CANCELLED;
        }
        else if (eState == DOWNLOAD_RUNNING)
        {
            m_tSession.Engine().CancelDownload(tItem.nId, true);
        }
    }
}

size_t CDownloadRun::m_Count(DOWNLOAD_STATE_e eState)
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    return static_cast<size_t>(std::count_if(m_lstItem.begin(), m_lstItem.end(),
                                             [eState](const ITEM_t& tItem) { return tItem.tEnd.eState == eState; }));
}

} // namespace

bool CheckTargets(const std::vector<DOWNLOAD_t>& vecDownload, bool bForce)
{
    bool bAll = true;
    std::set<std::tuple<dev_t, ino_t, std::string>> setName;
    for (const DOWNLOAD_t& tDownload : vecDownload)
    {
        std::string strRefusal = TargetRefusal(tDownload, bForce);
        if (strRefusal.empty() && !AddNames(tDownload, setName))
        {
            strRefusal = "is named twice, counting the names of temporary files";
        }
        if (!strRefusal.empty())
        {
            PrintError(tDownload.strFile, strRefusal);
            bAll = false;
        }
    }
    return bAll;
}

int RunDownloads(CSession& tSession, const std::vector<DOWNLOAD_t>& vecDownload, const DOWNLOAD_OPTIONS_t& tOptions,
                 std::vector<DOWNLOAD_END_t>& vecEnd)
{
    CDownloadRun tRun(tSession, vecDownload, tOptions);
    const int nStatus = tRun.Run();
    vecEnd = tRun.Ends();
    return nStatus;
}

const char* EndWord(const DOWNLOAD_END_t& tEnd)
{
    switch (tEnd.eState)
    {
    case DOWNLOAD_DONE:
        return "done";
    case DOWNLOAD_CANCELLED:
        return "cancelled";
    default:
        return "failed";
    }
}
