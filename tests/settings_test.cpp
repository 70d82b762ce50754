/* The desktop platform's settings, its observer and a change of network, each over the engine as applications use it.
 */

#include <netinet/in.h>

#include "engine_fixture.h"
#include "interposed.h"

namespace
{

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

/** The answer of one size to "/size/N", an error page to "/404", silence to "/stall", an echo to all else. */
void Serve(CConnection& tConnection, const REQUEST_t& tRequest)
{
    const std::string& strPath = tRequest.strPath;
    strPath == "/stall" ? tConnection.Stall()
    : strPath == "/404" ? static_cast<void>(tConnection.Answer("error page", "404 Not Found"))
    : strPath.rfind("/size/", 0) == 0
        ? static_cast<void>(tConnection.Answer(std::string(std::stoul(strPath.substr(6)), 's')))
        : static_cast<void>(tConnection.Answer(tRequest.strMethod + " " + strPath));
}

} // namespace

class CSettingsTest : public CEngineTest
{
protected:
    CSettingsTest()
    {
        m_ptEngine->Create();
        m_tSettings.strCaFile = TEST_CERTIFICATES "/ca.pem";
        const auto pfnObserve = [](const WQCurl::TRANSFER_REPORT_t& tReport, void* pThis)
        {
            auto* ptThis = static_cast<CSettingsTest*>(pThis);
            ptThis->m_tReport = tReport;
            ptThis->m_tReporter = std::this_thread::get_id();
        };
        WQCurl::SetTransferObserver(pfnObserve, this);
    }
    ~CSettingsTest() override { WQCurl::SetTransferObserver(nullptr, nullptr); }

    /** Makes a GET with the settings as they are then. @return the answer, or "failed: " and the reason */
    std::string Answer(const std::string& strUrl)
    {
        EXPECT_TRUE(WQCurl::SetTransferDefaults(m_tSettings));
        _HTTP_REQ_INFO_t tRequest = GetRequest(strUrl);
        return m_ptEngine->Get(&tRequest, true) ? tRequest.strResponse : "failed: " + tRequest.strErrorReason;
    }

    bool Fails(const std::string& strUrl) { return Answer(strUrl).rfind("failed: ", 0) == 0; }

    DOWNLOAD_TYPE_e Download(const std::string& strUrl)
    {
        EXPECT_TRUE(WQCurl::SetTransferDefaults(m_tSettings));
        OUTCOME_t tDownload;
        EXPECT_EQ(tDownload.Download(*m_ptEngine, strUrl, Path("file")), 1);
        EXPECT_TRUE(tDownload.tEnded.Wait());
        return tDownload.eType;
    }

    WQCurl::TRANSFER_DEFAULTS_t m_tSettings;
    CLoopbackServer m_tServer{&Serve};
    /* The last transfer's, from the thread that waited for it or runs its callback. */
    WQCurl::TRANSFER_REPORT_t m_tReport;
    std::thread::id m_tReporter;
};

TEST_F(CSettingsTest, ProxyFamilyAndCertificateLeadToTheServer)
{
    setenv("no_proxy", "*", 1); // must not matter
    const std::string strNowhere = "http://nowhere.invalid/x";
    EXPECT_TRUE(Fails(strNowhere));
    m_tSettings.strProxy = m_tServer.Url("");
    EXPECT_EQ(Answer(strNowhere), "GET " + strNowhere);
    m_tSettings.strProxy.clear();

    const std::string strCounted = "http://counted.invalid:" + std::to_string(m_tServer.Port()) + "/";
    m_tSettings.eIpFamily = WQCurl::IP_FAMILY_4;
    EXPECT_EQ(Answer(strCounted), "GET /");
    EXPECT_EQ(g_tInterposed.nFamily, AF_INET);
    m_tSettings.eIpFamily = WQCurl::IP_FAMILY_6;
    WQCurl::NetworkChanged(); // looks the name up again, which has no such address
    EXPECT_TRUE(Fails(strCounted));
    m_tSettings.eIpFamily = WQCurl::IP_FAMILY_ANY;

    CLoopbackServer tStrict(&Serve, true, true);
    EXPECT_TRUE(Fails(tStrict.Url()));
    m_tSettings.strClientCertificate = TEST_CERTIFICATES "/server.pem";
    EXPECT_TRUE(Fails(tStrict.Url())) << "without its key";
    m_tSettings.strClientKey = TEST_CERTIFICATES "/server.key";
    EXPECT_EQ(Answer(tStrict.Url()), "GET /");

    m_tSettings.bHttp2 = true;
    WQCurl::NetworkChanged(); // connects again
    EXPECT_TRUE(Fails(tStrict.Url())) << "the server chooses HTTP/2 where that is offered, and does not speak it";
}

