/* The rest of a download that broke: what is asked for again, and which answers are taken for it. */

#include "engine_fixture.h"

namespace
{

const std::string BODY = []
{
    std::string strBody;
    for (int i = 0; strBody.size() < 1000000; ++i)
    {
        strBody += std::to_string(i) + " ";
    }
    return strBody;
}();
constexpr size_t BROKEN_AT = 300000;

std::string Head(const std::string& strStatus, size_t nLength, const std::string& strMore)
{
    return "HTTP/1.1 " + strStatus + "\r\nContent-Length: " + std::to_string(nLength) + "\r\n" + strMore + "\r\n\r\n";
}

std::string Range(size_t nFirst, size_t nLast, size_t nTotal)
{
    return "Content-Range: bytes " + std::to_string(nFirst) + "-" + std::to_string(nLast) + "/" +
           std::to_string(nTotal);
}

} // namespace

class CResumeTest : public CEngineTest
{
protected:
    CResumeTest()
    {
        m_ptEngine->Create();
        m_tSettings.nResumeAttempts = 3;
        const auto pfnObserve = [](const WQCurl::TRANSFER_REPORT_t& tReport, void* pThis)
        { static_cast<CResumeTest*>(pThis)->m_tReport = tReport; };
        WQCurl::SetTransferObserver(pfnObserve, this);
    }
    ~CResumeTest() override
    {
        WQCurl::SetTransferObserver(nullptr, nullptr);
        WQCurl::SetTransferDefaults({});
    }

    /** Serves the file, breaking off once in a while; fnRest, if there is one, answers who asks for the rest. */
    void Serve(CConnection& tConnection, const REQUEST_t& tRequest)
    {
        const size_t nRange = tRequest.strHead.find("\r\nRange: bytes=");
        const bool bRest = nRange != std::string::npos;
        const size_t nFirst = bRest ? std::stoul(tRequest.strHead.substr(nRange + 15)) : 0;
        m_strIfRange = bRest ? tRequest.strHead.substr(tRequest.strHead.find("\r\nIf-Range: ") + 12) : "";
        m_nRequests += 1;
        if (bRest && m_fnRest)
        {
            m_fnRest(tConnection);
        }
        else
        {
            tConnection.Send(
                bRest ? Head("206 Partial Content", BODY.size() - nFirst, Range(nFirst, BODY.size() - 1, BODY.size()))
                      : Head("200 OK", BODY.size(), m_strValidator));
            tConnection.Send(BODY.substr(nFirst, m_nBreakAfter));
        }
        tConnection.Shutdown();
    }

    /** Downloads on the worker as on this thread, and compares what comes of it. @return whether both succeeded */
    bool Download()
    {
        EXPECT_TRUE(WQCurl::SetTransferDefaults(m_tSettings));
        std::ofstream(Path("file")) << "old";
        OUTCOME_t tDownload;
        EXPECT_EQ(tDownload.Download(*m_ptEngine, m_tServer.Url(), Path("file")), 1);
        EXPECT_TRUE(tDownload.tEnded.Wait());
        const bool bSuccess = tDownload.eType == DOWNLOAD_TYPE_SUCCESS;
        EXPECT_TRUE(std::is_sorted(tDownload.vecPercent.begin(), tDownload.vecPercent.end()));
        EXPECT_EQ(ReadFile(Path("file")) == BODY, bSuccess);
        EXPECT_EQ(ReadFile(Path("file")) == "old", !bSuccess);
        m_strError = m_tReport.strErrorMsg;
        EXPECT_EQ(m_strError.empty(), bSuccess);
        EXPECT_TRUE(!bSuccess || tDownload.vecPercent.back() == 100);

        EXPECT_EQ(m_ptEngine->SyncDownloadFile(m_tServer.Url(), Path("sync"), 0, 0), bSuccess);
        EXPECT_EQ(ReadFile(Path("sync")) == BODY, bSuccess);
        std::filesystem::remove(Path("sync"));
        std::filesystem::remove(Path("sync.bak"));
        return bSuccess;
    }

    WQCurl::TRANSFER_DEFAULTS_t m_tSettings;
    WQCurl::TRANSFER_REPORT_t m_tReport;
    std::string m_strError;
    std::string m_strValidator = "ETag: \"one\"";
    size_t m_nBreakAfter = BROKEN_AT;
    std::function<void(CConnection&)> m_fnRest;
    std::atomic<int> m_nRequests{0};
    std::string m_strIfRange;
    CLoopbackServer m_tServer{[this](CConnection& tConnection, const REQUEST_t& tRequest)
                              { Serve(tConnection, tRequest); }};
};

TEST_F(CResumeTest, RestIsAskedForUntilTheFileIsWhole)
{
    EXPECT_TRUE(Download());
    EXPECT_EQ(m_nRequests, 2 * 4);
    EXPECT_EQ(m_strIfRange.substr(0, 7), "\"one\"\r\n");
    EXPECT_EQ(m_tReport.nAttempts, 4);
    EXPECT_EQ(m_tReport.nBytes, static_cast<long long>(BODY.size()));

    m_strValidator = "Date: Wed, 01 Jan 2020 10:02:00 GMT\r\nLast-Modified: Wed, 01 Jan 2020 10:00:00 GMT";
    EXPECT_TRUE(Download());
    EXPECT_EQ(m_strIfRange.substr(0, 29), "Wed, 01 Jan 2020 10:00:00 GMT");

    /* A busy server is asked again, when it says. */
    m_fnRest = [this](CConnection& tConnection)
    {
        tConnection.Send(Head("503 Busy", 0, "Retry-After: 1"));
        m_fnRest = nullptr;
        m_nBreakAfter = BODY.size();
    };
    const auto tStart = std::chrono::steady_clock::now();
    EXPECT_TRUE(Download());
    EXPECT_GE(std::chrono::steady_clock::now() - tStart, std::chrono::seconds(1));
}

