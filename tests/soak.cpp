/*
 * Mixed traffic of many threads over engines that are destroyed under it, to the given URLs or to servers in this
 * process. The exit status is 1 after a fault, and if one kind of traffic has never succeeded.
 */

#include <CLI/CLI.hpp>
#include <array>
#include <filesystem>
#include <future>
#include <malloc.h>
#include <optional>
#include <random>
#include <unistd.h>

#include "loopback_server.h"
#include "test_helpers.h"
#include "veltra/veltra.h"

namespace
{

using namespace std::chrono_literals;

WQCurl::TRANSFER_SETTINGS_t g_tSettings; // of all transfers

std::mutex g_tCountLock;
std::map<std::string, long> g_mapCounts;
constexpr size_t KINDS = 6; // the entries of g_mapCounts when each kind of traffic has succeeded without a fault

void Count(const char* pszName, bool bHappened = true)
{
    const std::lock_guard<std::mutex> tGuard(g_tCountLock);
    bHappened ? void(++g_mapCounts[pszName]) : void();
}

const std::string ECHO = "/echo/";
const std::string OK = "HTTP/1.1 200 OK\r\n";
const std::string HALF = OK + "Content-Length: 100000\r\n\r\n" + std::string(50000, 'x');

struct HOSTILE_t
{
    std::string strAnswer;
    void (CConnection::*pfnEnd)() = &CConnection::Shutdown;
};
const std::map<std::string, HOSTILE_t> HOSTILE = {
    {"/cut", {HALF}},
    {"/reset", {HALF, &CConnection::Reset}},
    {"/chunked", {OK + "Transfer-Encoding: chunked\r\n\r\n4\r\ngood\r\n0\r\n\r\n"}},
    {"/redirect", {"HTTP/1.1 302 Found\r\nLocation: file:///etc/passwd\r\n\r\n"}},
    {"/loop", {"HTTP/1.1 302 Found\r\nLocation: /loop\r\n\r\n" + std::string(20000, 'x')}},
    {"/busy", {"HTTP/1.1 503 Busy\r\nRetry-After: 0\r\nContent-Length: 4\r\n\r\nbusy"}},
    {"/stall", {OK + "Content-Length: 100\r\n\r\npart", &CConnection::Stall}}};

std::string Echo(const std::string& strMethod, const std::string& strPath, const std::string& strBody)
{
    return strMethod + strPath + strBody + std::string(5000, 'e');
}

void Serve(CConnection& tConnection, const REQUEST_t& tRequest)
{
    if (const auto it = HOSTILE.find(tRequest.strPath); it != HOSTILE.end())
    {
        tConnection.Send(it->second.strAnswer);
        return (tConnection.*it->second.pfnEnd)();
    }
    const std::string strToken = "\r\nX-Name: " + tRequest.strPath.substr(tRequest.strPath.rfind('/') + 1) + "\r\n";
    Count("FAULT: foreign settings", tRequest.strHead.find(strToken) == std::string::npos);
    tConnection.Answer(Echo(tRequest.strMethod, tRequest.strPath, tRequest.strBody));
}

struct SERVERS_t
{
    CLoopbackServer tPlain{&Serve};
    CLoopbackServer tTls{&Serve, true};
};

std::atomic<long> g_nTransfers{0}; // gives each transfer a name
std::atomic<long> g_nEvents{0};    // how many final events have begun

/** A thread of the application, with one transfer at a time. A late second event falls on the next transfer. */
class CTraffic
{
public:
    CTraffic(std::mt19937::result_type nSeed, const std::string& strFolder) : m_tRandom(nSeed), m_strFolder(strFolder)
    {
    }