TEST_F(CSettingsTest, LimitsAndErrorPagesFailTransfers)
{
    EXPECT_EQ(Answer(m_tServer.Url("/404")), "error page");
    m_tSettings.bFailOnHttpError = true;
    EXPECT_NE(Answer(m_tServer.Url("/404")).find("404"), std::string::npos);
    std::ofstream(Path("file")) << "old";
    EXPECT_EQ(Download(m_tServer.Url("/404")), DOWNLOAD_TYPE_FAIL);

    m_tSettings.nLargestAnswer = 100;
    m_tSettings.nLargestFile = 200000;
    EXPECT_EQ(Answer(m_tServer.Url("/size/100")), std::string(100, 's'));
    EXPECT_NE(Answer(m_tServer.Url("/size/101")).find("larger"), std::string::npos);
    EXPECT_EQ(Download(m_tServer.Url("/size/200001")), DOWNLOAD_TYPE_FAIL);
    EXPECT_EQ(ReadFile(Path("file")), "old");
    EXPECT_EQ(Download(m_tServer.Url("/size/200000")), DOWNLOAD_TYPE_SUCCESS);
    EXPECT_EQ(ReadFile(Path("file")).size(), 200000U);

    m_tSettings.nLargestFile = 0;
    m_tSettings.nMostBytesPerSecond = 400000;
    const auto tStart = steady_clock::now();
    EXPECT_EQ(Download(m_tServer.Url("/size/2000000")), DOWNLOAD_TYPE_SUCCESS);
    EXPECT_GE(steady_clock::now() - tStart, seconds(1)) << "five are due, of which some libcurls spare the first ones";

    m_tSettings.nConnectTimeout = 1;
    const auto tConnect = steady_clock::now();
    EXPECT_TRUE(Fails("https" + m_tServer.Url("/stall").substr(4))) << "a handshake that is never answered";
    EXPECT_LT(steady_clock::now() - tConnect, seconds(25));

    const auto fnRefused = [](const std::function<void(WQCurl::TRANSFER_DEFAULTS_t&)>& fnSet)
    {
        WQCurl::TRANSFER_DEFAULTS_t tSettings;
        fnSet(tSettings);
        return !WQCurl::SetTransferDefaults(tSettings);
    };
    EXPECT_TRUE(fnRefused([](auto& tSettings) { tSettings.nMostBytesPerSecond = 4095; }));
    EXPECT_TRUE(fnRefused([](auto& tSettings) { tSettings.nConnectTimeout = 0; }));
    EXPECT_TRUE(fnRefused([](auto& tSettings) { tSettings.nMostIdleConnections = -1; }));
    EXPECT_TRUE(fnRefused([](auto& tSettings) { tSettings.nLargestFile = -1; }));
    EXPECT_TRUE(Fails("https" + m_tServer.Url("/stall").substr(4))) << "what is refused changes nothing";
}

