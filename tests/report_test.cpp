/* Reports on demand, and settings for single calls. */

#include "engine_fixture.h"

namespace
{

/** Returns the path and status that TransferReport() tells of, and the bytes; "none" if there is no report. */
std::string Reported()
{
    WQCurl::TRANSFER_REPORT_t t;
    return WQCurl::TransferReport(t) ? t.strUrl.substr(t.strUrl.rfind('/')) + " " + std::to_string(t.nHttpStatus) +
                                           " " + std::to_string(t.nBytes)
                                     : "none";
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
    EXPECT_FALSE(Get("http://127.0.0.1:1/"));
    EXPECT_EQ(Reported(), "/ 0 0");
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
    OUTCOME_t tRequest, tDownload, tInner, tBroken, tCancelled, tLate;
    std::vector<std::string> vecInRequest;
    tRequest.fnOnEvent = [&]
    {
        vecInRequest.push_back(Reported());
        EXPECT_TRUE(tInner.Start(*m_ptEngine, GetRequest(Url("/9"))));
        vecInRequest.push_back(Reported());
        EXPECT_TRUE(m_ptEngine->SyncDownloadFile(Url("/5"), Path("nested"), 0, 0));
        vecInRequest.push_back(Reported());
    };
    tInner.fnOnEvent = [] { EXPECT_EQ(Reported(), "/9 200 9"); };
    EXPECT_TRUE(Start(tRequest, Url("/7")));
    EXPECT_TRUE(tRequest.tEnded.Wait());
    EXPECT_TRUE(tInner.tEnded.Wait());
    EXPECT_EQ(vecInRequest, (std::vector<std::string>{"/7 200 7", "/7 200 7", "/5 200 5"}));
    EXPECT_EQ(Reported(), "none") << "that was another thread";

    std::vector<WQCurl::TRANSFER_REPORT_t> vecReports;
    tDownload.fnOnEvent = [&] { EXPECT_TRUE(WQCurl::TransferReport(vecReports.emplace_back())); };
    EXPECT_EQ(Download(tDownload, Url("/2000000")), DOWNLOAD_TYPE_SUCCESS);
    long long nBefore = 0;
    for (size_t i = 1; i < vecReports.size(); ++i)
    {
        EXPECT_TRUE(vecReports[i].nBytes >= nBefore && vecReports[i].nContentLength == 2000000 &&
                    vecReports[i].dTotal > 0 && vecReports[i].nResultCode == 0);
        nBefore = vecReports[i].nBytes;
    }
    EXPECT_EQ(nBefore, 2000000);

    std::string strReason;
    tBroken.fnOnEvent = [&]
    {
        WQCurl::TRANSFER_REPORT_t tReport;
        strReason = WQCurl::TransferReport(tReport) ? tReport.strErrorMsg : "none";
    };
    EXPECT_EQ(Download(tBroken, Url("/2000000/cut")), DOWNLOAD_TYPE_FAIL);
    EXPECT_TRUE(strReason != "none" && !strReason.empty());
    std::string strAtEnd;
    tLate.fnOnEvent = [&] { strAtEnd = Reported(); };
    EXPECT_EQ(Start(tLate, Url(STALL), "late"), 1);
    EXPECT_TRUE(tLate.tProgress.Wait());
    EXPECT_EQ(strAtEnd, "/stall 0 0") << "a progress event";
    m_ptEngine->Destroy();
    EXPECT_EQ(strAtEnd, "none") << "Destroy() has ended it";
}

TEST_F(CReportTest, HeaderLinesAreThoseOfTheFinalAnswer)
{
    m_strRaw = "HTTP/1.1 103 Early\r\nETag: \"early\"\r\n\r\n"
               "HTTP/1.1 200 OK\r\n folded: too early\r\nETag:\t\"e\" \r\nX-Long: a\r\n  b\r\nLast-Modified: L\r\n"
               "Retry-After: Wed, 01 Jan 2020 10:00:07 GMT\r\nDate: Wed, 01 Jan 2020 10:00:00 GMT\r\n"
               "Transfer-Encoding: chunked\r\nX-Empty:\r\n\r\n0\r\nETag: \"trailer\"\r\n\r\n";
    const std::list<std::string> lstExpected = {"ETag:\t\"e\"", "X-Long: a b", "Last-Modified: L"};
    WQCurl::TRANSFER_REPORT_t t;
    EXPECT_TRUE(Get(Url(RAW)));
    ASSERT_TRUE(WQCurl::TransferReport(t));
    EXPECT_EQ(std::tie(t.strEtag, t.strLastModified, t.nRetryAfter, t.nHttpStatus),
              std::make_tuple("\"e\"", "L", 7, 200));
    EXPECT_EQ(t.lstHeader.size(), 8U);
    EXPECT_TRUE(std::includes(t.lstHeader.begin(), t.lstHeader.end(), lstExpected.begin(), lstExpected.end(),
                              [](const auto&, const auto&) { return false; }) &&
                *std::next(t.lstHeader.begin(), 2) == "X-Long: a b" && t.lstHeader.back() == "X-Empty:");
    for (const auto& [pszValue, nSeconds] :
         {std::pair("0", 0), std::pair("12", 12), std::pair("-1", -1), std::pair("1x", -1),
          std::pair("99999999999", INT_MAX), std::pair("Mon, 01 Jan 1990 00:00:00 GMT", 0)})
    {
        m_strRaw = std::string("HTTP/1.0 503 Busy\r\nRetry-After: ") + pszValue + "\r\n\r\n";
        EXPECT_TRUE(Get(Url(RAW)));
        EXPECT_TRUE(WQCurl::TransferReport(t) && t.nRetryAfter == nSeconds) << pszValue << ": " << t.nRetryAfter;
    }
    m_strRaw = "HTTP/1.0 200 OK\r\n";
    for (int i = 0; i < 300000 / 8; ++i)
    {
        m_strRaw += "ETag:a\r\n";
    }
    m_strRaw += "\r\n";
    Get(Url(RAW)); // some libcurls limit the number of lines
    EXPECT_LT(SecondsOf([&] { EXPECT_TRUE(WQCurl::TransferReport(t)); }), 5);
}

TEST_F(CReportTest, ScopeHoldsForTheCallsOfItsThread)
{
    const auto fnTellHead = [](CConnection& tConnection, const REQUEST_t& tRequest)
    { tConnection.Answer(tRequest.strHead); };
    CLoopbackServer tServer(fnTellHead);
    const auto fnAgent = [&]
    {
        _HTTP_REQ_INFO_t tRequest = GetRequest(tServer.Url());
        const bool bGot = m_ptEngine->Get(&tRequest, true);
        const size_t nAgent = tRequest.strResponse.find("User-Agent: ");
        return !bGot                         ? tRequest.strErrorReason
               : nAgent == std::string::npos ? ""
                                             : tRequest.strResponse.substr(nAgent + 12, 3);
    };
    m_tSettings.strUserAgent = "all";
    EXPECT_TRUE(WQCurl::SetTransferDefaults(m_tSettings));
    WQCurl::TRANSFER_SETTINGS_t tOwn;
    OUTCOME_t tDownload;
    {
        const WQCurl::CTransferScope tPlain(tOwn);
        EXPECT_EQ(fnAgent(), "");
        tOwn.strUserAgent = "own";
        const WQCurl::CTransferScope tScope(tOwn);
        EXPECT_TRUE(tScope.IsValid());
        EXPECT_EQ(fnAgent(), "own");
        std::thread([&] { EXPECT_EQ(fnAgent(), "all"); }).join();
        tDownload.Download(*m_ptEngine, tServer.Url(), Path("file"));
        tOwn.nRetries = -1;
        {
            const WQCurl::CTransferScope tInvalid(tOwn);
            std::string strRecord;
            CKVRDebug::SetSink([](unsigned int, const char* pszRecord, void* pRecords)
                               { *static_cast<std::string*>(pRecords) += pszRecord; },
                               &strRecord);
            EXPECT_FALSE(tInvalid.IsValid());
            EXPECT_EQ(fnAgent(), "The transfer could not be initialised");
            EXPECT_NE(strRecord.find("The settings of this thread's transfers are invalid!"), std::string::npos);
            EXPECT_EQ(OUTCOME_t().Download(*m_ptEngine, tServer.Url(), Path("refused")), -6);
            EXPECT_FALSE(m_ptEngine->SyncDownloadFile(tServer.Url(), Path("refused"), 0, 0));
            CKVRDebug::SetSink([](unsigned int, const char*, void*) {}, nullptr);
        }
        EXPECT_EQ(fnAgent(), "own");
        EXPECT_TRUE(WQCurl::SetTransferDefaults({}));
        EXPECT_EQ(fnAgent(), "own");
    }
    EXPECT_EQ(fnAgent(), "");
    EXPECT_TRUE(tDownload.tEnded.Wait());
    EXPECT_NE(ReadFile(Path("file")).find("User-Agent: own"), std::string::npos);
}
