#pragma once

#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <optional>
#include <signal.h>
#include <sys/resource.h>
#include <thread>
#include <vector>

#include "calls.h"
#include "loopback_server.h"
#include "test_helpers.h"
#include "veltra/veltra.h"

using namespace std::chrono_literals;

/** A million bytes without repetitions. */
inline const std::string BODY = []
{
    std::string strBody;
    for (int i = 0; strBody.size() < 1000000; ++i)
    {
        strBody += std::to_string(i) + " ";
    }
    return strBody.substr(0, 1000000);
}();

inline std::string Repeat(const std::string& strPart, size_t nTimes)
{
    std::string strAll;
    for (size_t i = 0; i < nTimes; ++i)
    {
        strAll += strPart;
    }
    return strAll;
}

inline double SecondsOf(const std::function<void()>& fnOperation)
{
    const auto tStart = std::chrono::steady_clock::now();
    fnOperation();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - tStart).count();
}

/** Polls a condition that no gate announces. @return false if it does not hold within 30 s */
inline bool WaitUntil(const std::function<bool()>& fnIsTrue)
{
    for (int i = 0; i < 3000 && !fnIsTrue(); ++i)
    {
        std::this_thread::sleep_for(10ms);
    }
    return fnIsTrue();
}

/** Limits the size of files; stands for a full disk. */
inline void LimitFiles(rlim_t nBytes)
{
    const rlimit tLimit{nBytes, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &tLimit), 0);
}

inline bool IsBlocked(int nSignal)
{
    sigset_t tBlocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &tBlocked);
    return sigismember(&tBlocked, nSignal) == 1;
}

inline _HTTP_REQ_INFO_t GetRequest(const std::string& strUrl)
{
    return {HTTP_METHOD_GET, strUrl};
}

/** Returns the report of the transfer of this thread; with 0 attempts if there is none. */
inline WQCurl::TRANSFER_REPORT_t Report()
{
    WQCurl::TRANSFER_REPORT_t tReport;
    tReport.nAttempts = 0;
    WQCurl::TransferReport(tReport);
    return tReport;
}

/** Records the events of one asynchronous request or download. */
struct OUTCOME_t
{
    /** Fails the test if the last event has not come, and ends the engine, which would use this record later. */
    ~OUTCOME_t()
    {
        if (ptEngine != nullptr && tEnded.Count() == 0)
        {
            ADD_FAILURE() << (nId != 0 ? "download " + std::to_string(nId) : "a request") << " has not ended";
            ptEngine.load()->Destroy();
        }
    }

    static void OnRequest(bool bResult, std::string& strErrorMsg, std::string& strResponse, void* pUserData)
    {
        auto* ptOutcome = static_cast<OUTCOME_t*>(pUserData);
        ptOutcome->bResult = bResult;
        ptOutcome->strError = strErrorMsg;
        ptOutcome->strResponse = strResponse;
        ptOutcome->tReport = Report();
        ptOutcome->fnOnEvent();
        ptOutcome->tEnded.Open();
    }

    static void OnDownload(int /*nId*/, DOWNLOAD_TYPE_e eType, int nPercent, double dSpeed, void* pUserData)
    {
        auto* ptOutcome = static_cast<OUTCOME_t*>(pUserData);
        ptOutcome->eType = eType;
        ptOutcome->dSpeed = dSpeed;
        ptOutcome->tReport = Report();
        ptOutcome->fnOnEvent();
        if (eType == DOWNLOAD_TYPE_PROGRESS)
        {
            ptOutcome->vecPercent.push_back(nPercent);
        }
        (eType == DOWNLOAD_TYPE_PROGRESS ? ptOutcome->tProgress : ptOutcome->tEnded).Open();
    }

    bool Start(CWebConnector& tEngine, _HTTP_REQ_INFO_t tRequest)
    {
        tRequest.pfnRequestCB = &OnRequest;
        tRequest.pUserData = this;
        const bool bStarted = tEngine.Get(&tRequest, false);
        ptEngine = bStarted ? &tEngine : nullptr;
        return bStarted;
    }

    int Download(CWebConnector& tEngine, const std::string& strUrl, const std::string& strPath, int nOldId = 0)
    {
        nId = nOldId != 0 ? nOldId : tEngine.CreateDownloadId();
        const int nStarted = tEngine.StartDownload(nId, strUrl, strPath, &OnDownload, this);
        ptEngine = nStarted == 1 ? &tEngine : nullptr;
        return nStarted;
    }

