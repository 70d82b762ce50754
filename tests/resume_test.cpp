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

} // namespace

class CResumeTest : public CObservedTest
{
protected:
    CResumeTest()
    {
        g_tCalls.bHurry = true;
        m_tSettings.nRetries = 3;
    }

    /** Serves the file, and breaks off after m_nBreakAfter bytes of each answer. */
    void Serve(CConnection& tConnection, const REQUEST_t& tRequest)
    {
        const size_t nRange = tRequest.strHead.find("\r\nRange: bytes=");
        ++m_nRequests;
        if (m_nFirstSent < m_nFirst)
        {
            ++m_nFirstSent;
            tConnection.Send(m_strFirst);
        }
        else if (nRange == std::string::npos)
        {
            m_nRefused = 0;
            tConnection.Send((m_strHead.empty() ? Head("200 OK", BODY.size(), m_strValidator) : m_strHead) +
                             BODY.substr(0, m_nBreakAfter));
            m_fnBreak(tConnection);
        }
        else if (m_nRefused < m_nRefusals)
        {
            ++m_nRefused;
            tConnection.Send(m_strRefusal);
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

    /** Downloads on the worker and on this thread, and compares the results. @return whether both succeeded */
    bool DownloadTwice()
    {
        m_nRequests = 0;
        m_nFirstSent = 0;
        std::ofstream(Path("file")) << "old";
        OUTCOME_t tDownload;
        const bool bSuccess = Download(tDownload, m_tBreaking.Url()) == DOWNLOAD_TYPE_SUCCESS;
        EXPECT_TRUE(std::is_sorted(tDownload.vecPercent.begin(), tDownload.vecPercent.end()));
        EXPECT_TRUE(!bSuccess || tDownload.vecPercent.back() == 100);
        EXPECT_TRUE(ReadFile(Path("file")) == (bSuccess ? BODY : "old"));
        EXPECT_EQ(m_tReport.strErrorMsg.empty(), bSuccess);
        EXPECT_TRUE(m_tReport.dTotal >= m_dShortest && m_tReport.dTotal < 60) << m_tReport.dTotal;

        m_nFirstSent = 0;
        EXPECT_EQ(SyncDownload(m_tBreaking.Url(), "sync"), bSuccess);
        EXPECT_EQ(ReadFile(Path("sync")) == BODY, bSuccess);
        EXPECT_TRUE(m_tReport.dTotal >= m_dShortest && m_tReport.dTotal < 60) << m_tReport.dTotal;
        std::filesystem::remove(Path("sync"));
        std::filesystem::remove(Path("sync.bak"));
        return bSuccess;
    }

    const CConnection::SCRIPT_t m_fnServeFile = [this](CConnection& tConnection, const REQUEST_t& tRequest)
    { Serve(tConnection, tRequest); };
    std::string m_strValidator = "ETag: \"one\"";
    std::string m_strTag = "ETag: \"one\"\r\n"; /**< header lines of an answer with the rest */
    std::string m_strHead;                      /**< header lines of an answer with the file; empty: the usual ones */
    size_t m_nBreakAfter = BROKEN_AT;
    std::function<void(CConnection&)> m_fnBreak = [](CConnection&) {}; /**< breaks the answer with the file */
    std::string m_strRefusal;                                          /**< answer to requests for the rest */
    int m_nRefusals = 0;                                               /**< how many of a download's requests get it */
    std::atomic<int> m_nRefused{0};
    std::string m_strFirst; /**< answer to a download's first requests */
    int m_nFirst = 0;       /**< how many of them get it */
    std::atomic<int> m_nFirstSent{0};
    double m_dShortest = 0; /**< seconds that a download takes at least */
    std::atomic<int> m_nRequests{0};
    std::string m_strIfRange;
    CLoopbackServer m_tBreaking{m_fnServeFile};
};

TEST_F(CResumeTest, BrokenDownloadIsResumedUntilTheFileIsWhole)
{
    m_tSettings.nRetries = 1; // each attempt brings enough to allow another
    EXPECT_TRUE(DownloadTwice());
    EXPECT_EQ(m_nRequests, 2 * 4);
    EXPECT_EQ(m_strIfRange.substr(0, 7), "\"one\"\r\n");
    EXPECT_EQ(m_tReport.nAttempts, 4);
    EXPECT_EQ(m_tReport.nBytes, static_cast<long long>(BODY.size()));

    m_strHead = "HTTP/1.1 200 OK\r\nETag: \"one\"\r\nTransfer-Encoding: chunked\r\n\r\nF4240\r\n";
    EXPECT_TRUE(DownloadTwice()) << "only the rest tells the length";
    m_strHead = Head(PARTIAL, BODY.size(), m_strValidator);
    m_nBreakAfter = BODY.size();
    EXPECT_FALSE(DownloadTwice()) << "the first request asks for no part";
    m_nBreakAfter = BROKEN_AT;
    m_strHead.clear();

    m_strValidator = "Date: Wed, 01 Jan 2020 10:01:00 GMT\r\nLast-Modified: Wed, 01 Jan 2020 10:00:00 GMT";
    for (const char* pszTag : {"", "Last-Modified: Wed, 01 Jan 2020 10:00:00 GMT\r\n"})
    {
        m_strTag = pszTag;
        EXPECT_TRUE(DownloadTwice());
        EXPECT_EQ(m_strIfRange.substr(0, 29), "Wed, 01 Jan 2020 10:00:00 GMT");
    }
    m_strTag = "Last-Modified: Wed, 01 Jan 2020 10:00:01 GMT\r\n";
    EXPECT_FALSE(DownloadTwice()) << "the file has changed";
}

TEST_F(CResumeTest, DownloadWithoutDataIsRetriedFromTheBeginning)
{
    struct CASE_t
    {
        std::string strAnswer;
        const char* pszReason; /**< part of the text of the failure */
        bool bRetried = true;
        bool bFailOnHttpError = false;
        bool bUsedUp = false; /**< also try without an end of the failures */
    };
    const std::string strBusy = Head("503 Busy", 4, "Retry-After: 0") + "busy";
    const CASE_t arrCases[] = {
        {Head("408 Late", 4, "") + "late", "temporary"},
        {Head("429 Slow Down", 4, "") + "slow", "temporary"},
        {Head("500 Broken", 4, "") + "oops", "temporary"},
        {Head("502 Bad", 4, "") + "oops", "temporary"},
        {strBusy, "temporary", true, false, true},
        {strBusy, "temporary", true, true, true},
        {Head("504 Late", 4, "") + "late", "temporary"},
        {"no status line\r\n\r\n", ""},
        {"HTTP/1.1 200 OK\r\nContent-Le", "header lines", true, false, true},
        {Head("200 OK", 4, "ETag: \"zero\""), ""},
        {"", ""},
        {Head("206 Partial Content", 4, "") + "part", "unasked", false},
        {Head("404 Not Found", 4, "") + "gone", "404", false, true},
    };
    m_nBreakAfter = BODY.size();
    for (const CASE_t& tCase : arrCases)
    {
        SCOPED_TRACE(tCase.strAnswer);
        m_tSettings.bFailOnHttpError = tCase.bFailOnHttpError;
        m_strFirst = tCase.strAnswer;
        m_nFirst = 1;
        EXPECT_EQ(DownloadTwice(), tCase.bRetried);
        EXPECT_EQ(m_nRequests, tCase.bRetried ? 2 * 2 : 2);
        if (tCase.bUsedUp)
        {
            m_nFirst = 9;
            EXPECT_FALSE(DownloadTwice());
            EXPECT_EQ(m_nRequests, 2 * 4) << "no more requests than the retries allow";
            EXPECT_NE(m_tReport.strErrorMsg.find(tCase.pszReason), std::string::npos) << m_tReport.strErrorMsg;
        }
    }
    m_tSettings.bFailOnHttpError = false;
    m_tSettings.nRetries = 0;
    m_strFirst = strBusy;
    m_nFirst = 99;
    EXPECT_TRUE(SyncDownload(m_tBreaking.Url(), "busy"));
    EXPECT_EQ(ReadFile(Path("busy")), "busy") << "without retries every status is accepted";
    m_tSettings.nRetries = 3;
    m_nRequests = 0;
    EXPECT_EQ(Answer(m_tBreaking.Url()), "busy");
    EXPECT_FALSE(SyncDownload("http://nowhere.invalid:99999/", "busy"));
    EXPECT_EQ(m_nRequests + m_tReport.nAttempts, 2) << "neither is retried";
}

TEST_F(CResumeTest, RetryAfterDelaysTheNextAttempt)
{
    m_tSettings.bFailOnHttpError = true;
    m_nRefusals = 1;
    m_dShortest = 4; // longer than a random pause
    for (const char* pszPause : {"4", "Wed, 01 Jan 2020 10:00:04 GMT\r\nDate: Wed, 01 Jan 2020 10:00:00 GMT"})
    {
        m_strRefusal = Head("503 Busy", 0, std::string("Retry-After: ") + pszPause);
        EXPECT_TRUE(DownloadTwice()) << pszPause;
    }
    m_dShortest = 0;
    for (const auto& [pszPause, nSeconds] : {std::pair("31", 31), std::pair("9223372036854775807", INT_MAX)})
    {
        m_strRefusal = Head("429 Slow Down", 0, std::string("Retry-After: ") + pszPause);
        EXPECT_FALSE(DownloadTwice()) << pszPause;
        EXPECT_EQ(m_tReport.nRetryAfter, nSeconds);
    }
}

TEST_F(CResumeTest, EachFailureOfTheNetworkIsResumed)
{
    OUTCOME_t arrDownloads[5];
    const auto fnFindNext = [](const char* pszAddress)
    { return [pszAddress](CConnection&) { g_tCalls.pszAddress = pszAddress; }; };
    const std::tuple<const char*, int, std::function<void(CConnection&)>> arrCases[] = {
        {"no name", 3, fnFindNext(nullptr)},
        {"refused connection", 3, fnFindNext("127.0.0.2")},
        {"early end", 2, [](CConnection&) {}},
        {"silence", 2, [](CConnection& tConnection) { tConnection.Stall(); }},
        {"reset", 2,
         [&](CConnection& tConnection)
         {
             EXPECT_TRUE(arrDownloads[4].tProgress.Wait(2)); // data has arrived
             tConnection.Reset();
         }},
    };
    m_nBreakAfter = 600000;
    for (OUTCOME_t& tDownload : arrDownloads)
    {
        const auto& [pszFailure, nAttempts, fnBreak] = arrCases[&tDownload - arrDownloads];
        SCOPED_TRACE(pszFailure);
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
    const auto fnConnect = [&](CConnection& tConnection, const REQUEST_t&)
    {
        tConnection.Send("HTTP/1.1 200 OK\r\n\r\n");
        tServer.ServeThrough(tConnection);
    };
    CLoopbackServer tProxy(fnConnect);
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
    m_nRefusals = 9;
    for (const std::string& strAnswer : vecAnswers)
    {
        SCOPED_TRACE(strAnswer.substr(0, 120));
        m_strRefusal = strAnswer;
        EXPECT_FALSE(DownloadTwice());
        EXPECT_EQ(m_nRequests, 2 * 2);
        EXPECT_NE(m_tReport.strErrorMsg.find("of the file"), std::string::npos) << m_tReport.strErrorMsg;
    }
}

TEST_F(CResumeTest, DownloadWithoutStrongValidatorOrAttemptsIsNotResumed)
{
    const std::pair<const char*, int> arrCases[] = {
        {"ETag: W/\"one\"", 3},
        {"ETag: one\"", 3},
        {"ETag: \"one", 3},
        {"ETag: \"one\"\r\nContent-Encoding: gzip", 3},
        {"Date: Wed, 01 Jan 2020 10:00:59 GMT\r\nLast-Modified: Wed, 01 Jan 2020 10:00:00 GMT", 3},
        {"Last-Modified: Wed, 01 Jan 2020 10:00:00 GMT", 3},
        {"ETag: \"one\"", 0},
    };
    for (const auto& [pszValidator, nAttempts] : arrCases)
    {
        m_strValidator = pszValidator;
        m_tSettings.nRetries = nAttempts;
        EXPECT_FALSE(DownloadTwice()) << pszValidator;
        EXPECT_EQ(m_nRequests, 2) << pszValidator;
    }
    m_tSettings.nRetries = 3;
    EXPECT_FALSE(Get(m_tBreaking.Url()));
    EXPECT_EQ(m_nRequests, 2 + 1) << "a request is no download";
}

TEST_F(CResumeTest, AttemptsTimesAndSizesAreLimited)
{
    m_nBreakAfter = 100; // an attempt that brings little counts
    EXPECT_FALSE(DownloadTwice());
    EXPECT_EQ(m_nRequests, 2 * 4);
    m_nBreakAfter = BROKEN_AT;
    m_tSettings.nLargestFile = static_cast<long long>(BODY.size()) - 1;
    EXPECT_FALSE(DownloadTwice());
    EXPECT_NE(m_tReport.strErrorMsg.find("larger"), std::string::npos);
    m_tSettings.nLargestFile = 0;
    LimitFiles(BROKEN_AT - 1);
    EXPECT_FALSE(DownloadTwice());
    EXPECT_EQ(m_nRequests, 2) << "the rest would follow a hole";
    LimitFiles(RLIM_INFINITY);
    m_tSettings.nRetrySeconds = 20;
    m_strRefusal = Head("503 Busy", 0, "Retry-After: 30");
    m_nRefusals = 9;
    EXPECT_FALSE(DownloadTwice());
    EXPECT_EQ(m_nRequests, 2 * 2) << "the pause would end too late";
}

TEST_F(CResumeTest, PausesEndEarlyOnNetworkChangeCancellationAndDestroy)
{
    g_tCalls.bHurry = false;
    m_strRefusal = Head("503 Busy", 0, "Retry-After: 30");
    m_nRefusals = 9;
    OUTCOME_t tCancelled, tEnded;
    ASSERT_EQ(Start(tCancelled, m_tBreaking.Url(), "file"), 1);
    ASSERT_EQ(Start(tEnded, m_tBreaking.Url(), "other"), 1);
    EXPECT_TRUE(WaitUntil([&] { return m_nRequests == 4; }));
    const auto fnEnd = [&]
    {
        WQCurl::NetworkChanged();
        EXPECT_TRUE(WaitUntil([&] { return m_nRequests == 6; }));
        EXPECT_TRUE(m_ptEngine->CancelDownload(tCancelled.nId, true));
        EXPECT_TRUE(tCancelled.tEnded.Wait());
        WQCurl::NetworkChanged();
        EXPECT_TRUE(WaitUntil([&] { return m_nRequests == 7; }));
        EXPECT_FALSE(SyncDownload(m_tBreaking.Url(), "sync", 5));
        m_ptEngine->Destroy();
    };
    EXPECT_LT(SecondsOf(fnEnd), 25);
    EXPECT_EQ(tCancelled.eType, DOWNLOAD_TYPE_CANCEL);
    EXPECT_EQ(tEnded.eType, DOWNLOAD_TYPE_FAIL);

    m_tSettings.nRetries = 2;
    std::atomic<bool> bEnded{false};
    std::thread tTraveller([&] { WaitUntil([&] { return WQCurl::NetworkChanged(), bEnded.load(); }); });
    EXPECT_LT(SecondsOf([&] { EXPECT_FALSE(SyncDownload(m_tBreaking.Url(), "sync")); }), 25);
    bEnded = true;
    tTraveller.join();
}
