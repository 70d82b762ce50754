#include "download_command.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <deque>
#include <mutex>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>

#include "progress_view.h"
#include "session.h"

namespace
{

constexpr int RESULT_STARTED = 1;
constexpr int RESULT_EXISTS = -16;

/** A file descriptor, closed in the end. */
class CDescriptor
{
public:
    CDescriptor(int nDescriptor, const char* pszMaker) : m_nDescriptor(nDescriptor)
    {
        if (nDescriptor < 0)
        {
            throw std::system_error(errno, std::generic_category(), pszMaker);
        }
    }
    ~CDescriptor() { close(m_nDescriptor); }
    CDescriptor(const CDescriptor&) = delete;
    CDescriptor& operator=(const CDescriptor&) = delete;
    operator int() const { return m_nDescriptor; }

private:
    const int m_nDescriptor;
};

/**
 * Makes a descriptor report the signals that ask the process to end, unless the caller has them ignored (nohup). They
 * stay blocked: to be called before any thread is started.
 */
int CatchStopSignals()
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
    return signalfd(-1, &tSignals, SFD_CLOEXEC);
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
    bool m_Show();
    int m_WaitForAll();
    void m_Cancel(int nSignal);
    int m_PrintFailures();

    const DOWNLOAD_OPTIONS_t m_tOptions;
    const CDescriptor m_tSignals;
    const CDescriptor m_tChanges; /**< an event descriptor: some status has changed */
    CSession m_tSession;
    std::mutex m_tLock;
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
    : m_tOptions(tOptions), m_tSignals(CatchStopSignals(), "signalfd"),
      m_tChanges(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd"), m_tSession(bVerbose),
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
    {
        const std::lock_guard<std::mutex> tGuard(m_tLock);
        /* A download is a success to the engine also when its file could not be moved to the target. */
        tItem.bMoved = eType != DOWNLOAD_TYPE_SUCCESS || !Exists(tItem.strTempFile);
        tItem.tStatus.eType = tItem.bMoved ? eType : DOWNLOAD_TYPE_FAIL;
        tItem.tStatus.dSpeed = dSpeed;
        if (eType == DOWNLOAD_TYPE_PROGRESS)
        {
            tItem.tStatus.nPercent = nPercent;
        }
    }
    eventfd_write(m_tChanges, 1);
}

void CDownloadRun::OnEvent(int /*nId*/, DOWNLOAD_TYPE_e eType, int nPercent, double dSpeed, void* pItem)
{
    auto& tItem = *static_cast<ITEM_t*>(pItem);
    tItem.ptRun->m_Report(tItem, eType, nPercent, dSpeed);
}

/** @return true when all downloads have ended */
bool CDownloadRun::m_Show()
{
    std::vector<DOWNLOAD_STATUS_t> vecStatus;
    bool bAllFinal = true;
    {
        const std::lock_guard<std::mutex> tGuard(m_tLock);
        for (const ITEM_t& tItem : m_lstItem)
        {
            vecStatus.push_back(tItem.tStatus);
            bAllFinal = bAllFinal && tItem.tStatus.IsFinal();
        }
    }
    m_tView.Show(vecStatus);
    return bAllFinal;
}

/** @return the signal that cancelled them; 0 for none */
int CDownloadRun::m_WaitForAll()
{
    int nSignal = 0;
    while (!m_Show())
    {
        pollfd aPoll[] = {{m_tSignals, POLLIN, 0}, {m_tChanges, POLLIN, 0}};
        if (poll(aPoll, 2, -1) < 0)
        {
            continue;
        }
        if (aPoll[0].revents != 0)
        {
            if (nSignal != 0)
            {
                _exit(128 + nSignal);
            }
            signalfd_siginfo tSignal = {};
            nSignal = read(m_tSignals, &tSignal, sizeof tSignal) > 0 ? static_cast<int>(tSignal.ssi_signo) : SIGINT;
            m_Cancel(nSignal);
        }
        eventfd_t nChanges = 0;
        eventfd_read(m_tChanges, &nChanges);
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
            remove(ptItem->strTempFile.c_str());
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