TEST_F(CSettingsTest, TransfersBeyondTheMostConnectionsWaitAndCanBeEnded)
{
    CGate tArrived;
    CLoopbackServer tServer(
        [&tArrived](CConnection& tConnection, const REQUEST_t&)
        {
            tArrived.Open();
            tConnection.Stall();
        });
    for (const bool bPerHost : {false, true})
    {
        CWebConnector tEngine;
        tEngine.Create();
        (bPerHost ? m_tSettings.nMostConnectionsPerHost : m_tSettings.nMostConnections) = 1;
        EXPECT_TRUE(WQCurl::SetTransferDefaults(m_tSettings));
        OUTCOME_t arrDownloads[3];
        for (int i = 0; i < 3; ++i)
        {
            ASSERT_EQ(arrDownloads[i].Download(tEngine, tServer.Url(), Path(std::to_string(i))), 1);
        }
        EXPECT_TRUE(tArrived.Wait(bPerHost ? 2 : 1));
        EXPECT_TRUE(arrDownloads[1].tProgress.Wait()) << "it is asked while it waits";
        EXPECT_TRUE(tEngine.CancelDownload(arrDownloads[1].nId, true));
        EXPECT_TRUE(arrDownloads[1].tEnded.Wait());
        EXPECT_EQ(arrDownloads[1].eType, DOWNLOAD_TYPE_CANCEL);
        EXPECT_EQ(tArrived.Count(), bPerHost ? 2 : 1) << "only the first has a connection";
        tEngine.Destroy();
        EXPECT_EQ(arrDownloads[2].eType, DOWNLOAD_TYPE_FAIL);
        m_tSettings.nMostConnections = m_tSettings.nMostConnectionsPerHost = 0;
    }
}

TEST_F(CSettingsTest, RequestThatWaitsForAConnectionEndsInItsTimeAllTheSame)
{
    CLoopbackServer tServer(
        [](CConnection& tConnection, const REQUEST_t&)
        {
            tConnection.Send("HTTP/1.1 200 OK\r\n\r\n");
            while (tConnection.Send(std::string(2000, 'd'))) // fast enough to go on for ever
            {
                std::this_thread::sleep_for(milliseconds(500));
            }
        });
    m_tSettings.nMostConnections = 1;
    EXPECT_TRUE(WQCurl::SetTransferDefaults(m_tSettings));
    OUTCOME_t tDownload;
    ASSERT_EQ(tDownload.Download(*m_ptEngine, tServer.Url(), Path("file")), 1);
    OUTCOME_t tRequest;
    ASSERT_TRUE(tRequest.Start(*m_ptEngine, GetRequest(tServer.Url())));
    EXPECT_TRUE(tRequest.tEnded.Wait());
    EXPECT_FALSE(tRequest.bResult);
    EXPECT_NE(tRequest.strError, "");
    EXPECT_EQ(tDownload.tEnded.Count(), 0);
    m_ptEngine->Destroy();
}

TEST_F(CSettingsTest, IdleConnectionsOfABurstAreClosedAndThoseOfLoneRequestsKept)
{
    CGate tArrived;
    CGate tGoOn;
    CLoopbackServer tServer(
        [&](CConnection& tConnection, const REQUEST_t& tRequest)
        {
            tArrived.Open();
            EXPECT_TRUE(tRequest.strPath == "/lone" || tGoOn.Wait());
            tConnection.Answer("answer");
        });
    for (const int nBurst : {8, 40})
    {
        std::vector<OUTCOME_t> vecOutcomes(static_cast<size_t>(nBurst));
        const int nArrived = tArrived.Count();
        for (OUTCOME_t& tOutcome : vecOutcomes)
        {
            ASSERT_TRUE(tOutcome.Start(*m_ptEngine, GetRequest(tServer.Url())));
        }
        EXPECT_TRUE(tArrived.Wait(nArrived + nBurst));
        tGoOn.Open();
        for (OUTCOME_t& tOutcome : vecOutcomes)
        {
            EXPECT_TRUE(tOutcome.tEnded.Wait());
        }
        tGoOn.Open(-1);
        EXPECT_TRUE(Get(tServer.Url("/lone"))); // also waits until the last of the burst has left
        const size_t nOpen = SocketsTo(tServer.Port()).size();
        EXPECT_TRUE(nBurst == 8 ? nOpen > 1 : nOpen <= 1) << nOpen << " after " << nBurst;
        EXPECT_TRUE(Get(tServer.Url("/lone")));
        EXPECT_TRUE(Get(tServer.Url("/lone")));
        EXPECT_TRUE(m_tReport.bReused);
    }
}