    std::atomic<CWebConnector*> ptEngine{nullptr}; /**< owes the last event; null if none will come */
    std::function<void()> fnOnEvent = [] {};
    CGate tEnded;
    WQCurl::TRANSFER_REPORT_t tReport; /**< the last event's, as eType and dSpeed */
    bool bResult = false;
    std::string strError;
    std::string strResponse;

    CGate tProgress;
    int nId = 0;
    std::vector<int> vecPercent;
    DOWNLOAD_TYPE_e eType{};
    double dSpeed = 0.0;
};

/** Gives each test a running engine, a server and a folder, and checks that it leaves no descriptor open. */
class CEngineTest : public testing::Test
{
protected:
    CEngineTest()
    {
        CKVRDebug::SetSink([](unsigned int, const char*, void*) {}, nullptr);
        m_tSettings.strCaFile = TEST_CERTIFICATES "/ca.pem";
        EXPECT_NE(mkdtemp(m_strFolder.data()), nullptr);
        /* libcurl and GLib open descriptors with the first request, and keep them. */
        m_ptEngine->Create();
        Get("");
        m_ptEngine.reset();
        m_nDescriptors = CountDescriptors();
        m_tServer.emplace(m_fnServe);
        m_ptEngine = std::make_unique<CWebConnector>();
        m_ptEngine->Create();
    }

    ~CEngineTest() override
    {
        m_ptEngine.reset();
        m_tServer.reset();
        EXPECT_EQ(CountDescriptors(), m_nDescriptors);
        g_tCalls.bHurry = false;
        g_tCalls.nSecondsAsleep = 0;
        LimitFiles(RLIM_INFINITY);
        std::filesystem::remove_all(m_strFolder);
    }

    static std::ptrdiff_t CountDescriptors()
    {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    }

    static std::vector<int> SocketsTo(const CLoopbackServer& tServer)
    {
        std::vector<int> vecSockets;
        for (const auto& tEntry : std::filesystem::directory_iterator("/proc/self/fd"))
        {
            sockaddr_in tPeer{};
            socklen_t nSize = sizeof tPeer;
            const int nSocket = std::stoi(tEntry.path().filename());
            if (getpeername(nSocket, reinterpret_cast<sockaddr*>(&tPeer), &nSize) == 0 &&
                ntohs(tPeer.sin_port) == tServer.Port())
            {
                vecSockets.push_back(nSocket);
            }
        }
        return vecSockets;
    }

    std::string Url(const std::string& strPath = "/") const { return m_tServer->Url(strPath); }
    /** Returns a URL whose TLS handshake is never answered. */
    std::string SilentTlsUrl() const { return "https" + Url().substr(4); }
    std::string Path(const std::string& strName) const { return m_strFolder + "/" + strName; }

    /** Makes a GET with the settings as they are then. @return the answer, or "failed: " and the reason */
    std::string Answer(const std::string& strUrl)
    {
        EXPECT_TRUE(WQCurl::SetTransferDefaults(m_tSettings));
        _HTTP_REQ_INFO_t tRequest = GetRequest(strUrl);
        const bool bResult = m_ptEngine->Get(&tRequest, true);
        m_tReport = Report();
        return bResult ? tRequest.strResponse : "failed: " + tRequest.strErrorReason;
    }

    bool Get(const std::string& strUrl) { return Answer(strUrl).rfind("failed: ", 0) != 0; }

    bool Start(OUTCOME_t& tRequest, const std::string& strUrl)
    {
        EXPECT_TRUE(WQCurl::SetTransferDefaults(m_tSettings));
        return tRequest.Start(*m_ptEngine, GetRequest(strUrl));
    }

    int Start(OUTCOME_t& tDownload, const std::string& strUrl, const std::string& strName, int nOldId = 0)
    {
        EXPECT_TRUE(WQCurl::SetTransferDefaults(m_tSettings));
        return tDownload.Download(*m_ptEngine, strUrl, Path(strName), nOldId);
    }

    /** Downloads on the worker. @return the last event */
    DOWNLOAD_TYPE_e Download(OUTCOME_t& tDownload, const std::string& strUrl, const std::string& strName = "file")
    {
        EXPECT_EQ(Start(tDownload, strUrl, strName), 1);
        EXPECT_TRUE(tDownload.tEnded.Wait());
        m_tReport = tDownload.tReport;
        return tDownload.eType;
    }

    DOWNLOAD_TYPE_e Download(const std::string& strUrl)
    {
        OUTCOME_t tDownload;
        return Download(tDownload, strUrl);
    }