    void Run(const std::vector<std::string>& vecUrls, const std::atomic<bool>& bGoOn)
    {
        while (bGoOn)
        {
            const std::string strUrl = vecUrls[Random(vecUrls.size())];
            m_nSilentUntil = 0;
            strUrl.find("/stall") == std::string::npos || Random(50) == 0 ? Transfer(strUrl) : void();
            while (bGoOn && m_nOwed > 0 && (m_nSilentUntil == 0 || g_nEvents < m_nSilentUntil))
            {
                std::this_thread::sleep_for(100us);
            }
            Count("FAULT: lost events", m_nOwed.exchange(0) > 0 && m_nSilentUntil == 0);
        }
    }

private:
    size_t Random(size_t nLimit) { return m_tRandom() % nLimit; }

    void Transfer(std::string strUrl)
    {
        CWebConnector& tEngine = *CSingleton<CWebConnector>::GetInstance();
        const size_t nKind = Random(8);
        constexpr long long LIMITS[] = {0, 1, 100000, 10000000};
        Random(30) == 0 && WQCurl::SetBandwidth(LIMITS[Random(std::size(LIMITS))]);
        const bool bPost = nKind > 0 && nKind < 5 && Random(2) == 0;
        const std::string strName = std::to_string(++g_nTransfers);
        const size_t nPath = strUrl.rfind(ECHO);
        strUrl += nPath != std::string::npos ? strName : "";
        _HTTP_REQ_INFO_t tRequest{bPost ? HTTP_METHOD_POST : HTTP_METHOD_GET, strUrl, {}, {}, nullptr, this};
        tRequest.strPostData.assign(bPost ? Random(20000) : 0, 'p');
        m_strExpected =
            nPath == std::string::npos ? "" : Echo(bPost ? "POST" : "GET", strUrl.substr(nPath), tRequest.strPostData);
        m_strFile = m_strFolder + "/" + strName;
        m_nCancelAt = static_cast<int>(Random(80)) * 5;
        m_strUrl = strUrl;
        WQCurl::TRANSFER_SETTINGS_t tSettings = g_tSettings;
        tSettings.nRetries = static_cast<int>(Random(4));
        tSettings.nMostRedirects = static_cast<int>(Random(4));
        const WQCurl::CTransferScope tScope(tSettings);
        tSettings.lstHeader = {"X-Name: " + strName};
        const WQCurl::CTransferScope tInnerScope(tSettings);
        if (nKind == 0)
        {
            const bool bResult = tEngine.SyncDownloadFile(strUrl, m_strFile, 1, 1);
            Check("synchronous downloads", bResult, ReadFile(m_strFile));
            std::filesystem::remove(m_strFile + (bResult ? "" : ".bak")); // only a failed one leaves a temporary file
        }
        else if (nKind < 3)
        {
            Check("synchronous requests", tEngine.Post(&tRequest, true), tRequest.strResponse);
        }
        else if (++m_nOwed; nKind < 5)
        {
            tRequest.pfnRequestCB = [](bool bResult, std::string&, std::string& strResponse, void* pThis)
            { static_cast<CTraffic*>(pThis)->End("asynchronous requests", bResult, strResponse); };
            m_nOwed -= !tEngine.Get(&tRequest, false);
        }
        else
        {
            const int nId = tEngine.CreateDownloadId();
            m_nOwed -= tEngine.StartDownload(nId, strUrl, m_strFile, &OnDownload, this) != 1;
            for (size_t nYields = Random(1000); nYields > 0 && nKind == 6; --nYields)
            {
                std::this_thread::yield(); // the cancellation meets a short download at any moment
            }
            const bool bSilent = Random(3) == 0;
            const bool bCancelled = nKind == 6 && tEngine.CancelDownload(nId, !bSilent);
            /* A silenced event that was just about to begin has ended once a second one begins. */
            m_nSilentUntil = bCancelled && bSilent ? g_nEvents + 2 : 0;
        }
    }

    void Check(const char* pszKind, bool bResult, const std::string& strAnswer)
    {
        Count(pszKind, bResult);
        Count("FAULT: wrong answers", bResult && !m_strExpected.empty() && strAnswer != m_strExpected);
        CheckReport(bResult);
    }

