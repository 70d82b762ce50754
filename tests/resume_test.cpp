/* Retries of downloads: the failures that are retried, the answers that are taken for the rest, and the limits. */

#include "engine_fixture.h"

namespace
{

constexpr size_t BROKEN_AT = 300000;
const std::string PARTIAL = "206 Partial Content";

std::string Head(const std::string& strStatus, size_t nLength, const std::string& strMore)
{
    return "HTTP/1.1 " + strStatus + "\r\nContent-Length: " + std::to_string(nLength) + "\r\n" + strMore + "\r\n\r\n";
}

const std::string FIRST = BODY.substr(0, BROKEN_AT);
const std::string BROKEN = Head("200 OK", BODY.size(), "ETag: \"one\"") + FIRST;

} // namespace

class CResumeTest : public CEngineTest
{
protected:
    CResumeTest()
    {
        g_tCalls.bHurry = true;
        m_tSettings.nRetries = 3;
    }

    /** Gives m_vecAnswers, one a request, and then the file or its rest, of which m_nBreakAfter bytes arrive. */
    void Serve(CConnection& tConnection, const REQUEST_t& tRequest)
    {
        const size_t nRange = tRequest.strHead.find("\r\nRange: bytes=");
        const auto nRequest = static_cast<size_t>(m_nRequests++);
        if (nRequest < m_vecAnswers.size())
        {
            tConnection.Send(m_vecAnswers[nRequest]);
        }
        else if (nRange == std::string::npos)
        {
            tConnection.Send(Head("200 OK", BODY.size(), m_strValidator) + BODY.substr(0, m_nBreakAfter));
            m_fnBreak(tConnection);
        }
        else
        {
            const size_t nFirst = std::stoul(tRequest.strHead.substr(nRange + 15));
            m_strIfRange = tRequest.strHead.substr(tRequest.strHead.find("If-Range: ") + 10);
            tConnection.Send(Head(PARTIAL, BODY.size() - nFirst,
                                  m_strTag + "Content-Range: bytes " + std::to_string(nFirst) + "-999999/1000000") +
                             BODY.substr(nFirst, m_nBreakAfter));
        }
        tConnection.Shutdown();
    }

    /** Downloads on the worker and on this thread, each with so many requests. @return whether both succeeded */
    bool DownloadTwice(int nRequests)
    {
        int nSuccesses = 0;
        for (const bool bSync : {false, true})
        {
            OUTCOME_t tDownload;
            m_nRequests = 0;
            std::ofstream(Path("file")) << "old";
            const bool bSuccess = bSync ? SyncDownload(m_tBreaking.Url(), "file")
                                        : Download(tDownload, m_tBreaking.Url()) == DOWNLOAD_TYPE_SUCCESS;
            EXPECT_EQ(m_nRequests, nRequests) << m_tReport.strErrorMsg;
            EXPECT_TRUE(std::is_sorted(tDownload.vecPercent.begin(), tDownload.vecPercent.end()));
            EXPECT_TRUE(bSync || !bSuccess || tDownload.vecPercent.back() == 100);
            EXPECT_TRUE(ReadFile(Path("file")) == (bSuccess ? BODY : "old"));
            EXPECT_EQ(m_tReport.strErrorMsg.empty(), bSuccess);
            EXPECT_LT(m_tReport.dTotal, 60);
            std::filesystem::remove(Path("file.bak"));
            nSuccesses += int{bSuccess};
        }
        EXPECT_NE(nSuccesses, 1);
        return nSuccesses == 2;
    }

    bool HasReason(const std::string& strText) const
    {
        return m_tReport.strErrorMsg.find(strText) != std::string::npos;
    }

    const CConnection::SCRIPT_t m_fnServeFile = [this](CConnection& tConnection, const REQUEST_t& tRequest)
    { Serve(tConnection, tRequest); };
    std::string m_strValidator = "ETag: \"one\"";
    std::string m_strTag = "ETag: \"one\"\r\n"; /**< header lines of an answer with the rest */
    size_t m_nBreakAfter = BROKEN_AT;
    std::function<void(CConnection&)> m_fnBreak = [](CConnection&) {}; /**< breaks the answer with the file */
    std::vector<std::string> m_vecAnswers;                             /**< to a download's first requests */
    std::atomic<int> m_nRequests{0};                                   /**< of the download */
    std::string m_strIfRange;
    CLoopbackServer m_tBreaking{m_fnServeFile};
};

