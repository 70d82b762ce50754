/* GET, POST and the worker loop over the real wrapper, against a scripted server. */

#include <chrono>
#include <unistd.h>

#include "engine_fixture.h"

namespace
{

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

void Echo(CConnection& tConnection, const REQUEST_t& tRequest)
{
    tConnection.Answer(tRequest.strMethod + " " + tRequest.strPath + " " + tRequest.strBody);
}

/** Answers "/stall" never and everything else with an echo. */
void EchoOrStall(CConnection& tConnection, const REQUEST_t& tRequest)
{
    if (tRequest.strPath == "/stall")
    {
        tConnection.Stall();
        return;
    }
    Echo(tConnection, tRequest);
}

long ContextSwitches(pid_t nThread)
{
    std::ifstream tStatus("/proc/self/task/" + std::to_string(nThread) + "/status");
    long nSwitches = 0;
    for (std::string strLine; std::getline(tStatus, strLine);)
    {
        if (strLine.find("voluntary_ctxt_switches:") != std::string::npos)
        {
            nSwitches += std::stol(strLine.substr(strLine.find(':') + 1));
        }
    }
    return nSwitches;
}

} // namespace

TEST_F(CEngineTest, SendsWhatTheRecordSaysAndAppendsTheAnswer)
{
    std::string strHead;
    CLoopbackServer tServer(
        [&strHead](CConnection& tConnection, const REQUEST_t& tRequest)
        {
            strHead = tRequest.strHead;
            Echo(tConnection, tRequest);
        });
    m_ptEngine->Create();
    const std::string strBinary("a\0b\r\n", 5);
    struct
    {
        int eMethod;
        std::string strBody;
        std::string strExpected;
    } const arrCases[] = {
        {HTTP_METHOD_GET, "", "GET /x?y=1 "},
        {HTTP_METHOD_GET, "ignored", "GET /x?y=1 "},
        {HTTP_METHOD_POST, "", "POST /x?y=1 "},
        {HTTP_METHOD_POST, strBinary, "POST /x?y=1 " + strBinary},
        {HTTP_METHOD_POST, std::string(900000, 'z'), "POST /x?y=1 " + std::string(900000, 'z')},
    };
    for (const auto& tCase : arrCases)
    {
        _HTTP_REQ_INFO_t tRequest = GetRequest(tServer.Url("/x?y=1"));
        tRequest.eMethod = tCase.eMethod;
        tRequest.strPostData = tCase.strBody;
        tRequest.lstHeader = {"DUID:1", "X-Two: b"};
        tRequest.strResponse = "before ";
        EXPECT_TRUE(m_ptEngine->Get(&tRequest, true));
        EXPECT_EQ(tRequest.strResponse, "before " + tCase.strExpected);
        EXPECT_EQ(tRequest.strErrorReason, "");
        EXPECT_FALSE(tRequest.tSync.m_bCreated);
        EXPECT_NE(strHead.find("DUID:1\r\nX-Two: b\r\n"), std::string::npos) << strHead;

        tRequest.strResponse.clear();
        OUTCOME_t tOutcome;
        tRequest.pfnRequestCB = &OUTCOME_t::OnEnd;
        tRequest.pUserData = &tOutcome;
        EXPECT_TRUE(m_ptEngine->Post(&tRequest, false));
        tRequest = _HTTP_REQ_INFO_t(); // the engine works on a copy
        ASSERT_TRUE(tOutcome.tEnded.Wait());
        EXPECT_TRUE(tOutcome.bResult);
        EXPECT_EQ(tOutcome.strResponse, tCase.strExpected);
    }
}

