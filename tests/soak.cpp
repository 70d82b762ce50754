/*
 * Mixed traffic from many threads, for as long as one likes, over one engine or many, each of which is destroyed under
 * the traffic. It goes to a good server (nginx, run and restarted by scripts/soak.sh) and a hostile one (this program
 * with --serve), or without URLs to servers in this process, as in CTest. At the end the books must balance.
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

const std::string ECHO = "/echo/";

std::string Echo(const std::string& strMethod, const std::string& strPath, const std::string& strBody)
{
    return strMethod + " " + strPath + " " + strBody;
}

std::string ReadFile(const std::string& strPath)
{
    std::ifstream tFile(strPath, std::ios::binary);
    return {std::istreambuf_iterator<char>(tFile), {}};
}

/** What the hostile server does with each path; below ECHO it does what it should. */
void Misbehave(CConnection& tConnection, const REQUEST_t& tRequest)
{
    const std::string strOk = "HTTP/1.1 200 OK\r\n";
    const std::string strPath = tRequest.strPath;
    if (strPath.rfind(ECHO, 0) == 0)
    {
        tConnection.Answer(Echo(tRequest.strMethod, strPath, tRequest.strBody));
    }
    else if (strPath == "/stall")
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

struct SERVERS_t
{
    CLoopbackServer tPlain{&Misbehave};
    CLoopbackServer tTls{&Misbehave, true};

    std::vector<std::string> Urls() const
    {
        std::vector<std::string> vecUrls(8, tPlain.Url(ECHO)); // most of the traffic is good
        for (const char* pszPath :
             {"/reset", "/cut", "/long", "/drip", "/chunks", "/chunked", "/headers", "/redirect", "/stall"})
        {
            vecUrls.push_back(tPlain.Url(pszPath));
        }
        for (const char* pszPath : {ECHO.c_str(), "/reset", "/cut"})
        {
            vecUrls.push_back(tTls.Url(pszPath));
        }
        vecUrls.insert(vecUrls.end(), {"http://127.0.0.1:1/refused", "file:///etc/hostname"});
        return vecUrls;
    }
};

int ServeUntilKilled()
{
    const SERVERS_t tServers;
    printf("%d %d\n", tServers.tPlain.Port(), tServers.tTls.Port());
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
        nSyncDownloadsFailed{0}, nTwice{0}, nWrong{0}, nElsewhere{0};
} g_tBooks;

std::atomic<std::thread::id> g_tWorker; /**< what all callbacks of an engine run on */

/** Notes an answer that is not what its request is to get. */
void Check(bool bResult, const std::string& strExpected, const std::string& strAnswer)
{
    g_tBooks.nWrong += bResult && !strExpected.empty() && strAnswer != strExpected;
}

/** One asynchronous transfer, freed by its final event; kept a while to notice a second one. */
struct TRANSFER_t
{
    std::atomic<int> nEnded{0};
    int nCancelAt = -1;      /**< percentage at which it cancels itself */
    std::string strExpected; /**< the answer that it is to get; empty: any */
    std::string strFile;     /**< a download's */

    void End(std::atomic<long>& nEndedCount, std::atomic<long>& nFailedCount, bool bResult)
    {
        std::thread::id tWorker;
        g_tBooks.nElsewhere += !g_tWorker.compare_exchange_strong(tWorker, std::this_thread::get_id()) &&
                               tWorker != std::this_thread::get_id();
        ++nEndedCount;
        nFailedCount += !bResult;
        g_tBooks.nTwice += nEnded++ > 0; // the last: its owner may free it now
    }

    static void OnRequest(bool bResult, std::string&, std::string& strResponse, void* pUserData)
    {
        Check(bResult, static_cast<TRANSFER_t*>(pUserData)->strExpected, strResponse);
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
        if (eType == DOWNLOAD_TYPE_SUCCESS && !ptTransfer->strExpected.empty())
        {
            Check(true, ptTransfer->strExpected, ReadFile(ptTransfer->strFile));
        }
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

    /** Goes on while it may; bAsync with asynchronous requests alone, which come thickest. */
    void Run(const std::atomic<bool>& bGoOn, bool bAsync)
    {
        while (bGoOn)
        {
            if (m_lstTransfers.size() > (bAsync ? 10 : 200))
            {
                std::this_thread::sleep_for(std::chrono::microseconds(bAsync ? 100 : 5000));
                m_lstTransfers.remove_if([](const TRANSFER_t& tTransfer) { return tTransfer.nEnded > 0; });
            }
            else
            {
                One(bAsync ? ASYNC_REQUEST : Random(8));
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

    static constexpr int ASYNC_REQUEST = 2;

    void One(int nKind)
    {
        _HTTP_REQ_INFO_t tRequest;
        tRequest.strUrl = m_vecUrls[static_cast<size_t>(Random(static_cast<int>(m_vecUrls.size())))];
        /* A stalled transfer holds its place for 30 seconds: few of them keep it interesting. */
        if (tRequest.strUrl.find("/stall") != std::string::npos && Random(50) != 0)
        {
            return;
        }
        /* What nobody can end holds up the end of the engine's time. */
        const bool bSlow =
            tRequest.strUrl.find("/stall") != std::string::npos || tRequest.strUrl.find("/drip") != std::string::npos;
        tRequest.eMethod = HTTP_METHOD_GET + Random(2);
        tRequest.strPostData.assign(static_cast<size_t>(Random(20000)), 'p');
        std::string strExpected;
        std::string strFileExpected;
        if (const size_t nPath = tRequest.strUrl.rfind(ECHO); nPath != std::string::npos)
        {
            tRequest.strUrl += std::to_string(m_nAsked++);
            const std::string strPath = tRequest.strUrl.substr(nPath);
            strFileExpected = Echo("GET", strPath, "");
            strExpected =
                tRequest.eMethod == HTTP_METHOD_GET ? strFileExpected : Echo("POST", strPath, tRequest.strPostData);
        }
        const std::string strFile = m_strFolder + std::to_string(m_nFiles++ % 50);
        CWebConnector* ptEngine = CSingleton<CWebConnector>::GetInstance();
        bool bResult = false;
        switch (nKind)
        {
        case 0:
        case 1:
            bResult = ptEngine->Post(&tRequest, true);
            Check(bResult, strExpected, tRequest.strResponse);
            ++g_tBooks.nSync;
            g_tBooks.nSyncFailed += !bResult;
            break;
        case ASYNC_REQUEST:
        case 3:
        case 4:
            tRequest.pfnRequestCB = &TRANSFER_t::OnRequest;
            tRequest.pUserData = &m_lstTransfers.emplace_back();
            m_lstTransfers.back().strExpected = strExpected;
            bResult = ptEngine->Get(&tRequest, false);
            g_tBooks.nAsync += bResult;
            bResult ? void() : m_lstTransfers.pop_back();
            break;
        case 5:
            bResult = !bSlow && ptEngine->SyncDownloadFile(tRequest.strUrl, strFile + "s", 2, 1);
            Check(bResult, strFileExpected, bResult ? ReadFile(strFile + "s") : "");
            ++g_tBooks.nSyncDownloads;
            g_tBooks.nSyncDownloadsFailed += !bResult;
            break;
        default:
            Download(*ptEngine, tRequest.strUrl, strFile, strFileExpected);
            break;
        }
    }

    void Download(CWebConnector& tEngine, const std::string& strUrl, const std::string& strFile,
                  const std::string& strExpected)
    {
        TRANSFER_t& tTransfer = m_lstTransfers.emplace_back();
        const int nId = tEngine.CreateDownloadId();
        tTransfer.nCancelAt = Random(4) == 0 ? Random(20) * 5 : -1;
        tTransfer.strExpected = strExpected;
        tTransfer.strFile = strFile;
        if (tEngine.StartDownload(nId, strUrl, strFile, &TRANSFER_t::OnDownload, &tTransfer) != 1)
        {
            m_lstTransfers.pop_back();
            return;
        }
        ++g_tBooks.nDownloads;
        if (Random(3) == 0)
        {
            return;
        }
        for (int nSpins = Random(1000); nSpins > 0; --nSpins)
        {
            std::this_thread::yield(); // moves the cancellation through the whole life of a short download
        }
        const bool bNotify = Random(3) != 0;
        if (tEngine.CancelDownload(nId, bNotify) && !bNotify)
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
    int m_nAsked = 0;
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

/**
 * Runs the traffic of several threads over one engine after the other, and ends each under it. Of many engines three in
 * four end while the traffic has hardly begun; together the others live about as long as is asked for.
 */
void RunTraffic(std::list<CTraffic>& lstTraffic, std::chrono::milliseconds tLength, int nEngines)
{
    std::mt19937 tRandom;
    constexpr int LONGER = 4;
    constexpr long long BRIEF = 2000; // microseconds
    const long long nLongest = 2 * LONGER * std::chrono::microseconds(tLength).count() / nEngines;
    for (int i = 0; i < nEngines; ++i)
    {
        const bool bBrief = i % LONGER != 0;
        std::uniform_int_distribution<long long> tLife(0, bBrief ? BRIEF : nLongest);
        CWebConnector tEngine;
        CSingleton<CWebConnector>::m_pObj = &tEngine;
        g_tWorker = std::thread::id();
        tEngine.Create();
        std::atomic<bool> bGoOn{true};
        std::list<std::thread> lstThreads;
        for (CTraffic& tTraffic : lstTraffic)
        {
            lstThreads.emplace_back(&CTraffic::Run, &tTraffic, std::cref(bGoOn), bBrief);
        }
        std::this_thread::sleep_for(nEngines == 1 ? tLength : std::chrono::microseconds(tLife(tRandom)));
        tEngine.Destroy();
        bGoOn = false;
        for (std::thread& tThread : lstThreads)
        {
            tThread.join();
        }
        CSingleton<CWebConnector>::m_pObj = nullptr;
    }
}

std::string Show(const RESOURCES_t& tResources)
{
    return std::to_string(tResources.nDescriptors) + " descriptors, " + std::to_string(tResources.nThreads) +
           " threads, " + std::to_string(tResources.nKilobytes) + " KiB resident";
}

int Soak(const std::string& strFolder, std::vector<std::string> vecUrls, int nSeconds, int nEngines)
{
    constexpr int THREADS = 8;
    constexpr int SECONDS_TO_SETTLE = 60; // before that the memory in use says nothing
    const bool bOwnServers = vecUrls.empty();
    std::list<CTraffic> lstTraffic;
    for (int i = 0; i < THREADS; ++i)
    {
        lstTraffic.emplace_back(i, strFolder, vecUrls);
    }
    const auto fnRun = [&](int nLength)
    {
        std::unique_ptr<SERVERS_t> ptServers;
        if (bOwnServers)
        {
            ptServers = std::make_unique<SERVERS_t>();
            vecUrls = ptServers->Urls();
        }
        RunTraffic(lstTraffic, std::chrono::seconds(nLength), nEngines);
    };
    fnRun(std::min(nSeconds, 20)); // what is opened and kept once
    const RESOURCES_t tBefore = Resources();
    fnRun(nSeconds);
    RESOURCES_t tAfter = Resources();
    /* Fewer are none lost: also before, a thread that had been joined may still have shown. */
    const auto fnSettled = [&]
    { return tAfter.nThreads <= tBefore.nThreads && tAfter.nDescriptors <= tBefore.nDescriptors; };
    for (int i = 0; i < 100 && !fnSettled(); ++i)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(100)); // a thread that has been joined may still show
        tAfter = Resources();
    }
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
    printf("ended twice %ld, with a wrong answer %ld, on a wrong thread %ld, temporary files left %ld\n",
           tBooks.nTwice.load(), tBooks.nWrong.load(), tBooks.nElsewhere.load(), nLeftFiles);
    printf("before: %s\nafter:  %s\n", Show(tBefore).c_str(), Show(tAfter).c_str());

    const bool bBalanced =
        tBooks.nAsync == tBooks.nAsyncEnded && tBooks.nTwice == 0 && tBooks.nWrong == 0 && tBooks.nElsewhere == 0 &&
        nLeftFiles == 0 && tBooks.nDownloads == tBooks.nDownloadsEnded + tBooks.nSilent - tBooks.nSilentEnded &&
        fnSettled() && (nSeconds < SECONDS_TO_SETTLE || tAfter.nKilobytes < tBefore.nKilobytes * 5 / 4);
    printf("%s\n", bBalanced ? "The books balance." : "THE BOOKS DO NOT BALANCE.");
    return bBalanced ? 0 : 1;
}

} // namespace

int main(int nArguments, char* arrArguments[])
{
    CLI::App tApp("Soak test");
    bool bServe = false;
    int nSeconds = 60;
    int nEngines = 1;
    std::string strFolder;
    std::string strCaFile = TEST_CERTIFICATES "/ca.pem";
    std::vector<std::string> vecUrls;
    tApp.add_flag("--serve", bServe, "Be the hostile server: print the plain and the TLS port, then serve");
    tApp.add_option("--seconds", nSeconds, "How long to go on");
    tApp.add_option("--engines", nEngines, "How many engines follow one another in that time")
        ->check(CLI::PositiveNumber);
    tApp.add_option("--folder", strFolder, "Where to download to");
    tApp.add_option("--cacert", strCaFile, "The authority to trust");
    tApp.add_option("URL", vecUrls, "What to ask for; without, servers in this process");
    CLI11_PARSE(tApp, nArguments, arrArguments);
    if (bServe)
    {
        return ServeUntilKilled();
    }
    CKVRDebug::SetSink([](unsigned int, const char*, void*) {}, nullptr);
    WQCurl::SetTransferDefaults({strCaFile, {}});
    if (!strFolder.empty())
    {
        return Soak(strFolder, vecUrls, nSeconds, nEngines);
    }
    strFolder = (std::filesystem::temp_directory_path() / "soak-XXXXXX").string();
    const int nResult = mkdtemp(strFolder.data()) != nullptr ? Soak(strFolder, vecUrls, nSeconds, nEngines) : 1;
    std::filesystem::remove_all(strFolder);
    return nResult;
}