using CSlowResumeTest = CResumeTest;

TEST_F(CResumeTest, BrokenDownloadIsResumedUntilTheFileIsWhole)
{
    m_tSettings.nRetries = 1; // each attempt brings enough to allow another
    m_tSettings.nExpectedSize = m_tSettings.nLargestFile = static_cast<long long>(BODY.size());
    m_tSettings.strExpectedSha256 = "92983d1960bb42a3ea53f62d2a231a442a2a79d9976ef713972861aedafbb4e2";
    m_tSettings.strExpectedSha256[63] ^= 1;
    EXPECT_FALSE(DownloadTwice(4)) << "the checksum is that of the whole file";
    m_tSettings.strExpectedSha256[63] ^= 1;
    EXPECT_TRUE(DownloadTwice(4));
    EXPECT_EQ(m_strIfRange.substr(0, 7), "\"one\"\r\n");
    EXPECT_EQ(m_tReport.nAttempts, 4);
    EXPECT_EQ(m_tReport.nBytes, static_cast<long long>(BODY.size()));

    m_vecAnswers = {"HTTP/1.1 200 OK\r\nETag: \"one\"\r\nTransfer-Encoding: chunked\r\n\r\nF4240\r\n" + FIRST};
    EXPECT_TRUE(DownloadTwice(4)) << "only the rest tells the length";
    m_vecAnswers.clear();
    m_strValidator = "Date: Wed, 01 Jan 2020 10:01:00 GMT\r\nLast-Modified: Wed, 01 Jan 2020 10:00:00 GMT";
    for (const char* pszTag : {"", "Last-Modified: Wed, 01 Jan 2020 10:00:00 GMT\r\n"})
    {
        m_strTag = pszTag;
        EXPECT_TRUE(DownloadTwice(4));
        EXPECT_EQ(m_strIfRange.substr(0, 29), "Wed, 01 Jan 2020 10:00:00 GMT");
    }
    m_strTag = "Last-Modified: Wed, 01 Jan 2020 10:00:01 GMT\r\n";
    EXPECT_FALSE(DownloadTwice(2)) << "the file has changed";
}

TEST_F(CResumeTest, DownloadWithoutDataIsRetriedFromTheBeginning)
{
    std::vector<std::string> vecAnswers = {"no status line\r\n\r\n", "HTTP/1.1 200 OK\r\nContent-Le",
                                           Head("200 OK", 4, "ETag: \"zero\""), ""};
    for (const char* pszStatus : {"408 L", "429 S", "500 B", "502 B", "504 L", "503 Busy"})
    {
        vecAnswers.push_back(Head(pszStatus, 4, "Retry-After: 0") + "busy");
    }
    m_nBreakAfter = BODY.size();
    for (const std::string& strAnswer : vecAnswers)
    {
        m_vecAnswers = {strAnswer};
        EXPECT_TRUE(DownloadTwice(2)) << strAnswer;
    }
    for (const bool bFail : {false, true})
    {
        m_tSettings.bFailOnHttpError = bFail;
        m_vecAnswers.assign(9, vecAnswers.back());
        EXPECT_FALSE(DownloadTwice(4)) << "no more requests than the retries allow";
        EXPECT_TRUE(HasReason("temporary")) << m_tReport.strErrorMsg;
    }
    for (const auto& [pszStatus, pszReason] : {std::pair("206 Partial Content", "unasked"), std::pair("404 No", "404")})
    {
        m_vecAnswers = {Head(pszStatus, 4, "") + "none"};
        EXPECT_FALSE(DownloadTwice(1));
        EXPECT_TRUE(HasReason(pszReason)) << m_tReport.strErrorMsg;
    }
    m_tSettings.bFailOnHttpError = false;
    m_tSettings.nRetries = 0;
    m_vecAnswers.assign(9, vecAnswers.back());
    m_nRequests = 0;
    EXPECT_TRUE(SyncDownload(m_tBreaking.Url(), "busy"));
    EXPECT_EQ(ReadFile(Path("busy")), "busy") << "without retries every status is accepted";
    m_tSettings.nRetries = 3;
    EXPECT_EQ(Answer(m_tBreaking.Url()), "busy");
    EXPECT_EQ(m_nRequests, 2) << "a request is no download";
    EXPECT_FALSE(SyncDownload("http://nowhere.invalid:99999/", "busy"));
    EXPECT_EQ(m_tReport.nAttempts, 1);
}

