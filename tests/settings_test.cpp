/* The desktop platform's settings and a change of network, over the engine. */

#include "engine_fixture.h"

using CSettingsTest = CEngineTest;

TEST_F(CSettingsTest, ProxyIsUsedOrRefused)
{
    setenv("no_proxy", "*", 1); // has no effect
    const std::string strNowhere = "http://nowhere.invalid" + HEAD;
    CLoopbackServer tTls(m_fnServe, true);
    const std::string strPort = ":" + std::to_string(m_tServer->Port());
    const std::pair<std::string, std::string> arrProxies[] = {
        {"127.0.0.1" + strPort, ""},
        {"HTTP://u@127.0.0.1" + strPort + "/", "dTo="},
        {"u%2541%40:p%3A%25@[::ffff:127.0.0.1]" + strPort, "dSU0MUA6cDol"},
        {"https://u:p@127.0.0.1:" + std::to_string(tTls.Port()), "dTpw"},
    };
    EXPECT_FALSE(Get(strNowhere));
    for (const auto& [strProxy, strUser] : arrProxies)
    {
        m_tSettings.strProxy = strProxy;
        const std::string strHead = Answer(strNowhere);
        EXPECT_EQ(strHead.rfind("GET " + strNowhere + " ", 0), 0U) << strProxy << ": " << strHead;
        EXPECT_EQ(strHead.find("Authorization: Basic " + strUser) == std::string::npos, strUser.empty()) << strHead;
    }
    m_tSettings.strNoProxy = "elsewhere.invalid,nowhere.invalid";
    EXPECT_FALSE(Get(strNowhere)) << "the host that the proxy does not serve has no address";
    m_tSettings.strNoProxy.clear();
    CLoopbackServer tRefusing([](CConnection& tConnection, const REQUEST_t&)
                              { tConnection.Answer("", "407 Proxy Authentication Required"); });
    m_tSettings.strProxy = tRefusing.Url("");
    EXPECT_FALSE(Get(strNowhere));
    EXPECT_EQ(Download(strNowhere), DOWNLOAD_TYPE_FAIL);
    m_tSettings.strProxy = arrProxies[3].first;
    m_tSettings.strCaFile.clear();
    WQCurl::NetworkChanged(); // connects again
    EXPECT_FALSE(Get(strNowhere)) << "through a proxy that nobody known has signed";
    m_tSettings.strCaFolder = TEST_CERTIFICATES;
    EXPECT_TRUE(Get(strNowhere));
    for (const char* pszBad : {"http://us%0d%0aer:p@h", "http://u:p%00w@h", "http://u:80#p@h", "http://u:80/p@h",
                               "http://u:80?p@h", "ftp://h", "http://u:p@", "http://h:65536"})
    {
        m_tSettings.strProxy = pszBad;
        EXPECT_FALSE(WQCurl::SetTransferDefaults(m_tSettings)) << pszBad;
    }
}

TEST_F(CSettingsTest, ConnectionsUseFamilyCertificateAndHttpVersionOfTheSettings)
{
    const std::string strCounted = "http://counted.invalid:" + std::to_string(m_tServer->Port()) + "/";
    m_tSettings.eIpFamily = WQCurl::IP_FAMILY_4;
    EXPECT_TRUE(Get(strCounted));
    EXPECT_EQ(g_tCalls.nFamily, AF_INET);
    m_tSettings.eIpFamily = WQCurl::IP_FAMILY_6;
    WQCurl::NetworkChanged(); // the name, which has no such address, is looked up again
    EXPECT_FALSE(Get(strCounted));
    m_tSettings.eIpFamily = WQCurl::IP_FAMILY_ANY;

    CLoopbackServer tStrict(m_fnServe, true, true);
    m_tSettings.strClientCertificate = TEST_CERTIFICATES "/server.pem";
    EXPECT_FALSE(Get(tStrict.Url())) << "without its key";
    m_tSettings.strClientKey = TEST_CERTIFICATES "/server.key";
    m_tSettings.strCaFile.clear();
    m_tSettings.strCaFolder = TEST_CERTIFICATES;
    EXPECT_TRUE(Get(tStrict.Url()));

    m_tSettings.bHttp2 = true;
    EXPECT_FALSE(Get(CLoopbackServer(m_fnServe, true).Url())) << "the server refuses a client that offers HTTP/2";
}

TEST_F(CSettingsTest, CompressedAnswersOfRequestsAreDecoded)
{
    const std::string strBytes("\x1f\x8b\x08\x00\x00\x00\x00\x00\x02\x03\xab\xa8\x18\x05\xa3\x60\x14\x0c\x77\x00\x00"
                               "\xe6\xc9\x41\x3b\xe8\x03\x00\x00",
                               29); // 1000 letters
    m_strRaw = "HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\n\r\n" + strBytes;
    EXPECT_EQ(Answer(Url(RAW)), strBytes);
    m_tSettings.bCompressed = true;
    m_tSettings.nLargestAnswer = 1000;
    EXPECT_EQ(Answer(Url(RAW)), std::string(1000, 'x'));
    m_tSettings.nLargestAnswer = 999;
    EXPECT_NE(Answer(Url(RAW)).find("larger"), std::string::npos) << "decoded bytes count";
    EXPECT_EQ(Download(Url(RAW)), DOWNLOAD_TYPE_SUCCESS);
    EXPECT_EQ(ReadFile(Path("file")), strBytes);
    m_tSettings.nLargestFile = 1;
    EXPECT_EQ(Download(Url("/2000000")), DOWNLOAD_TYPE_FAIL);
    EXPECT_LT(m_tReport.nBytes, 2000000) << "it ends as soon as it is too large";
}