    /** @param bHasReport whether there must be a report; otherwise, there may be none */
    void CheckReport(bool bHasReport) const
    {
        WQCurl::TRANSFER_REPORT_t tReport;
        const bool bReported = WQCurl::TransferReport(tReport);
        Count("FAULT: foreign reports", bReported ? tReport.strUrl != m_strUrl : bHasReport);
    }

    void End(const char* pszKind, bool bResult, const std::string& strAnswer)
    {
        ++g_nEvents;
        Check(pszKind, bResult, strAnswer);
        Count("FAULT: extra events", m_nOwed-- < 1);
    }

    static void OnDownload(int nId, DOWNLOAD_TYPE_e eType, int nPercent, double, void* pUserData)
    {
        CTraffic& tThis = *static_cast<CTraffic*>(pUserData);
        if (eType == DOWNLOAD_TYPE_PROGRESS)
        {
            tThis.CheckReport(true);
            (nPercent == tThis.m_nCancelAt) && CSingleton<CWebConnector>::GetInstance()->CancelDownload(nId, true);
            return;
        }
        const std::string strAnswer = ReadFile(tThis.m_strFile);
        const bool bWrong = std::filesystem::remove(tThis.m_strFile) != (eType == DOWNLOAD_TYPE_SUCCESS);
        Count("FAULT: wrong files", bWrong && eType != DOWNLOAD_TYPE_CANCEL);
        Count("cancelled downloads", eType == DOWNLOAD_TYPE_CANCEL);
        tThis.End("downloads", eType == DOWNLOAD_TYPE_SUCCESS, strAnswer);
    }

