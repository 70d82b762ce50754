/*
 * Mixed traffic from many threads, for as long as one likes, against a good server (nginx, run and restarted by
 * scripts/soak.sh) and a hostile one (this program with --serve). At the end the books must balance.
 */

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <malloc.h>
#include <random>
#include <unistd.h>

#include "loopback_server.h"
#include "veltra/veltra.h"

namespace
{

using std::chrono::steady_clock;

std::string Chunk(const std::string& strText)
{
    char szLength[32];
    snprintf(szLength, sizeof szLength, "%zx\r\n", strText.size());
    return szLength + strText + "\r\n";
}

/** What the hostile server does with each path. */
void Misbehave(CConnection& tConnection, const REQUEST_t& tRequest)
{
    const std::string strOk = "HTTP/1.1 200 OK\r\n";
    const std::string strPath = tRequest.strPath;
    if (strPath == "/stall")
    {
        tConnection.Send(strOk + "Content-Length: 100\r\n\r\npart");
        tConnection.Stall();
    }
    else if (strPath == "/drip")
    {
        bool bGoOn = tConnection.Send(strOk + "Content-Length: 100\r\n\r\n");
        for (int i = 0; i < 100 && bGoOn; i += 5)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            bGoOn = tConnection.Send("drip ");
        }
    }
    else if (strPath == "/redirect")
    {
        tConnection.Send("HTTP/1.1 302 Found\r\nLocation: file:///etc/passwd\r\nContent-Length: 0\r\n\r\n");
    }
    else if (strPath == "/headers")
    {
        tConnection.Send(strOk + "X-Long: " + std::string(200000, 'h') + "\r\n\r\n");
        tConnection.Shutdown();
    }
    else if (strPath == "/chunks")
    {
        tConnection.Send(strOk + "Transfer-Encoding: chunked\r\n\r\n" + Chunk("good") + "zz\r\nbad\r\n");
        tConnection.Shutdown();
    }
    else if (strPath == "/chunked")
    {
        tConnection.Send(strOk + "Transfer-Encoding: chunked\r\n\r\n" + Chunk("good") + Chunk(""));
    }
    else
    {
        tConnection.Send(strOk + "Content-Length: 100000\r\n\r\n" +
                         std::string(strPath == "/long" ? 100010 : 50000, 'x'));
        strPath == "/reset" ? tConnection.Reset() : tConnection.Shutdown();
    }
}

int ServeUntilKilled()
{
    const CLoopbackServer tPlain(&Misbehave);
    const CLoopbackServer tTls(&Misbehave, true);
    printf("%d %d\n", tPlain.Port(), tTls.Port());
    fflush(stdout);
    for (;;)
    {
        pause();
    }
}

/** What was accepted and how it ended; the books. */
struct BOOKS_t
{
    std::atomic<long> nSync{0}, nSyncFailed{0}, nAsync{0}, nAsyncEnded{0}, nAsyncFailed{0}, nDownloads{0},
        nDownloadsEnded{0}, nDownloadsFailed{0}, nCancelled{0}, nSilent{0}, nSilentEnded{0}, nSyncDownloads{0},
        nSyncDownloadsFailed{0}, nTwice{0};
} g_tBooks;

/** One asynchronous transfer, freed by its final event; kept a while to notice a second one. */
struct TRANSFER_t
{
    std::atomic<int> nEnded{0};
    int nCancelAt = -1; /**< percentage at which it cancels itself */

    void End(std::atomic<long>& nEndedCount, std::atomic<long>& nFailedCount, bool bResult)
    {
        g_tBooks.nTwice += nEnded++ > 0;
        ++nEndedCount;
        nFailedCount += !bResult;
    }

    static void OnRequest(bool bResult, std::string&, std::string&, void* pUserData)
    {
        static_cast<TRANSFER_t*>(pUserData)->End(g_tBooks.nAsyncEnded, g_tBooks.nAsyncFailed, bResult);
    }

    static void OnDownload(int nId, DOWNLOAD_TYPE_e eType, int nPercent, double, void* pUserData)
    {
        auto* ptTransfer = static_cast<TRANSFER_t*>(pUserData);
        if (eType == DOWNLOAD_TYPE_PROGRESS)
        {
            if (nPercent == ptTransfer->nCancelAt)
            {
                CSingleton<CWebConnector>::GetInstance()->CancelDownload(nId, true);
            }
            return;
        }
        g_tBooks.nCancelled += eType == DOWNLOAD_TYPE_CANCEL;
        ptTransfer->End(g_tBooks.nDownloadsEnded, g_tBooks.nDownloadsFailed, eType != DOWNLOAD_TYPE_FAIL);
    }
};