TEST_F(CEngineTest, FailsWithTheReason)
{
    CLoopbackServer tServer(
        [](CConnection& tConnection, const REQUEST_t& tRequest)
        {
            tRequest.strPath == "/cut" ? tConnection.Send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\npart")
                                       : tConnection.Send("\r\n\r\n");
            tConnection.Shutdown();
        });
    CLoopbackServer tTlsServer(&Echo, true);
    m_ptEngine->Create();
    setenv("http_proxy", "http://127.0.0.1:1", 1); // must not matter
    struct
    {
        std::string strUrl;
        std::string strReason;
        std::string strResponse;
    } const arrCases[] = {
        {tServer.Url("/cut"), "transfer closed with 5 bytes remaining to read", "part"},
        {tServer.Url("/nonsense"), "HTTP/0.9", ""},
        {"file:///etc/hostname", "Protocol \"file\" not supported", ""},
        {"ftp://127.0.0.1/x", "Protocol \"ftp\" not supported", ""},
        {"dict://127.0.0.1:1/x", "Protocol \"dict\" not supported", ""},
        {"", "URL", ""},
        {"http://127.0.0.1:1/", "Failed to connect", ""},
        {"https://localhost:" + std::to_string(tTlsServer.Port()), "no alternative certificate subject name", ""},
    };
    for (const auto& tCase : arrCases)
    {
        _HTTP_REQ_INFO_t tRequest = GetRequest(tCase.strUrl);
        EXPECT_FALSE(m_ptEngine->Get(&tRequest, true)) << tCase.strUrl;
        EXPECT_NE(tRequest.strErrorReason.find(tCase.strReason), std::string::npos) << tRequest.strErrorReason;
        EXPECT_EQ(tRequest.strResponse, tCase.strResponse);
    }
    _HTTP_REQ_INFO_t tTrusted = GetRequest(tTlsServer.Url("/tls"));
    EXPECT_TRUE(m_ptEngine->Get(&tTrusted, true)) << tTrusted.strErrorReason;
    WQCurl::SetTransferDefaults({});
    _HTTP_REQ_INFO_t tUntrusted = GetRequest(tTlsServer.Url("/tls"));
    EXPECT_FALSE(m_ptEngine->Get(&tUntrusted, true));
    EXPECT_NE(tUntrusted.strErrorReason.find("certificate"), std::string::npos) << tUntrusted.strErrorReason;
}

TEST_F(CEngineTest, StartsAtOnceWhileAnotherTransferIsStalled)
{
    CLoopbackServer tServer(&EchoOrStall);
    m_ptEngine->Create();
    OUTCOME_t tStalled;
    ASSERT_TRUE(tStalled.Start(*m_ptEngine, GetRequest(tServer.Url("/stall"))));
    /* Each would take most of a second if it had to wait for the end of the worker's wait. */
    constexpr int REQUESTS = 40;
    const auto tStart = steady_clock::now();
    for (int i = 0; i < REQUESTS; ++i)
    {
        _HTTP_REQ_INFO_t tRequest = GetRequest(tServer.Url());
        ASSERT_TRUE(m_ptEngine->Get(&tRequest, true));
    }
    const auto tTaken = steady_clock::now() - tStart;
    RecordProperty("microseconds_each",
                   static_cast<int>(std::chrono::duration_cast<std::chrono::microseconds>(tTaken).count() / REQUESTS));
    EXPECT_LT(tTaken, seconds(10));
    EXPECT_EQ(tStalled.tEnded.Count(), 0);
    m_ptEngine->Destroy();
}

TEST_F(CEngineTest, WakesUpNeverWhenIdleAndHardlyWhenStalled)
{
    CLoopbackServer tServer(&EchoOrStall);
    m_ptEngine->Create();
    static pid_t s_nWorker;
    static CGate s_tKnown;
    _HTTP_REQ_INFO_t tRequest = GetRequest(tServer.Url());
    tRequest.pfnRequestCB = [](bool, std::string&, std::string&, void*)
    {
        s_nWorker = gettid();
        s_tKnown.Open();
    };
    ASSERT_TRUE(m_ptEngine->Get(&tRequest, false));
    ASSERT_TRUE(s_tKnown.Wait());
    std::this_thread::sleep_for(
        milliseconds(100)); // lets the pass end; ending late would fail the test, not hide a fault
    const long nIdle = ContextSwitches(s_nWorker);
    std::this_thread::sleep_for(seconds(2));
    EXPECT_EQ(ContextSwitches(s_nWorker), nIdle);

    OUTCOME_t tStalled;
    ASSERT_TRUE(tStalled.Start(*m_ptEngine, GetRequest(tServer.Url("/stall"))));
    std::this_thread::sleep_for(milliseconds(100));
    const long nStalled = ContextSwitches(s_nWorker);
    std::this_thread::sleep_for(seconds(3));
    EXPECT_LE(ContextSwitches(s_nWorker) - nStalled, 12);
    m_ptEngine->Destroy();
}

