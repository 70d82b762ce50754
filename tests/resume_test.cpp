/* The rest of a download that broke: what is asked for again, and which answers are taken for it. */

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
    CResumeTest() { m_tSettings.nResumeAttempts = 3; }

    /** Serves the file, breaking off once in a while; fnRest, if there is one, answers who asks for the rest. */
    void Serve(CConnection& tConnection, const REQUEST_t& tRequest)
    {
        const size_t nRange = tRequest.strHead.find("\r\nRange: bytes=");
        const bool bRest = nRange != std::string::npos;
        const std::string strFirst = bRest ? std::to_string(std::stoul(tRequest.strHead.substr(nRange + 15))) : "0";
        const size_t nFirst = std::stoul(strFirst);
        bRest && !m_fnRest ? void(m_strIfRange = tRequest.strHead.substr(tRequest.strHead.find("If-Range: ") + 10))
                           : void();
        m_nRequests += 1;
        const std::string strRest =
            Head(PARTIAL, BODY.size() - nFirst, m_strTag + "Content-Range: bytes " + strFirst + "-999999/1000000");
        const std::string strWhole = m_strHead.empty() ? Head("200 OK", BODY.size(), m_strValidator) : m_strHead;
        const std::string strAnswer = (bRest ? strRest : strWhole) + BODY.substr(nFirst, m_nBreakAfter);
        bRest&& m_fnRest ? m_fnRest(tConnection) : static_cast<void>(tConnection.Send(strAnswer));
        tConnection.Shutdown();
    }

    /** Downloads on the worker as on this thread, and compares what comes of it. @return whether both succeeded */
    bool DownloadTwice()
    {
        m_nRequests = 0;
        std::ofstream(Path("file")) << "old";
        OUTCOME_t tDownload;
        const bool bSuccess = Download(tDownload, m_tBreaking.Url()) == DOWNLOAD_TYPE_SUCCESS;
        EXPECT_TRUE(std::is_sorted(tDownload.vecPercent.begin(), tDownload.vecPercent.end()));
        EXPECT_TRUE(!bSuccess || tDownload.vecPercent.back() == 100);
        EXPECT_TRUE(ReadFile(Path("file")) == (bSuccess ? BODY : "old"));
        EXPECT_EQ(m_tReport.strErrorMsg.empty(), bSuccess);

        EXPECT_EQ(SyncDownload(m_tBreaking.Url(), "sync"), bSuccess);
        EXPECT_EQ(ReadFile(Path("sync")) == BODY, bSuccess);
        std::filesystem::remove(Path("sync"));
        std::filesystem::remove(Path("sync.bak"));
        return bSuccess;
    }

    std::string m_strValidator = "ETag: \"one\"";
    std::string m_strTag = "ETag: \"one\"\r\n"; /**< of the rest */
    std::string m_strHead;                      /**< of an answer with the whole file; empty: the usual one */
    size_t m_nBreakAfter = BROKEN_AT;
    std::function<void(CConnection&)> m_fnRest;
    std::atomic<int> m_nRequests{0};
    std::string m_strIfRange;
    CLoopbackServer m_tBreaking{[this](CConnection& tConnection, const REQUEST_t& tRequest)
                                { Serve(tConnection, tRequest); }};
};