/** One thread of an application that does a bit of everything. */
class CTraffic
{
public:
    CTraffic(int nThread, const std::string& strFolder, const std::vector<std::string>& vecUrls)
        : m_tRandom(static_cast<unsigned>(nThread)), m_strFolder(strFolder + "/" + std::to_string(nThread) + "-"),
          m_vecUrls(vecUrls)
    {
    }

    void Run(steady_clock::time_point tEnd)
    {
        while (steady_clock::now() < tEnd)
        {
            if (m_lstTransfers.size() > 200)
            {
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
                m_lstTransfers.remove_if([](const TRANSFER_t& tTransfer) { return tTransfer.nEnded > 0; });
            }
            else
            {
                One();
            }
        }
    }

    long CountSilentEnded() const
    {
        return std::count_if(m_lstSilent.begin(), m_lstSilent.end(),
                             [](const TRANSFER_t& tTransfer) { return tTransfer.nEnded > 0; });
    }

private:
    int Random(int nLimit) { return std::uniform_int_distribution<int>(0, nLimit - 1)(m_tRandom); }

    void One()
    {
        _HTTP_REQ_INFO_t tRequest;
        tRequest.strUrl = m_vecUrls[static_cast<size_t>(Random(static_cast<int>(m_vecUrls.size())))];
        /* A stalled transfer holds its place for 30 seconds: few of them keep it interesting. */
        if (tRequest.strUrl.find("/stall") != std::string::npos && Random(50) != 0)
        {
            return;
        }
        tRequest.eMethod = HTTP_METHOD_GET + Random(2);
        tRequest.strPostData.assign(static_cast<size_t>(Random(20000)), 'p');
        const std::string strFile = m_strFolder + std::to_string(m_nFiles++ % 50);
        CWebConnector* ptEngine = CSingleton<CWebConnector>::GetInstance();
        switch (Random(8))
        {
        case 0:
        case 1:
            ++g_tBooks.nSync;
            g_tBooks.nSyncFailed += !ptEngine->Post(&tRequest, true);
            break;
        case 2:
        case 3:
        case 4:
            tRequest.pfnRequestCB = &TRANSFER_t::OnRequest;
            tRequest.pUserData = &m_lstTransfers.emplace_back();
            g_tBooks.nAsync += ptEngine->Get(&tRequest, false);
            break;
        case 5:
            ++g_tBooks.nSyncDownloads;
            g_tBooks.nSyncDownloadsFailed += !ptEngine->SyncDownloadFile(tRequest.strUrl, strFile + "s", 2, 1);
            break;
        default:
            Download(*ptEngine, tRequest.strUrl, strFile);
            break;
        }
    }

    void Download(CWebConnector& tEngine, const std::string& strUrl, const std::string& strFile)
    {
        TRANSFER_t& tTransfer = m_lstTransfers.emplace_back();
        const int nId = tEngine.CreateDownloadId();
        tTransfer.nCancelAt = Random(4) == 0 ? Random(20) * 5 : -1;
        if (tEngine.StartDownload(nId, strUrl, strFile, &TRANSFER_t::OnDownload, &tTransfer) != 1)
        {
            m_lstTransfers.pop_back();
            return;
        }
        ++g_tBooks.nDownloads;
        if (Random(6) == 0 && tEngine.CancelDownload(nId, false))
        {
            /* Kept: one event may still come, if its callback was being entered just then. */
            ++g_tBooks.nSilent;
            m_lstSilent.splice(m_lstSilent.end(), m_lstTransfers, std::prev(m_lstTransfers.end()));
        }
    }

    std::mt19937 m_tRandom;
    std::string m_strFolder;
    const std::vector<std::string>& m_vecUrls;
    std::list<TRANSFER_t> m_lstTransfers;
    std::list<TRANSFER_t> m_lstSilent;
    int m_nFiles = 0;
};

struct RESOURCES_t
{
    long nDescriptors = 0;
    long nThreads = 0;
    long nKilobytes = 0;
};

long CountEntries(const char* pszFolder)
{
    return std::distance(std::filesystem::directory_iterator(pszFolder), {});
}

RESOURCES_t Resources()
{
    malloc_trim(0);
    long nPages = 0;
    long nResident = 0;
    std::ifstream("/proc/self/statm") >> nPages >> nResident;
    return {CountEntries("/proc/self/fd"), CountEntries("/proc/self/task"), nResident * sysconf(_SC_PAGESIZE) / 1024};
}