TEST_F(CResumeTest, WhatIsNotTheRestFailsTheDownload)
{
    const size_t nRest = BODY.size() - BROKEN_AT;
    const std::string strRest = BODY.substr(BROKEN_AT);
    const size_t nLast = BODY.size() - 1;
    const std::string arrAnswers[] = {
        Head("200 OK", BODY.size(), "ETag: \"two\"") + BODY,
        Head("416 Range Not Satisfiable", 0, "Content-Range: bytes */9"),
        Head("404 Not Found", 4, "") + "gone",
        Head("206 Partial Content", nRest, "") + strRest,
        Head("206 Partial Content", nRest, Range(BROKEN_AT + 1, nLast, BODY.size())) + strRest,
        Head("206 Partial Content", nRest, Range(BROKEN_AT - 1, nLast, BODY.size())) + strRest,
        Head("206 Partial Content", nRest, Range(BROKEN_AT, nLast + 1, BODY.size() + 1)) + strRest,
        Head("206 Partial Content", nRest, Range(BROKEN_AT, nLast - 1, BODY.size())) + strRest,
        Head("206 Partial Content", nRest, "Content-Range: items 300000-" + std::to_string(nLast) + "/1000000") +
            strRest,
        Head("206 Partial Content", nRest, "Content-Range: bytes 300000-" + std::to_string(nLast) + "/*") + strRest,
        Head("206 Partial Content", nRest, "Content-Type: multipart/byteranges; boundary=x") + strRest,
        "HTTP/1.1 206 Partial Content\r\nTransfer-Encoding: chunked\r\n" + Range(BROKEN_AT, nLast, BODY.size()) +
            "\r\n\r\n" + "5\r\nshort\r\n0\r\n\r\n",
        Head("503 Busy", 0, ""),
    };
    m_tSettings.nResumeAttempts = 1;
    for (const std::string& strAnswer : arrAnswers)
    {
        SCOPED_TRACE(strAnswer.substr(0, 120));
        m_nRequests = 0;
        m_fnRest = [&strAnswer](CConnection& tConnection) { tConnection.Send(strAnswer); };
        EXPECT_FALSE(Download());
        EXPECT_LE(m_nRequests, 2 * 3) << "attempts are bounded";
    }
    m_fnRest = nullptr;
    for (const char* pszValidator :
         {"", "ETag: W/\"weak\"", "ETag: unquoted",
          "Date: Wed, 01 Jan 2020 10:00:30 GMT\r\nLast-Modified: Wed, 01 Jan 2020 10:00:00 GMT",
          "Last-Modified: Wed, 01 Jan 2020 10:00:00 GMT"})
    {
        SCOPED_TRACE(pszValidator);
        m_nRequests = 0;
        m_strValidator = pszValidator;
        EXPECT_FALSE(Download());
        EXPECT_EQ(m_nRequests, 2) << "nothing tells the rest from another file's";
    }
    m_strValidator = "ETag: \"one\"";
    m_tSettings.nResumeAttempts = 0;
    m_nRequests = 0;
    EXPECT_FALSE(Download());
    EXPECT_EQ(m_nRequests, 2) << "nobody wants it";
}

TEST_F(CResumeTest, AttemptsAndTimesAreBoundedAndLimitsHold)
{
    m_nBreakAfter = 100; // an attempt that brings little counts
    EXPECT_FALSE(Download());
    EXPECT_EQ(m_nRequests, 2 * 4);
    m_nBreakAfter = BROKEN_AT;
    m_tSettings.nLargestFile = static_cast<long long>(BODY.size()) - 1;
    EXPECT_FALSE(Download());
    EXPECT_NE(m_strError.find("larger"), std::string::npos);
    m_tSettings.nLargestFile = 0;

    /* While it waits, it is cancelled and ended like any other, and a total time ends it. */
    m_fnRest = [](CConnection& tConnection) { tConnection.Send(Head("503 Busy", 0, "Retry-After: 30")); };
    EXPECT_TRUE(WQCurl::SetTransferDefaults(m_tSettings));
    OUTCOME_t tCancelled;
    ASSERT_EQ(tCancelled.Download(*m_ptEngine, m_tServer.Url(), Path("file")), 1);
    OUTCOME_t tEnded;
    ASSERT_EQ(tEnded.Download(*m_ptEngine, m_tServer.Url(), Path("other")), 1);
    for (int i = 0; i < 1000 && m_nRequests < 2 * 4 + 2 * 3 + 4; ++i)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    const auto tStart = std::chrono::steady_clock::now();
    EXPECT_TRUE(m_ptEngine->CancelDownload(tCancelled.nId, true));
    EXPECT_TRUE(tCancelled.tEnded.Wait());
    EXPECT_EQ(tCancelled.eType, DOWNLOAD_TYPE_CANCEL);
    EXPECT_FALSE(m_ptEngine->SyncDownloadFile(m_tServer.Url(), Path("sync"), 5, 0));
    m_ptEngine->Destroy();
    EXPECT_EQ(tEnded.eType, DOWNLOAD_TYPE_FAIL);
    EXPECT_LT(std::chrono::steady_clock::now() - tStart, std::chrono::seconds(25));
}
