/* Reports on demand and to the observer, and settings for single calls. */

#include "engine_fixture.h"

namespace
{

/** Returns the path, the status and the bytes of this thread's report; "none" if there is none. */
std::string Reported()
{
    const WQCurl::TRANSFER_REPORT_t t = Report();
    return t.nAttempts == 0 ? "none"
                            : t.strUrl.substr(t.strUrl.rfind('/')) + " " + std::to_string(t.nHttpStatus) + " " +
                                  std::to_string(t.nBytes);
}

} // namespace

using CReportTest = CEngineTest;

TEST_F(CReportTest, SynchronousCallHasItsReportUntilTheNextOnTheSameThread)
{
    EXPECT_TRUE(Get(Url("/7")));
    EXPECT_EQ(Reported(), "/7 200 7");
    std::thread([] { EXPECT_EQ(Reported(), "none"); }).join();
    EXPECT_TRUE(SyncDownload(Url("/404"), "file"));
    EXPECT_EQ(Reported(), "/404 404 9");
    EXPECT_FALSE(SyncDownload("", "file"));
    EXPECT_EQ(Reported(), "none") << "it was refused";
    EXPECT_TRUE(Get(Url("/7")));
    OUTCOME_t tStarted;
    EXPECT_TRUE(Start(tStarted, Url("/8")));
    EXPECT_EQ(Reported(), "none") << "another transfer has started";
    EXPECT_TRUE(tStarted.tEnded.Wait());
    EXPECT_TRUE(Get(Url("/7")));
    m_ptEngine->Destroy();
    EXPECT_EQ(Reported(), "/7 200 7");
    EXPECT_FALSE(Get(Url("/7")));
    EXPECT_EQ(Reported(), "none") << "the engine is not running";
}

TEST_F(CReportTest, CallbackHasTheReportOfItsOwnTransfer)
{
    OUTCOME_t tRequest, tDownload, tInner;
    tRequest.fnOnEvent = [&]
    {
        EXPECT_EQ(Reported(), "/7 200 7");
        EXPECT_TRUE(tInner.Start(*m_ptEngine, GetRequest(Url("/9"))));
        EXPECT_EQ(Reported(), "/7 200 7");
        EXPECT_TRUE(m_ptEngine->SyncDownloadFile(Url("/5"), Path("nested"), 0, 0));
        EXPECT_EQ(Reported(), "/5 200 5");
    };
    tInner.fnOnEvent = [] { EXPECT_EQ(Reported(), "/9 200 9"); };
    EXPECT_TRUE(Start(tRequest, Url("/7")));
    EXPECT_TRUE(tRequest.tEnded.Wait());
    EXPECT_TRUE(tInner.tEnded.Wait());
    EXPECT_EQ(Reported(), "none") << "that was another thread";

    long long nBytes = 0;
    tDownload.fnOnEvent = [&]
    {
        const WQCurl::TRANSFER_REPORT_t t = Report();
        EXPECT_TRUE(t.nAttempts == 1 && t.nBytes >= nBytes && t.nResultCode == 0);
        EXPECT_TRUE(nBytes == 0 || (t.nContentLength == 2000000 && t.dTotal > 0));
        nBytes = t.nBytes;
    };
    EXPECT_EQ(Download(tDownload, Url("/2000000")), DOWNLOAD_TYPE_SUCCESS);
    EXPECT_EQ(nBytes, 2000000);
}