TEST_F(CSettingsTest, NothingOfTheNetworkBeforeIsUsedInAnotherOne)
{
    CGate tArrived;
    CGate tGoOn;
    std::atomic<int> nConnections{0};
    CLoopbackServer tServer(
        [&](CConnection& tConnection, const REQUEST_t& tRequest)
        {
            /* As a connection does that has died with its network. */
            thread_local bool t_bUsed = false;
            std::exchange(t_bUsed, true) ? tConnection.Stall() : static_cast<void>(++nConnections);
            if (tRequest.strPath == "/gated")
            {
                tArrived.Open();
                EXPECT_TRUE(tGoOn.Wait());
            }
            tConnection.Answer("answer");
        });
    const std::string strUrl = "http://counted.invalid:" + std::to_string(tServer.Port()) + "/";
    const int nLookUps = g_tInterposed.nLookUps;
    const std::function<void()> arrChanges[] = {[] { WQCurl::NetworkChanged(); },
                                                [] { g_tInterposed.nSecondsAsleep += 3600; }};
    EXPECT_EQ(Answer(strUrl), "answer");
    int nSeen = 1;
    for (const auto& fnChange : arrChanges)
    {
        fnChange();
        EXPECT_EQ(Answer(strUrl), "answer") << "the old connection would keep silent";
        EXPECT_EQ(nConnections, ++nSeen);
        EXPECT_EQ(g_tInterposed.nLookUps - nLookUps, nSeen);
    }
    /* While a transfer is under way, it is not disturbed, and others connect afresh. */
    OUTCOME_t tUnderWay;
    WQCurl::NetworkChanged();
    ASSERT_TRUE(tUnderWay.Start(*m_ptEngine, GetRequest(strUrl + "gated")));
    EXPECT_TRUE(tArrived.Wait());
    for (const auto& fnChange : arrChanges)
    {
        fnChange();
        EXPECT_EQ(Answer(strUrl), "answer");
        EXPECT_EQ(Answer(strUrl), "answer");
    }
    EXPECT_EQ(tUnderWay.tEnded.Count(), 0);
    tGoOn.Open();
    EXPECT_TRUE(tUnderWay.tEnded.Wait());
    EXPECT_EQ(tUnderWay.strResponse, "answer");
    g_tInterposed.nSecondsAsleep = 0;
}

TEST_F(CSettingsTest, ObserverKnowsWhyAndHowEachTransferEnded)
{
    EXPECT_EQ(Answer(m_tServer.Url("/404")), "error page");
    EXPECT_EQ(m_tReport.strUrl, m_tServer.Url("/404"));
    EXPECT_EQ(m_tReport.nHttpStatus, 404);
    EXPECT_EQ(m_tReport.nBytes, 10);
    EXPECT_EQ(m_tReport.strPeer, "127.0.0.1");
    EXPECT_FALSE(m_tReport.bReused);
    EXPECT_EQ(m_tReport.nResultCode, 0);
    EXPECT_EQ(m_tReport.strErrorMsg, "");
    EXPECT_GT(m_tReport.dConnect, 0.0);
    EXPECT_GE(m_tReport.dFirstByte, m_tReport.dConnect);
    EXPECT_GE(m_tReport.dTotal, m_tReport.dFirstByte);
    Answer(m_tServer.Url());
    EXPECT_TRUE(m_tReport.bReused);

    OUTCOME_t tOutcome;
    tOutcome.fnOnEvent = [&]
    {
        EXPECT_EQ(m_tReporter, std::this_thread::get_id());
        EXPECT_EQ(m_tReport.nSystemError, ECONNREFUSED);
        EXPECT_EQ(m_tReport.strErrorMsg, tOutcome.strError);
        EXPECT_NE(m_tReport.nResultCode, 0);
        EXPECT_EQ(m_tReport.nHttpStatus, 0);
        EXPECT_EQ(m_tReport.strPeer, "");
    };
    ASSERT_TRUE(tOutcome.Start(*m_ptEngine, GetRequest("http://127.0.0.1:1/")));
    EXPECT_TRUE(tOutcome.tEnded.Wait());

    CLoopbackServer tTls(&Serve, true);
    EXPECT_TRUE(m_ptEngine->SyncDownloadFile(tTls.Url("/size/7"), Path("file"), 0, 0));
    EXPECT_EQ(m_tReporter, std::this_thread::get_id());
    EXPECT_EQ(m_tReport.nBytes, 7);
    EXPECT_GT(m_tReport.dTls, m_tReport.dConnect);
}