TEST_F(CSlowResumeTest, RetryAfterDelaysTheNextAttempt)
{
    m_vecAnswers = {BROKEN, Head("503 Busy", 0, "Retry-After: 4")};
    EXPECT_TRUE(DownloadTwice(5));
    EXPECT_GE(m_tReport.dTotal, 4) << "longer than a random pause";
    m_vecAnswers = {BROKEN, Head("429 Slow Down", 0, "Retry-After: 31")};
    EXPECT_FALSE(DownloadTwice(2)) << "no pause is that long";
    EXPECT_EQ(m_tReport.nRetryAfter, 31);
}

TEST_F(CSlowResumeTest, EachFailureOfTheNetworkIsResumed)
{
    CGate* ptProgress = nullptr;
    const std::tuple<const char*, int, std::function<void(CConnection&)>> arrCases[] = {
        {"no name", 3, [](CConnection&) { g_tCalls.pszAddress = nullptr; }},
        {"refused connection", 3, [](CConnection&) { g_tCalls.pszAddress = "127.0.0.2"; }},
        {"silence", 2, [](CConnection& tConnection) { tConnection.Stall(); }},
        {"reset after data", 2,
         [&](CConnection& tConnection)
         {
             EXPECT_TRUE(ptProgress->Wait(2));
             tConnection.Reset();
         }},
    };
    m_nBreakAfter = 600000;
    for (const auto& [pszFailure, nAttempts, fnBreak] : arrCases)
    {
        SCOPED_TRACE(pszFailure);
        OUTCOME_t tDownload;
        ptProgress = &tDownload.tProgress;
        m_fnBreak = fnBreak;
        g_tCalls.nLookUps = 0;
        EXPECT_EQ(Download(tDownload, "http://counted.invalid:" + std::to_string(m_tBreaking.Port())),
                  DOWNLOAD_TYPE_SUCCESS);
        EXPECT_TRUE(ReadFile(Path("file")) == BODY);
        EXPECT_EQ(m_tReport.nAttempts, nAttempts);
        EXPECT_EQ(g_tCalls.nLookUps, nAttempts) << "each attempt looks the name up";
    }
}

TEST_F(CResumeTest, AnswerOfTheProxyIsNotTakenForTheRest)
{
    CLoopbackServer tServer(m_fnServeFile, true);
    CLoopbackServer tProxy(
        [&](CConnection& tConnection, const REQUEST_t&)
        {
            tConnection.Send("HTTP/1.1 200 OK\r\n\r\n");
            tServer.ServeThrough(tConnection);
        });
    m_tSettings.strProxy = tProxy.Url("");
    EXPECT_EQ(Download(tServer.Url()), DOWNLOAD_TYPE_SUCCESS) << m_tReport.strErrorMsg;
}

TEST_F(CResumeTest, AnswerThatIsNotTheRestFailsTheDownload)
{
    const size_t nRest = BODY.size() - BROKEN_AT;
    const std::string RANGE = "Content-Range: bytes 300000-999999/1000000";
    std::vector<std::string> vecAnswers = {
        Head("200 OK", BODY.size(), "ETag: \"two\"") + BODY,
        Head("416 Range Not Satisfiable", 0, "Content-Range: bytes */9"),
        Head("404 Not Found", 4, "") + "gone",
        "HTTP/1.1 206 Partial Content\r\nTransfer-Encoding: chunked\r\n" + m_strTag + RANGE +
            "\r\n\r\n5\r\nshort\r\n0\r\n\r\n",
    };
    for (const char* pszFields : {"", "ETag: \"two\"\r\n", "ETag: W/\"one\"\r\n", "ETag: \"one\"\r\nETag: \"two\"\r\n",
                                  "ETag: \"one\"\r\nContent-Encoding: gzip\r\n"})
    {
        vecAnswers.push_back(Head(PARTIAL, nRest, pszFields + RANGE) + BODY.substr(BROKEN_AT));
    }
    for (const char* pszRange :
         {"", "Content-Type: multipart/byteranges; boundary=x", "Content-Range: bytes 300001-999999/1000000",
          "Content-Range: bytes 299999-999999/1000000", "Content-Range: bytes 300000-1000000/1000001",
          "Content-Range: bytes 300000-999998/1000000", "Content-Range: items 300000-999999/1000000",
          "Content-Range: bytes 300000-999999/*"})
    {
        vecAnswers.push_back(Head(PARTIAL, nRest, m_strTag + pszRange) + BODY.substr(BROKEN_AT));
    }
    m_tSettings.nRetries = 1;
    for (const std::string& strAnswer : vecAnswers)
    {
        m_vecAnswers = {BROKEN, strAnswer};
        EXPECT_FALSE(DownloadTwice(2)) << strAnswer.substr(0, 120);
        EXPECT_TRUE(HasReason("of the file")) << m_tReport.strErrorMsg;
    }
}