TEST_F(CReportTest, ReportDescribesHowEachTransferEnded)
{
    const WQCurl::TRANSFER_REPORT_t& t = m_tReport;
    const auto tEnd = std::tie(t.strUrl, t.nHttpStatus, t.nBytes, t.strPeer, t.nResultCode, t.nSystemError, t.bReused);
    const auto tFields = std::tie(t.strHttpVersion, t.strContentType, t.strRedirectUrl, t.nContentLength);
    EXPECT_TRUE(Get(Url("/404")));
    EXPECT_EQ(tEnd, std::make_tuple(Url("/404"), 404, 9, "127.0.0.1", 0, 0, false));
    EXPECT_EQ(tFields, std::make_tuple("1.1", "", "", 9));
    EXPECT_TRUE(0 < t.dConnect && t.dConnect <= t.dFirstByte && t.dFirstByte <= t.dTotal);
    EXPECT_EQ(t.strErrorMsg, "");
    m_strRaw = "HTTP/1.0 302 Found\r\nContent-Type: a/b\r\nLocation: /x\r\n\r\nbody";
    EXPECT_TRUE(Get(Url(RAW)));
    EXPECT_EQ(tFields, std::make_tuple("1.0", "a/b", Url("/x"), -1));
    constexpr int COULD_NOT_CONNECT = 7;
    EXPECT_FALSE(Get("http://127.0.0.1:1/"));
    EXPECT_NE(t.strErrorMsg, "");
    EXPECT_EQ(tEnd, std::make_tuple("http://127.0.0.1:1/", 0, 0, "", COULD_NOT_CONNECT, ECONNREFUSED, false));
    WQCurl::NetworkChanged(); // connects again
    g_tCalls.Fail("socket", EMFILE);
    EXPECT_FALSE(Get(Url()));
    EXPECT_EQ(t.nSystemError, EMFILE);
    CLoopbackServer tTls(m_fnServe, true);
    EXPECT_TRUE(Get(tTls.Url()));
    EXPECT_GT(t.dTls, t.dConnect);
}

TEST_F(CReportTest, ObserverSeesEachEndOnItsThread)
{
    std::pair<std::thread::id, std::string> tSeen;
    const auto pfnObserve = [](const WQCurl::TRANSFER_REPORT_t& tReport, void* pSeen) {
        *static_cast<decltype(tSeen)*>(pSeen) = {std::this_thread::get_id(), tReport.strUrl};
    };
    WQCurl::SetTransferObserver(pfnObserve, &tSeen);
    OUTCOME_t tRequest, tLate;
    tRequest.fnOnEvent = [&] { EXPECT_EQ(tSeen, std::pair(std::this_thread::get_id(), Url())); };
    EXPECT_TRUE(Start(tRequest, Url()));
    EXPECT_TRUE(tRequest.tEnded.Wait());
    EXPECT_TRUE(SyncDownload(Url("/7"), "file"));
    EXPECT_EQ(tSeen, std::pair(std::this_thread::get_id(), Url("/7")));
    EXPECT_TRUE(Start(tLate, Url(STALL)));
    EXPECT_TRUE(m_tArrived.Wait(3));
    m_ptEngine->Destroy();
    EXPECT_EQ(tSeen.second, Url("/7")) << "Destroy() has ended the other";
    EXPECT_EQ(tLate.tReport.nAttempts, 0);
    WQCurl::SetTransferObserver(nullptr, nullptr);
}

TEST_F(CReportTest, ObserverIsReplacedWhileItsCallsOverlap)
{
    static std::atomic<int> s_nCalls;
    s_nCalls = 0;
    const auto pfnOverlap = [](const WQCurl::TRANSFER_REPORT_t&, void*)
    {
        const int nOwn = ++s_nCalls;
        for (int i = 0; i < 200 && s_nCalls == nOwn; ++i) // until the next call begins
        {
            std::this_thread::sleep_for(5ms);
        }
    };
    WQCurl::SetTransferObserver(pfnOverlap, nullptr);
    const auto fnDownload = [this](const std::string& strName)
    {
        for (int i = 0; i < 150; ++i)
        {
            EXPECT_TRUE(m_ptEngine->SyncDownloadFile(Url("/7"), Path(strName), 0, 0));
        }
    };
    std::thread tFirst(fnDownload, "first");
    std::thread tSecond(fnDownload, "second");
    EXPECT_TRUE(WaitUntil([] { return s_nCalls >= 2; }));
    WQCurl::SetTransferObserver(nullptr, nullptr);
    EXPECT_LT(s_nCalls, 250);
    tFirst.join();
    tSecond.join();
}