TEST_F(CSettingsTest, OnlyTheExpectedBodyReachesItsTarget)
{
    const std::string strFile = "the expected body";
    const auto fnAnswer = [](const std::string& strBody)
    { return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(strBody.size()) + "\r\n\r\n" + strBody; };
    const std::string UNKNOWN = "HTTP/1.1 200 OK\r\n\r\n"; // without a length
    const std::tuple<std::string, const char*, size_t> arrCases[] = {
        {fnAnswer(strFile), "", 17},
        {UNKNOWN + strFile, "", 17},
        {fnAnswer("The expected body"), "another checksum", 17},
        {fnAnswer("the expected bod"), "smaller", 0},
        {UNKNOWN + "the expected bod", "smaller", 16},
        {fnAnswer("the expected body!"), "larger", 0},
        {UNKNOWN + "the expected body!", "larger", 0},
        {fnAnswer(""), "smaller", 0},
        {"HTTP/1.1 404 Not Found\r\nContent-Length: 4\r\n\r\ngone", "smaller", 0},
    };
    m_tSettings.nExpectedSize = 17;
    m_tSettings.strExpectedSha256 = "264250935f6a28223a2e42302d43f9e0202f528964daba35e62d22a07d9e0452";
    for (const auto& [strAnswer, pszReason, nWritten] : arrCases)
    {
        SCOPED_TRACE(strAnswer.substr(0, 100));
        const bool bExpected = *pszReason == '\0';
        m_strRaw = strAnswer;
        std::ofstream(Path("file")) << "old";
        EXPECT_EQ(Download(Url(RAW)), bExpected ? DOWNLOAD_TYPE_SUCCESS : DOWNLOAD_TYPE_FAIL);
        EXPECT_EQ(ReadFile(Path("file")), bExpected ? strFile : "old");
        EXPECT_NE(m_tReport.strErrorMsg.find(pszReason), std::string::npos) << m_tReport.strErrorMsg;
        EXPECT_EQ(m_tReport.nResultCode, bExpected ? 0 : WQCurl::RESULT_UNEXPECTED);
        EXPECT_EQ(SyncDownload(Url(RAW), "sync"), bExpected);
        EXPECT_EQ(ReadFile(Path(bExpected ? "sync" : "sync.bak")).size(), nWritten);
        EXPECT_EQ(Get(Url(RAW)), bExpected);
        std::filesystem::remove(Path("sync"));
    }
    for (const char* pszStatus : {"404 Not Found", "300 Choices", "304 Not Modified", "308 Elsewhere"})
    {
        m_strRaw = "HTTP/1.1 " + std::string(pszStatus) + "\r\nContent-Length: 4\r\n\r\npage";
        m_tSettings.bFailOnHttpError = m_tSettings.bFailOnRedirect = true;
        EXPECT_FALSE(Get(Url(RAW)));
        EXPECT_EQ(m_tReport.nResultCode, 22) << "the status is the reason";
        m_tSettings.bFailOnHttpError = m_tSettings.bFailOnRedirect = false;
    }
    m_tSettings.nExpectedSize = -1;
    m_tSettings.strExpectedSha256 = "E3B0C44298FC1C149AFBF4C8996FB92427AE41E4649B934CA495991B7852B855"; // of nothing
    m_strRaw = fnAnswer("");
    EXPECT_TRUE(Get(Url(RAW)));
}

TEST_F(CSettingsTest, RefusedSettingsChangeNothing)
{
    m_tSettings.nConnectTimeout = 1;
    EXPECT_TRUE(WQCurl::SetTransferDefaults(m_tSettings));
    WQCurl::TRANSFER_SETTINGS_t arrBad[19];
    arrBad[0].nMostDownloads = -1;
    arrBad[1].nConnectTimeout = 0;
    arrBad[2].nMostIdleConnections = -1;
    arrBad[3].nLargestFile = -1;
    arrBad[4].nConnectTimeout = 2147484;
    arrBad[5].nRetries = -1;
    arrBad[6].nRetrySeconds = -1;
    arrBad[7].nLargestAnswer = -1;
    arrBad[8].eIpFamily = static_cast<WQCurl::IP_FAMILY_e>(3);
    arrBad[9].nMostRedirects = 51;
    arrBad[10].strUserAgent = "a\r\nX: y";
    arrBad[11].lstHeader = {"X: y", "no colon"};
    arrBad[12].lstHeader = {"X: y\nZ: z"};
    arrBad[13].lstHeader = {": no name"};
    arrBad[14].lstHeader = {std::string("X: y\0", 5)};
    arrBad[15].strNoProxy = "\x7f";
    arrBad[16].nExpectedSize = -2;
    arrBad[17].strExpectedSha256 = std::string(63, 'a');
    arrBad[18].strExpectedSha256 = std::string(64, 'g');
    for (const auto& tBad : arrBad)
    {
        EXPECT_FALSE(WQCurl::SetTransferDefaults(tBad)) << &tBad - arrBad;
    }
    _HTTP_REQ_INFO_t tRequest = GetRequest(SilentTlsUrl());
    EXPECT_LT(SecondsOf([&] { EXPECT_FALSE(m_ptEngine->Get(&tRequest, true)); }), 25) << "the limit is still a second";
}