TEST_F(CEngineTest, PausedTransferDoesNotSpin)
{
    CLoopbackServer tServer(
        [](CConnection& tConnection, const REQUEST_t&)
        {
            tConnection.Answer(std::string(100000, 'p'));
            tConnection.Shutdown();
        });
    WQCurl::WQCurlMulti tMulti;
    WQCurl::WQCurlEasy tEasy;
    WQCurl::WQCurlEasy tFresh;
    EXPECT_FALSE(tMulti.addHandle(&tEasy));
    ASSERT_TRUE(tMulti.Initialize() && tEasy.Initialize());
    EXPECT_TRUE(tEasy.setOption(WQCurl::URL, tServer.Url()));
    EXPECT_TRUE(tEasy.setOption(WQCurl::WRITEFUNCTION,
                                [](char*, size_t, size_t, void*) -> size_t { return 0x10000001; })); // libcurl's pause
    EXPECT_FALSE(tMulti.addHandle(nullptr));
    EXPECT_FALSE(tMulti.addHandle(&tFresh));
    EXPECT_FALSE(tMulti.removeHandle(&tEasy));
    EXPECT_TRUE(tMulti.addHandle(&tEasy));
    EXPECT_FALSE(tMulti.addHandle(&tEasy));
    int nRunning = 0;
    int nWaits = 0;
    for (const auto tEnd = steady_clock::now() + seconds(3); steady_clock::now() < tEnd; ++nWaits)
    {
        EXPECT_TRUE(tMulti.fdSelect(nRunning));
    }
    EXPECT_EQ(nRunning, 1);
    EXPECT_LE(nWaits, 20);
    EXPECT_TRUE(tMulti.removeHandle(&tEasy));
}

TEST_F(CEngineTest, AnswersEveryRequestOfManyThreads)
{
    CLoopbackServer tServer(&Echo);
    m_ptEngine->Create();
    constexpr int THREADS = 16;
    constexpr int REQUESTS = 100;
    std::vector<OUTCOME_t> vecOutcomes(THREADS * REQUESTS);
    std::atomic<int> nOwnAnswers{0};
    std::vector<std::thread> vecThreads;
    for (int i = 0; i < THREADS; ++i)
    {
        vecThreads.emplace_back(
            [&, i]
            {
                for (int n = i * REQUESTS; n < (i + 1) * REQUESTS; ++n)
                {
                    const std::string strPath = "/" + std::to_string(n);
                    EXPECT_TRUE(
                        vecOutcomes[static_cast<size_t>(n)].Start(*m_ptEngine, GetRequest(tServer.Url(strPath))));
                    _HTTP_REQ_INFO_t tRequest = GetRequest(tServer.Url(strPath));
                    nOwnAnswers += m_ptEngine->Get(&tRequest, true) && tRequest.strResponse == "GET " + strPath + " ";
                }
            });
    }
    for (std::thread& tThread : vecThreads)
    {
        tThread.join();
    }
    for (int n = 0; n < THREADS * REQUESTS; ++n)
    {
        OUTCOME_t& tOutcome = vecOutcomes[static_cast<size_t>(n)];
        ASSERT_TRUE(tOutcome.tEnded.Wait());
        nOwnAnswers += tOutcome.bResult && tOutcome.strResponse == "GET /" + std::to_string(n) + " ";
        EXPECT_EQ(tOutcome.tEnded.Count(), 1);
        EXPECT_EQ(tOutcome.tThread, vecOutcomes[0].tThread);
    }
    EXPECT_EQ(nOwnAnswers, 2 * THREADS * REQUESTS);
}

TEST_F(CEngineTest, CallbacksStartRequestsButNeverWaitForOne)
{
    CLoopbackServer tServer(&Echo);
    m_ptEngine->Create();
    struct CHAIN_t
    {
        CWebConnector* ptEngine;
        _HTTP_REQ_INFO_t tRequest;
        int nLeft = 20;
        int nRefused = 0;
        CGate tEnded;
    } tChain{m_ptEngine.get(), GetRequest(tServer.Url()), 20, 0, {}};
    tChain.tRequest.pUserData = &tChain;
    tChain.tRequest.pfnRequestCB = [](bool, std::string&, std::string&, void* pUserData)
    {
        auto* ptChain = static_cast<CHAIN_t*>(pUserData);
        _HTTP_REQ_INFO_t tSynchronous = GetRequest(ptChain->tRequest.strUrl);
        ptChain->nRefused += !ptChain->ptEngine->Get(&tSynchronous, true);
        ptChain->ptEngine->Destroy(); // refused as well
        if (--ptChain->nLeft == 0 || !ptChain->ptEngine->Get(&ptChain->tRequest, false))
        {
            ptChain->tEnded.Open();
        }
    };
    ASSERT_TRUE(m_ptEngine->Get(&tChain.tRequest, false));
    ASSERT_TRUE(tChain.tEnded.Wait());
    EXPECT_EQ(tChain.nLeft, 0);
    EXPECT_EQ(tChain.nRefused, 20);
}