TEST_F(CReportTest, HeaderLinesAreThoseOfTheFinalAnswer)
{
    m_strRaw = "HTTP/1.1 103 Early\r\nETag: \"early\"\r\n\r\n"
               "HTTP/1.1 200 OK\r\n folded: too early\r\nETag:\t\"e\" \r\nX-Long: a\r\n  b\r\nLast-Modified: L\r\n"
               "Retry-After: Wed, 01 Jan 2020 10:00:07 GMT\r\nDate: Wed, 01 Jan 2020 10:00:00 GMT\r\n"
               "Transfer-Encoding: chunked\r\nX-Empty:\r\n\r\n0\r\nETag: \"trailer\"\r\n\r\n";
    EXPECT_TRUE(Get(Url(RAW)));
    EXPECT_EQ(std::tie(m_tReport.strEtag, m_tReport.strLastModified, m_tReport.nRetryAfter, m_tReport.nHttpStatus),
              std::make_tuple("\"e\"", "L", 7, 200));
    m_tReport.lstHeader.pop_front(); // libcurls differ in what they make of the folded line
    const std::list<std::string> lstExpected = {"ETag:\t\"e\"",
                                                "X-Long: a b",
                                                "Last-Modified: L",
                                                "Retry-After: Wed, 01 Jan 2020 10:00:07 GMT",
                                                "Date: Wed, 01 Jan 2020 10:00:00 GMT",
                                                "Transfer-Encoding: chunked",
                                                "X-Empty:"};
    EXPECT_EQ(m_tReport.lstHeader, lstExpected);
    for (const auto& [pszValue, nSeconds] :
         {std::pair("0", 0), std::pair("12", 12), std::pair("-1", -1), std::pair("1x", -1),
          std::pair("99999999999", INT_MAX), std::pair("Mon, 01 Jan 1990 00:00:00 GMT", 0)})
    {
        m_strRaw = std::string("HTTP/1.0 503 Busy\r\nRetry-After: ") + pszValue + "\r\n\r\n";
        EXPECT_TRUE(Get(Url(RAW)));
        EXPECT_EQ(m_tReport.nRetryAfter, nSeconds) << pszValue;
    }
    m_strRaw = "HTTP/1.0 200 OK\r\n" + Repeat("ETag:a\r\n", 300000 / 8) + "\r\n";
    Get(Url(RAW)); // some libcurls limit the number of lines
    EXPECT_LT(SecondsOf([] { EXPECT_EQ(Report().nAttempts, 1); }), 5);
}

TEST_F(CReportTest, ScopeHoldsForTheCallsOfItsThread)
{
    const auto fnSends = [this](const char* pszAgent)
    { return Answer(Url(HEAD)).find("User-Agent: " + std::string(pszAgent)) != std::string::npos; };
    m_tSettings.strUserAgent = "all";
    WQCurl::TRANSFER_SETTINGS_t tOwn;
    OUTCOME_t tDownload;
    {
        const WQCurl::CTransferScope tPlain(tOwn);
        EXPECT_FALSE(fnSends(""));
        tOwn.strUserAgent = "own";
        const WQCurl::CTransferScope tScope(tOwn);
        EXPECT_TRUE(tScope.IsValid());
        EXPECT_TRUE(fnSends("own"));
        std::thread([&] { EXPECT_TRUE(fnSends("all")); }).join();
        tDownload.Download(*m_ptEngine, Url(HEAD), Path("file"));
        tOwn.nRetries = -1;
        {
            const WQCurl::CTransferScope tInvalid(tOwn);
            std::string strRecord;
            CKVRDebug::SetSink([](unsigned int, const char* pszRecord, void* pRecords)
                               { *static_cast<std::string*>(pRecords) += pszRecord; },
                               &strRecord);
            EXPECT_FALSE(tInvalid.IsValid());
            EXPECT_EQ(Answer(Url(HEAD)), "failed: The transfer could not be initialised");
            EXPECT_EQ(OUTCOME_t().Download(*m_ptEngine, Url(HEAD), Path("refused")), -6);
            EXPECT_FALSE(SyncDownload(Url(HEAD), "refused"));
            CKVRDebug::SetSink([](unsigned int, const char*, void*) {}, nullptr);
            EXPECT_NE(strRecord.find("The settings of this thread's transfers are invalid!"), std::string::npos);
        }
        EXPECT_TRUE(fnSends("own"));
    }
    EXPECT_TRUE(fnSends("all"));
    EXPECT_TRUE(tDownload.tEnded.Wait());
    EXPECT_NE(ReadFile(Path("file")).find("User-Agent: own"), std::string::npos);
}