    /** Makes GATED requests at once, whose connections stay open. @return how many have used a connection again */
    std::ptrdiff_t Burst(const std::string& strServerUrl, int nRequests)
    {
        std::vector<OUTCOME_t> vecOutcomes(static_cast<size_t>(nRequests));
        const int nArrived = m_tArrived.Count();
        for (OUTCOME_t& tOutcome : vecOutcomes)
        {
            EXPECT_TRUE(Start(tOutcome, strServerUrl + GATED));
        }
        EXPECT_TRUE(m_tArrived.Wait(nArrived + nRequests));
        m_tGoOn.Open();
        for (OUTCOME_t& tOutcome : vecOutcomes)
        {
            EXPECT_TRUE(tOutcome.tEnded.Wait() && tOutcome.bResult);
        }
        m_tGoOn.Open(-1);
        return std::count_if(vecOutcomes.begin(), vecOutcomes.end(),
                             [](const OUTCOME_t& t) { return t.tReport.bReused; });
    }

    /** Cancels a download. @return the last event */
    DOWNLOAD_TYPE_e Cancel(OUTCOME_t& tDownload)
    {
        EXPECT_TRUE(m_ptEngine->CancelDownload(tDownload.nId, true));
        EXPECT_TRUE(tDownload.tEnded.Wait());
        return tDownload.eType;
    }

    bool SyncDownload(const std::string& strUrl, const std::string& strName, int nTotal = 0, int nConnect = 0)
    {
        EXPECT_TRUE(WQCurl::SetTransferDefaults(m_tSettings));
        const bool bResult = m_ptEngine->SyncDownloadFile(strUrl, Path(strName), nTotal, nConnect);
        m_tReport = Report();
        return bResult;
    }

    /* Paths of the server. It answers "/4" with so many bytes, "/4/cut" and "/4/reset" with half, and echoes others. */
    const std::string RAW = "/raw";                  /**< sends m_strRaw and closes the connection */
    const std::string STALL = "/stall";              /**< sends nothing */
    const std::string GATED = "/gated";              /**< echoes once m_tGoOn is open */
    const std::string HEAD = "/head";                /**< answers with the request's head */
    const std::string ENDLESS = "/1125899906842624"; /**< repeats the body */

    WQCurl::TRANSFER_SETTINGS_t m_tSettings;
    WQCurl::TRANSFER_REPORT_t m_tReport; /**< of the last Answer(), Get(), Download() or SyncDownload() */
    std::string m_strRaw;
    CGate m_tArrived; /**< opened by each request that reaches the server */
    CGate m_tGoOn;
    const CConnection::SCRIPT_t m_fnServe = [this](CConnection& tConnection, const REQUEST_t& tRequest)
    { Serve(tConnection, tRequest); };
    std::optional<CLoopbackServer> m_tServer;
    std::unique_ptr<CWebConnector> m_ptEngine = std::make_unique<CWebConnector>();
    std::ptrdiff_t m_nDescriptors = 0; /**< open without engine and server */

private:
    void Serve(CConnection& tConnection, const REQUEST_t& tRequest)
    {
        const std::string& strPath = tRequest.strPath;
        const std::string strEnd = "/" + strPath.substr(strPath.rfind('/') + 1);
        const unsigned long long nLength = strtoull(&strPath[1], nullptr, 10);
        m_tArrived.Open();
        if (strPath == STALL)
        {
            tConnection.Stall();
        }
        else if (strPath == RAW)
        {
            tConnection.Send(m_strRaw);
            tConnection.Shutdown();
        }
        else if (nLength > 0 && strPath != "/404")
        {
            bool bGoOn = tConnection.Send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(nLength) + "\r\n\r\n");
            unsigned long long nLeft = strEnd == strPath ? nLength : nLength / 2;
            while (bGoOn && nLeft > 0)
            {
                const auto nNow = static_cast<size_t>(std::min<unsigned long long>(nLeft, BODY.size()));
                bGoOn = tConnection.Send(BODY.substr(0, nNow));
                nLeft -= nNow;
            }
            strEnd == "/cut" ? tConnection.Shutdown() : strEnd == "/reset" ? tConnection.Reset() : void();
        }
        else
        {
            EXPECT_TRUE(strPath != GATED || m_tGoOn.Wait());
            tConnection.Answer(strEnd == HEAD ? tRequest.strHead
                                              : tRequest.strMethod + " " + strPath + " " + tRequest.strBody,
                               strPath == "/404" ? "404 Not Found" : "200 OK");
        }
    }

    std::string m_strFolder = (std::filesystem::temp_directory_path() / "veltra-test-XXXXXX").string();
};