TEST_F(CResumeTest, RestIsAskedForUntilTheFileIsWhole)
{
    EXPECT_TRUE(DownloadTwice());
    EXPECT_EQ(m_nRequests, 2 * 4);
    EXPECT_EQ(m_strIfRange.substr(0, 7), "\"one\"\r\n");
    EXPECT_EQ(m_tReport.nAttempts, 4);
    EXPECT_EQ(m_tReport.nBytes, static_cast<long long>(BODY.size()));

    m_strValidator = "Date: Wed, 01 Jan 2020 10:01:00 GMT\r\nLast-Modified: Wed, 01 Jan 2020 10:00:00 GMT";
    for (const char* pszTag : {"", "Last-Modified: Wed, 01 Jan 2020 10:00:00 GMT\r\n"})
    {
        m_strTag = pszTag;
        EXPECT_TRUE(DownloadTwice());
        EXPECT_EQ(m_strIfRange.substr(0, 29), "Wed, 01 Jan 2020 10:00:00 GMT");
    }
    m_strTag = "Last-Modified: Wed, 01 Jan 2020 10:00:01 GMT\r\n";
    EXPECT_FALSE(DownloadTwice()) << "the file has changed";
    m_strTag = "ETag: \"one\"\r\n";

    m_strHead = "HTTP/1.1 200 OK\r\nETag: \"one\"\r\nTransfer-Encoding: chunked\r\n\r\nF4240\r\n";
    EXPECT_TRUE(DownloadTwice()) << "only the rest tells the length";
    m_strHead.clear();

    /* A busy server is asked again when it says, which is after all pauses that chance may make. */
    m_fnRest = [this](CConnection& tConnection)
    {
        tConnection.Send(Head("503 Busy", 0, "Retry-After: 4"));
        m_fnRest = nullptr;
        m_nBreakAfter = BODY.size();
    };
    EXPECT_GE(SecondsOf([&] { EXPECT_TRUE(DownloadTwice()); }), 4);

    m_strHead = Head(PARTIAL, BODY.size(), m_strValidator);
    EXPECT_FALSE(DownloadTwice()) << "nobody asked for a part";
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
        Head("503 Busy", 0, ""),
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
    m_tSettings.nResumeAttempts = 1;
    for (const std::string& strAnswer : vecAnswers)
    {
        SCOPED_TRACE(strAnswer.substr(0, 120));
        m_fnRest = [&strAnswer](CConnection& tConnection) { tConnection.Send(strAnswer); };
        EXPECT_FALSE(DownloadTwice());
        EXPECT_LE(m_nRequests, 2 * 3) << "attempts are bounded";
        EXPECT_NE(m_tReport.strErrorMsg.find("of the file"), std::string::npos) << m_tReport.strErrorMsg;
    }
    m_strHead = "HTTP/1.1 200 OK\r\nETag: \"one\"\r\nTransfer-Encoding: chunked\r\n\r\nF4240\r\n";
    m_fnRest = [&](CConnection& tConnection)
    {
        tConnection.Send(Head(PARTIAL, nRest,
                              m_strTag + "Content-Range: bytes 300000-9223372036854775807/" + "-9223372036854775808"));
    };
    EXPECT_FALSE(DownloadTwice());
    EXPECT_NE(m_tReport.strErrorMsg.find("another part"), std::string::npos) << m_tReport.strErrorMsg;
    m_strHead.clear();
    m_fnRest = nullptr;
    for (const char* pszValidator :
         {"", "ETag: W/\"weak\"", "ETag: unquoted", "ETag: \"one\"\r\nContent-Encoding: gzip",
          "Date: Wed, 01 Jan 2020 10:00:59 GMT\r\nLast-Modified: Wed, 01 Jan 2020 10:00:00 GMT",
          "Last-Modified: Wed, 01 Jan 2020 10:00:00 GMT"})
    {
        SCOPED_TRACE(pszValidator);
        m_strValidator = pszValidator;
        EXPECT_FALSE(DownloadTwice());
        EXPECT_EQ(m_nRequests, 2) << "nothing tells the rest from another file's";
    }
    m_strValidator = "ETag: \"one\"";
    m_tSettings.nResumeAttempts = 0;
    EXPECT_FALSE(DownloadTwice());
    EXPECT_EQ(m_nRequests, 2) << "nobody wants it";
}

TEST_F(CResumeTest, AttemptsAndTimesAreBoundedAndLimitsHold)
{
    m_nBreakAfter = 100; // an attempt that brings little counts
    EXPECT_FALSE(DownloadTwice());
    EXPECT_EQ(m_nRequests, 2 * 4);
    m_nBreakAfter = BROKEN_AT;
    m_tSettings.nLargestFile = static_cast<long long>(BODY.size()) - 1;
    EXPECT_FALSE(DownloadTwice());
    EXPECT_NE(m_tReport.strErrorMsg.find("larger"), std::string::npos);
    m_tSettings.nLargestFile = 0;
    m_tSettings.nResumeSeconds = 20;
    m_fnRest = [](CConnection& tConnection)
    { tConnection.Send(Head("503 Busy", 0, "Retry-After: 9223372036854775807")); };
    EXPECT_FALSE(DownloadTwice());
    EXPECT_EQ(m_nRequests, 2 * 2) << "the pause would end too late";
    m_tSettings.nResumeSeconds = 0;

    /* During a back-off a change of network ends the pause, and cancelling, Destroy() and the total time the transfer.
     */
    m_nRequests = 0;
    m_fnRest = [](CConnection& tConnection) { tConnection.Send(Head("503 Busy", 0, "Retry-After: 30")); };
    OUTCOME_t tCancelled;
    ASSERT_EQ(Start(tCancelled, m_tBreaking.Url(), "file"), 1);
    OUTCOME_t tEnded;
    ASSERT_EQ(Start(tEnded, m_tBreaking.Url(), "other"), 1);
    EXPECT_TRUE(WaitUntil([&] { return m_nRequests == 4; }));
    const auto fnEnd = [&]
    {
        WQCurl::NetworkChanged();
        EXPECT_TRUE(WaitUntil([&] { return m_nRequests == 6; }));
        EXPECT_TRUE(m_ptEngine->CancelDownload(tCancelled.nId, true));
        EXPECT_TRUE(tCancelled.tEnded.Wait());
        EXPECT_FALSE(SyncDownload(m_tBreaking.Url(), "sync", 5));
        m_ptEngine->Destroy();
    };
    EXPECT_LT(SecondsOf(fnEnd), 25);
    EXPECT_EQ(tCancelled.eType, DOWNLOAD_TYPE_CANCEL);
    EXPECT_EQ(tEnded.eType, DOWNLOAD_TYPE_FAIL);
}