TEST_F(CSettingsTest, TransfersAboveTheMostConnectionsWaitAndCanBeEnded)
{
    g_tCalls.bHurry = true;
    WQCurl::SetBandwidth(1); // the first download's connection stays in use
    for (const bool bPerHost : {false, true})
    {
        SCOPED_TRACE(bPerHost);
        const int nArrived = m_tArrived.Count();
        OUTCOME_t tRunning, tCancelled, tEnded, tRequest;
        m_ptEngine = std::make_unique<CWebConnector>();
        m_ptEngine->Create();
        m_tSettings.nMostConnections = bPerHost ? 0 : 1;
        m_tSettings.nMostConnectionsPerHost = bPerHost ? 1 : 0;
        ASSERT_EQ(Start(tRunning, Url(ENDLESS), "running"), 1);
        EXPECT_TRUE(m_tArrived.Wait(nArrived + 1)); // a request that is started before could overtake it
        ASSERT_EQ(Start(tCancelled, Url(ENDLESS), "cancelled"), 1);
        ASSERT_EQ(Start(tEnded, Url(ENDLESS), "ended"), 1);
        ASSERT_TRUE(Start(tRequest, Url()));
        EXPECT_TRUE(tCancelled.tProgress.Wait()) << "it is asked while it waits";
        EXPECT_EQ(Cancel(tCancelled), DOWNLOAD_TYPE_CANCEL);
        EXPECT_TRUE(tRequest.tEnded.Wait()) << "after its time-out";
        EXPECT_FALSE(tRequest.bResult);
        EXPECT_EQ(tRunning.tEnded.Count(), 0);
        m_ptEngine->Destroy();
        EXPECT_EQ(tEnded.eType, DOWNLOAD_TYPE_FAIL);
        EXPECT_EQ(m_tArrived.Count(), nArrived + 1) << "one connection";
    }
}

TEST_F(CSettingsTest, IdleConnectionsOfABurstAreClosedAndThoseOfLoneRequestsKept)
{
    for (const int nBurst : {8, 40})
    {
        Burst(Url(""), nBurst);
        EXPECT_TRUE(Get(Url())); // the last of the burst has left by then
        const size_t nOpen = SocketsTo(*m_tServer).size();
        EXPECT_TRUE(nBurst == 8 ? nOpen == 8 : nOpen <= 1) << nOpen << " after " << nBurst;
        EXPECT_TRUE(Get(Url()));
        EXPECT_TRUE(Get(Url()));
        EXPECT_TRUE(m_tReport.bReused);
    }
}

TEST_F(CSettingsTest, ChangeOfNetworkOutdatesConnectionsAndLookUps)
{
    const std::string strUrl = "http://counted.invalid:" + std::to_string(m_tServer->Port());
    const auto fnChangeEach = [&]
    {
        for (const bool bAsleep : {false, true})
        {
            const int nLookUps = g_tCalls.nLookUps;
            bAsleep ? void(g_tCalls.nSecondsAsleep += 3600) : WQCurl::NetworkChanged();
            EXPECT_TRUE(Get(strUrl));
            EXPECT_FALSE(m_tReport.bReused) << "the old connection may be silent for ever";
            EXPECT_EQ(g_tCalls.nLookUps, nLookUps + 1);
        }
    };
    EXPECT_TRUE(Get(strUrl));
    fnChangeEach();
    /* While a transfer is under way, it is not disturbed, and others connect afresh. */
    OUTCOME_t tUnderWay;
    WQCurl::NetworkChanged();
    ASSERT_TRUE(Start(tUnderWay, strUrl + GATED));
    EXPECT_TRUE(m_tArrived.Wait(4));
    EXPECT_TRUE(Get(strUrl)); // leaves an idle connection
    fnChangeEach();
    std::this_thread::sleep_for(2100ms); // libcurl compares ages in whole seconds
    EXPECT_TRUE(Get(strUrl));
    EXPECT_EQ(tUnderWay.tEnded.Count(), 0);
    EXPECT_EQ(Burst(strUrl, 3), 1) << "the idle connection of this network is used again";
    m_tGoOn.Open();
    EXPECT_TRUE(tUnderWay.tEnded.Wait() && tUnderWay.bResult);
}