/** Runs the traffic of several threads, then ends the engine, so that every transfer has ended as well. */
void RunTraffic(std::list<CTraffic>& lstTraffic, std::chrono::seconds tLength)
{
    CWebConnector tEngine;
    CSingleton<CWebConnector>::m_pObj = &tEngine;
    tEngine.Create();
    std::list<std::thread> lstThreads;
    for (CTraffic& tTraffic : lstTraffic)
    {
        lstThreads.emplace_back(&CTraffic::Run, &tTraffic, steady_clock::now() + tLength);
    }
    for (std::thread& tThread : lstThreads)
    {
        tThread.join();
    }
    tEngine.Destroy();
    CSingleton<CWebConnector>::m_pObj = nullptr;
}

std::string Show(const RESOURCES_t& tResources)
{
    return std::to_string(tResources.nDescriptors) + " descriptors, " + std::to_string(tResources.nThreads) +
           " threads, " + std::to_string(tResources.nKilobytes) + " KiB resident";
}

int Soak(const std::string& strFolder, const std::vector<std::string>& vecUrls, int nSeconds)
{
    constexpr int THREADS = 8;
    std::list<CTraffic> lstTraffic;
    for (int i = 0; i < THREADS; ++i)
    {
        lstTraffic.emplace_back(i, strFolder, vecUrls);
    }
    RunTraffic(lstTraffic, std::chrono::seconds(std::min(nSeconds, 20))); // what is opened and kept once
    const RESOURCES_t tBefore = Resources();
    RunTraffic(lstTraffic, std::chrono::seconds(nSeconds));
    const RESOURCES_t tAfter = Resources();
    for (const CTraffic& tTraffic : lstTraffic)
    {
        g_tBooks.nSilentEnded += tTraffic.CountSilentEnded();
    }
    long nLeftFiles = 0;
    for (const auto& tEntry : std::filesystem::directory_iterator(strFolder))
    {
        const std::string strName = tEntry.path().filename();
        nLeftFiles += strName.size() > 4 && strName.compare(strName.size() - 4, 4, ".bak") == 0 &&
                      strName.find('s') == std::string::npos; // failed synchronous downloads leave theirs
    }

    const BOOKS_t& tBooks = g_tBooks;
    printf("synchronous requests     %ld, failed %ld\n", tBooks.nSync.load(), tBooks.nSyncFailed.load());
    printf("asynchronous requests    %ld accepted, %ld ended, failed %ld\n", tBooks.nAsync.load(),
           tBooks.nAsyncEnded.load(), tBooks.nAsyncFailed.load());
    printf(
        "downloads                %ld accepted, %ld ended (%ld cancelled, %ld failed), %ld silenced (%ld too late)\n",
        tBooks.nDownloads.load(), tBooks.nDownloadsEnded.load(), tBooks.nCancelled.load(),
        tBooks.nDownloadsFailed.load(), tBooks.nSilent.load(), tBooks.nSilentEnded.load());
    printf("synchronous downloads    %ld, failed %ld\n", tBooks.nSyncDownloads.load(),
           tBooks.nSyncDownloadsFailed.load());
    printf("ended twice %ld, temporary files left %ld\n", tBooks.nTwice.load(), nLeftFiles);
    printf("before: %s\nafter:  %s\n", Show(tBefore).c_str(), Show(tAfter).c_str());

    const bool bBalanced = tBooks.nAsync == tBooks.nAsyncEnded && tBooks.nTwice == 0 && nLeftFiles == 0 &&
                           tBooks.nDownloads == tBooks.nDownloadsEnded + tBooks.nSilent - tBooks.nSilentEnded &&
                           tAfter.nDescriptors == tBefore.nDescriptors && tAfter.nThreads == tBefore.nThreads &&
                           tAfter.nKilobytes < tBefore.nKilobytes * 5 / 4;
    printf("%s\n", bBalanced ? "The books balance." : "THE BOOKS DO NOT BALANCE.");
    return bBalanced ? 0 : 1;
}

} // namespace

int main(int nArguments, char* arrArguments[])
{
    CLI::App tApp("Soak test");
    bool bServe = false;
    int nSeconds = 60;
    std::string strFolder;
    std::string strCaFile;
    std::vector<std::string> vecUrls;
    tApp.add_flag("--serve", bServe, "Be the hostile server: print the plain and the TLS port, then serve");
    tApp.add_option("--seconds", nSeconds, "How long to go on");
    tApp.add_option("--folder", strFolder, "Where to download to");
    tApp.add_option("--cacert", strCaFile, "The authority to trust");
    tApp.add_option("URL", vecUrls, "What to ask for");
    CLI11_PARSE(tApp, nArguments, arrArguments);
    if (bServe)
    {
        return ServeUntilKilled();
    }
    CKVRDebug::SetSink([](unsigned int, const char*, void*) {}, nullptr);
    WQCurl::SetTransferDefaults({strCaFile, {}});
    return Soak(strFolder, vecUrls, nSeconds);
}