TEST_F(CEngineTest, RefusesWhatComesBeforeCreateAndAfterDestroy)
{
    CLoopbackServer tServer(&Echo);
    const auto fnAllRefused = [this, &tServer]
    {
        _HTTP_REQ_INFO_t tRequest = GetRequest(tServer.Url());
        OUTCOME_t tOutcome;
        DOWNLOAD_t tDownload;
        EXPECT_FALSE(m_ptEngine->Get(&tRequest, true));
        EXPECT_FALSE(tOutcome.Start(*m_ptEngine, tRequest));
        EXPECT_EQ(tDownload.Start(*m_ptEngine, tServer.Url(), Path("file")), -6);
        EXPECT_FALSE(Exists(Path("file.bak")));
        EXPECT_EQ(tOutcome.tEnded.Count() + tDownload.tEnded.Count(), 0);
    };
    m_ptEngine->Destroy();
    fnAllRefused();
    EXPECT_TRUE(m_ptEngine->Create());
    _HTTP_REQ_INFO_t tRequest = GetRequest(tServer.Url());
    EXPECT_TRUE(m_ptEngine->Get(&tRequest, true));
    EXPECT_FALSE(m_ptEngine->Get(nullptr, true));
    EXPECT_FALSE(m_ptEngine->Post(nullptr, false));
    EXPECT_FALSE(m_ptEngine->Get(&tRequest, false)) << "without a callback";
    m_ptEngine->Destroy();
    m_ptEngine->Destroy();
    fnAllRefused();
    EXPECT_TRUE(m_ptEngine->Create());
    fnAllRefused();
    for (int i = 0; i < 200; ++i)
    {
        CWebConnector tShort; // an end right after the start is not lost
        tShort.Create();
    }
}

TEST_F(CEngineTest, DestroyEndsEverythingInFlightOnce)
{
    CGate tArrived;
    CLoopbackServer tServer(
        [&tArrived](CConnection& tConnection, const REQUEST_t&)
        {
            tArrived.Open();
            tConnection.Stall();
        });
    m_ptEngine->Create();
    std::vector<OUTCOME_t> vecOutcomes(20);
    std::vector<DOWNLOAD_t> vecDownloads(5);
    for (OUTCOME_t& tOutcome : vecOutcomes)
    {
        ASSERT_TRUE(tOutcome.Start(*m_ptEngine, GetRequest(tServer.Url("/stall"))));
    }
    for (DOWNLOAD_t& tDownload : vecDownloads)
    {
        const std::string strPath = Path(std::to_string(&tDownload - vecDownloads.data()));
        ASSERT_EQ(tDownload.Start(*m_ptEngine, tServer.Url("/stall"), strPath), 1);
    }
    _HTTP_REQ_INFO_t tWaiting = GetRequest(tServer.Url("/stall"));
    std::thread tCaller([this, &tWaiting] { EXPECT_FALSE(m_ptEngine->Get(&tWaiting, true)); });
    ASSERT_TRUE(tArrived.Wait(26));
    const auto tStart = steady_clock::now();
    m_ptEngine->Destroy();
    RecordProperty("milliseconds", static_cast<int>((steady_clock::now() - tStart) / milliseconds(1)));
    EXPECT_LT(steady_clock::now() - tStart, seconds(15)); // half of what the transfers' own time-outs would take
    tCaller.join();
    for (OUTCOME_t& tOutcome : vecOutcomes)
    {
        EXPECT_EQ(tOutcome.tEnded.Count(), 1);
        EXPECT_FALSE(tOutcome.bResult);
        EXPECT_EQ(tOutcome.strError, "The engine was destroyed before the transfer had ended");
    }
    for (DOWNLOAD_t& tDownload : vecDownloads)
    {
        EXPECT_EQ(tDownload.tEnded.Count(), 1);
        EXPECT_EQ(tDownload.eFinal, DOWNLOAD_TYPE_FAIL);
        EXPECT_FALSE(Exists(Path(std::to_string(&tDownload - vecDownloads.data()) + ".bak")));
    }
}
