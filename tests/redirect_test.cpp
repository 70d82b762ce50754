/* Redirects: which are followed, where the rest of a file is requested, and what each server receives. */

#include <map>

#include "engine_fixture.h"

class CRedirectTest : public CEngineTest
{
protected:
    CRedirectTest()
    {
        m_tSettings.nMostRedirects = 3;
        std::ofstream(Path("file")) << "old";
    }

    /** Answers a path of m_mapAnswers with its raw bytes, in turn, others with the path. Keeps the request. */
    CConnection::SCRIPT_t Script(const std::string& strServer)
    {
        return [this, strServer](CConnection& tConnection, const REQUEST_t& tRequest)
        {
            const std::lock_guard<std::mutex> tGuard(m_tLock);
            m_vecHeads.push_back(strServer + tRequest.strHead);
            const auto itAnswer = m_mapAnswers.find(tRequest.strPath);
            if (itAnswer == m_mapAnswers.end())
            {
                tConnection.Answer(tRequest.strPath);
                return;
            }
            std::list<std::string>& lstAnswers = itAnswer->second;
            lstAnswers.splice(lstAnswers.end(), lstAnswers, lstAnswers.begin());
            const std::string strAnswer = lstAnswers.back(); // once it is sent, the test may change the list
            tConnection.Send(strAnswer);
            if (strAnswer.find("Content-Length: 0") == std::string::npos)
            {
                tConnection.Shutdown();
            }
        };
    }

    void Redirect(const std::string& strPath, const std::string& strUrl, const std::string& strStatus = "302")
    {
        m_mapAnswers[strPath] = {"HTTP/1.1 " + strStatus + " R\r\nContent-Length: 0\r\nLocation: " + strUrl +
                                 "\r\n\r\n"};
    }

    bool HasSent(size_t nRequest, const std::string& strText) const
    {
        return m_vecHeads.at(nRequest).find(strText) != std::string::npos;
    }

    std::mutex m_tLock;
    std::map<std::string, std::list<std::string>> m_mapAnswers; /**< set while no transfer runs */
    std::vector<std::string> m_vecHeads; /**< the requests in their order, each behind its server's name */
    CLoopbackServer m_tFirst{Script("first ")};
    CLoopbackServer m_tOther{Script("other ")};
    CLoopbackServer m_tTls{Script("tls "), true};
};

TEST_F(CRedirectTest, EachKindIsFollowedUpToTheMost)
{
    for (const char* pszStatus : {"301", "302", "303", "307", "308"})
    {
        Redirect("/1", "/2", pszStatus);
        Redirect("/2", "3 c?a=b#fragment", pszStatus);
        m_tSettings.nMostRedirects = 2;
        EXPECT_EQ(Answer(m_tFirst.Url("/1")), "/3%20c?a=b") << pszStatus;
        EXPECT_TRUE(m_tReport.bReused) << "a short redirect leaves its connection usable";
        EXPECT_EQ(m_tReport.strUrl, m_tFirst.Url("/1"));
        EXPECT_EQ(m_tReport.strFinalUrl, m_tFirst.Url("/3%20c?a=b"));
        EXPECT_EQ(Download(m_tFirst.Url("/1")), DOWNLOAD_TYPE_SUCCESS);
        EXPECT_TRUE(SyncDownload(m_tFirst.Url("/1"), "sync"));
        EXPECT_EQ(ReadFile(Path("file")) + ReadFile(Path("sync")), "/3%20c?a=b/3%20c?a=b");
        m_tSettings.nMostRedirects = 1;
        EXPECT_NE(Answer(m_tFirst.Url("/1")).find("more often"), std::string::npos) << pszStatus;
        m_tSettings.nMostRedirects = 3;
        _HTTP_REQ_INFO_t tPost{HTTP_METHOD_POST, m_tFirst.Url("/1"), {}, "form"};
        EXPECT_TRUE(WQCurl::SetTransferDefaults(m_tSettings));
        EXPECT_TRUE(m_ptEngine->Post(&tPost, true) && tPost.strResponse.empty()) << "a POST is never redirected";
    }
}