TEST_F(CResumeTest, DownloadWithoutStrongValidatorIsNotResumed)
{
    for (const char* pszValidator :
         {"ETag: W/\"one\"", "ETag: one\"", "ETag: \"one", "ETag: \"one\"\r\nContent-Encoding: gzip",
          "Date: Wed, 01 Jan 2020 10:00:59 GMT\r\nLast-Modified: Wed, 01 Jan 2020 10:00:00 GMT",
          "Last-Modified: Wed, 01 Jan 2020 10:00:00 GMT"})
    {
        m_strValidator = pszValidator;
        EXPECT_FALSE(DownloadTwice(1)) << pszValidator;
    }
}

TEST_F(CResumeTest, AttemptsTimesAndSizesAreLimited)
{
    m_nBreakAfter = 100; // an attempt that brings little counts
    EXPECT_FALSE(DownloadTwice(4));
    m_nBreakAfter = BROKEN_AT;
    m_tSettings.nLargestFile = static_cast<long long>(BODY.size()) - 1;
    EXPECT_FALSE(DownloadTwice(4));
    EXPECT_TRUE(HasReason("larger"));
    m_tSettings.nLargestFile = 0;
    LimitFiles(BROKEN_AT - 1);
    EXPECT_FALSE(DownloadTwice(1)) << "the rest would follow a hole";
    LimitFiles(RLIM_INFINITY);
    m_tSettings.nRetrySeconds = 20;
    m_vecAnswers = {BROKEN, Head("503 Busy", 0, "Retry-After: 30")};
    EXPECT_FALSE(DownloadTwice(2)) << "the pause would end too late";
    m_tSettings.nRetries = 0;
    EXPECT_FALSE(DownloadTwice(1));
}

TEST_F(CSlowResumeTest, PausesEndEarlyOnNetworkChangeCancellationAndDestroy)
{
    g_tCalls.bHurry = false;
    m_vecAnswers.assign(99, Head("503 Busy", 0, "Retry-After: 30"));
    OUTCOME_t tCancelled, tEnded;
    ASSERT_EQ(Start(tCancelled, m_tBreaking.Url(), "file"), 1);
    ASSERT_EQ(Start(tEnded, m_tBreaking.Url(), "other"), 1);
    EXPECT_TRUE(WaitUntil([&] { return m_nRequests == 2; }));
    const auto fnEnd = [&]
    {
        WQCurl::NetworkChanged();
        EXPECT_TRUE(WaitUntil([&] { return m_nRequests == 4; }));
        EXPECT_EQ(Cancel(tCancelled), DOWNLOAD_TYPE_CANCEL);
        WQCurl::NetworkChanged();
        EXPECT_TRUE(WaitUntil([&] { return m_nRequests == 5; }));
        EXPECT_FALSE(SyncDownload(m_tBreaking.Url(), "sync", 5));
        m_ptEngine->Destroy();
    };
    EXPECT_LT(SecondsOf(fnEnd), 25);
    EXPECT_EQ(tEnded.eType, DOWNLOAD_TYPE_FAIL);

    m_tSettings.nRetries = 2;
    std::atomic<bool> bEnded{false};
    std::thread tTraveller([&] { WaitUntil([&] { return WQCurl::NetworkChanged(), bEnded.load(); }); });
    EXPECT_LT(SecondsOf([&] { EXPECT_FALSE(SyncDownload(m_tBreaking.Url(), "sync")); }), 25);
    bEnded = true;
    tTraveller.join();
}