    std::mt19937 m_tRandom;
    const std::string m_strFolder;
    std::string m_strExpected; /**< the expected answer; empty: any */
    std::string m_strUrl;
    std::string m_strFile;       /**< the target of a download */
    int m_nCancelAt = 0;         /**< the percentage at which a download cancels itself */
    std::atomic<int> m_nOwed{0}; /**< the number of final events that are to come */
    long m_nSilentUntil = 0; /**< the value of g_nEvents from which a silenced download has no more events; else 0 */
};

/** Runs one engine after the other: for half of the remaining time, a quarter, and so on down to milliseconds. */
void RunTraffic(const std::string& strFolder, std::vector<std::string> vecUrls, std::chrono::seconds tLength)
{
    std::optional<SERVERS_t> optServers;
    if (vecUrls.empty())
    {
        const SERVERS_t& tServers = optServers.emplace();
        vecUrls.assign(8, tServers.tPlain.Url(ECHO)); // most of the traffic is good
        vecUrls.insert(vecUrls.end(), {tServers.tTls.Url(ECHO), tServers.tTls.Url("/reset"), tServers.tTls.Url("/cut"),
                                       "http://127.0.0.1:1/refused", "file:///etc/hostname"});
        for (const auto& [strPath, tHostile] : HOSTILE)
        {
            vecUrls.push_back(tServers.tPlain.Url(strPath));
        }
    }
    std::mt19937 tRandom;
    int nEngine = 0;
    const auto tEnd = std::chrono::steady_clock::now() + tLength;
    for (std::chrono::nanoseconds tLeft = tLength; tLeft > 0s; tLeft = tEnd - std::chrono::steady_clock::now())
    {
        CWebConnector tEngine;
        CSingleton<CWebConnector>::m_pObj = &tEngine;
        tEngine.Create();
        std::atomic<bool> bGoOn{true};
        std::list<std::future<void>> lstThreads; // joined by their destructors
        for (int i = 0; i < 40; ++i)
        {
            lstThreads.push_back(std::async(std::launch::async, [&, nSeed = tRandom()]
                                            { CTraffic(nSeed, strFolder).Run(vecUrls, bGoOn); }));
        }
        const auto tLast = std::chrono::steady_clock::now() + tLeft / (2 << nEngine++ % 12);
        while (std::chrono::steady_clock::now() < tLast)
        {
            WQCurl::TRANSFER_SETTINGS_t tSettings = g_tSettings;
            tSettings.nMostDownloads = static_cast<int>(tRandom() % 4) * 4;
            tSettings.nMostConnections = static_cast<int>(tRandom() % 2) * 30;
            WQCurl::SetTransferDefaults(tSettings);
            WQCurl::SetBandwidth(-1); // the traffic's threads limit it
            std::this_thread::sleep_until(std::min(tLast, std::chrono::steady_clock::now() + 50ms));
        }
        tEngine.Destroy();
        bGoOn = false;
        Count("engines");
    }
}

std::array<long, 3> Resources()
{
    const auto fnCount = [](const char* psz) { return std::distance(std::filesystem::directory_iterator(psz), {}); };
    long nPages = 0;
    malloc_trim(0);
    std::ifstream("/proc/self/statm") >> nPages >> nPages;
    return {fnCount("/proc/self/fd"), fnCount("/proc/self/task"), nPages * (sysconf(_SC_PAGESIZE) / 1024)};
}

bool Soak(const std::string& strFolder, const std::vector<std::string>& vecUrls, int nSeconds)
{
    RunTraffic(strFolder, vecUrls, std::chrono::seconds(std::min(nSeconds / 4 + 1, 20))); // opens what stays open
    const std::array<long, 3> arrBefore = Resources();
    RunTraffic(strFolder, vecUrls, std::chrono::seconds(nSeconds));
    for (int i = 0; i < 100 && Resources()[1] > arrBefore[1]; ++i)
    {
        std::this_thread::sleep_for(100ms); // the system may still list a thread that has been joined
    }
    const std::array<long, 3> arrAfter = Resources();
    Count("FAULT: descriptors left", arrAfter[0] > arrBefore[0]);
    Count("FAULT: threads left", arrAfter[1] > arrBefore[1]);
    Count("FAULT: memory left", nSeconds >= 60 && arrAfter[2] > arrBefore[2] * 5 / 4); // it settles slowly
    for (const auto& tEntry : std::filesystem::directory_iterator(strFolder))
    {
        Count("FAULT: temporary files left", tEntry.path().extension() == ".bak");
    }
    bool bGood = g_mapCounts.size() == KINDS;
    for (const auto& [strName, nCount] : g_mapCounts)
    {
        bGood = bGood && strName.rfind("FAULT", 0) != 0;
        printf("%8ld %s\n", nCount, strName.c_str());
    }
    return bGood;
}

} // namespace

int main(int nArguments, char* arrArguments[])
{
    CLI::App tApp("Soak test");
    int nSeconds = 60;
    std::string strFolder = std::filesystem::temp_directory_path();
    g_tSettings.strCaFile = TEST_CERTIFICATES "/ca.pem";
    std::vector<std::string> vecUrls;
    const auto* pServe =
        tApp.add_flag("--serve", "Only serve: print the plain and the TLS port, then answer until killed");
    tApp.add_option("--seconds", nSeconds, "Duration of the traffic");
    tApp.add_option("--folder", strFolder, "Where to make a folder for downloads");
    tApp.add_option("--cacert", g_tSettings.strCaFile, "CA certificates to trust");
    tApp.add_option("URL", vecUrls, "URLs to request; without any, servers in this process");
    CLI11_PARSE(tApp, nArguments, arrArguments);
    if (pServe->count() > 0)
    {
        const SERVERS_t tServers;
        printf("%d %d\n", tServers.tPlain.Port(), tServers.tTls.Port());
        fflush(stdout);
        return pause();
    }
    CKVRDebug::SetSink([](unsigned int, const char*, void*) {}, nullptr);
    strFolder += "/soak-XXXXXX";
    const bool bGood = mkdtemp(strFolder.data()) != nullptr && Soak(strFolder, vecUrls, nSeconds);
    std::filesystem::remove_all(strFolder);
    return bGood ? 0 : 1;
}