TEST_F(CRedirectTest, HeaderLinesAndCredentialsGoOnlyToTheFirstServer)
{
    m_tSettings.lstHeader = {"Authorization: Bearer t", "X-Both: settings", "X-Settings: s"};
    m_tSettings.strUserAgent = "agent/1";
    Redirect("/1", m_tOther.Url("/2"));
    Redirect("/2", "http://mallory:pw@" + m_tFirst.Url("/3").substr(7));
    Redirect("/3", m_tTls.Url("/4"));
    EXPECT_TRUE(WQCurl::SetTransferDefaults(m_tSettings));
    _HTTP_REQ_INFO_t tRequest = GetRequest("http://us%40er:pass@" + m_tFirst.Url("/1").substr(7));
    tRequest.lstHeader = {"x-both: own", "X-Own: o"};
    EXPECT_TRUE(m_ptEngine->Get(&tRequest, true));
    EXPECT_EQ(tRequest.strResponse, "/4");
    ASSERT_EQ(m_vecHeads.size(), 4U);
    for (size_t i = 0; i < 4; ++i)
    {
        for (const char* pszLine :
             {"Authorization: Bearer t\r\n", "x-both: own\r\n", "X-Own: o\r\n", "X-Settings: s\r\n"})
        {
            EXPECT_EQ(HasSent(i, pszLine), i == 0 || i == 2) << m_vecHeads[i];
        }
        EXPECT_FALSE(HasSent(i, "X-Both: settings") || HasSent(i, "Basic") || HasSent(i, "mallory")) << m_vecHeads[i];
        EXPECT_TRUE(HasSent(i, "User-Agent: agent/1\r\n"));
    }
    m_tSettings.lstHeader.clear();
    EXPECT_EQ(Answer(tRequest.strUrl), "/4");
    EXPECT_TRUE(HasSent(4, "Authorization: Basic dXNAZXI6cGFzcw==\r\n") && HasSent(6, "Authorization: Basic dXN"));
    EXPECT_FALSE(HasSent(5, "Authorization") || HasSent(7, "Authorization"));

    CLoopbackServer tStrict(Script("strict "), true, true);
    m_tSettings.strClientCertificate = TEST_CERTIFICATES "/server.pem";
    m_tSettings.strClientKey = TEST_CERTIFICATES "/server.key";
    Redirect("/1", tStrict.Url("/2"));
    Redirect("/2", "/5");
    EXPECT_FALSE(Get(m_tFirst.Url("/1"))) << "the client's certificate is for the first server";
    EXPECT_EQ(Answer(tStrict.Url("/2")), "/5");
}

TEST_F(CRedirectTest, UnsafeOrUnusableRedirectFailsTheTransfer)
{
    const std::string strEndless = std::string(100000, 'x');
    m_tSettings.nRetries = 2; // none is temporary
    const std::pair<const char*, const char*> arrCases[] = {
        {"Location: /1", "more often"},
        {"Location: file:///etc/passwd", "another scheme"},
        {"Location: gopher://127.0.0.1:1/", "another scheme"},
        {"Location: /\x01", "usable URL"},
        {"Location: http://127.0.0.1:99999/", "usable URL"},
        {"Location: ", "usable URL"},
        {"Location: /2\r\nLocation: /3", "usable URL"},
        {"X: y", "usable URL"},
    };
    for (const auto& [pszLine, pszReason] : arrCases)
    {
        m_mapAnswers["/1"] = {std::string("HTTP/1.1 302 R\r\n") + pszLine + "\r\n\r\n" + strEndless};
        m_vecHeads.clear();
        EXPECT_NE(Answer(m_tFirst.Url("/1")).find(pszReason), std::string::npos) << pszLine << m_tReport.strErrorMsg;
        EXPECT_EQ(Download(m_tFirst.Url("/1")), DOWNLOAD_TYPE_FAIL) << pszLine;
        EXPECT_LE(m_vecHeads.size(), strcmp(pszReason, "more often") == 0 ? 2U * 4U : 2U) << "it is not retried";
    }
    Redirect("/1", m_tTls.Url("/2"));
    Redirect("/2", m_tFirst.Url("/3"));
    EXPECT_NE(Answer(m_tFirst.Url("/1")).find("from https to http"), std::string::npos);
    EXPECT_EQ(m_tReport.strRedirectUrl, m_tFirst.Url("/3"));
    EXPECT_EQ(ReadFile(Path("file")), "old");

    m_mapAnswers["/1"] = {"HTTP/1.1 302 R\r\nLocation: /%0d%0aX:%20y\r\n\r\n" + strEndless};
    EXPECT_EQ(Answer(m_tFirst.Url("/1")), "/%0d%0aX:%20y") << "a long body is not received";
    EXPECT_EQ(m_tReport.nBytes, 13);
}

TEST_F(CRedirectTest, BrokenDownloadIsResumedAtTheFinalUrlAndRetriedAtTheFirst)
{
    g_tCalls.bHurry = true;
    m_tSettings.nRetries = 2;
    m_tSettings.lstHeader = {"X-Token: t"};
    Redirect("/1", m_tOther.Url("/2"));
    m_mapAnswers["/2"] = {
        "HTTP/1.1 503 Busy\r\nContent-Length: 4\r\n\r\nbusy",
        "HTTP/1.1 200 OK\r\nETag: \"v\"\r\nContent-Length: 8\r\n\r\nhalf",
        "HTTP/1.1 206 P\r\nETag: \"v\"\r\nContent-Range: bytes 4-7/8\r\nContent-Length: 4\r\n\r\nrest"};
    EXPECT_EQ(Download(m_tFirst.Url("/1")), DOWNLOAD_TYPE_SUCCESS) << m_tReport.strErrorMsg;
    EXPECT_EQ(ReadFile(Path("file")), "halfrest");
    const char* const arrServers[] = {"first ", "other ", "first ", "other ", "other "};
    ASSERT_EQ(m_vecHeads.size(), std::size(arrServers));
    for (size_t i = 0; i < std::size(arrServers); ++i)
    {
        EXPECT_EQ(m_vecHeads[i].rfind(arrServers[i], 0), 0U) << i;
        EXPECT_EQ(HasSent(i, "X-Token: t"), m_vecHeads[i][0] == 'f') << i;
    }
    EXPECT_TRUE(HasSent(4, "If-Range: \"v\""));
    EXPECT_EQ(m_tReport.strUrl, m_tFirst.Url("/1"));
    EXPECT_EQ(m_tReport.strFinalUrl, m_tOther.Url("/2"));
    EXPECT_EQ(m_tReport.nAttempts, 3);
}
