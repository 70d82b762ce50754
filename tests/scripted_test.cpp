/* The scripted web, as far as examples/testing does not use it, and the waiting downloads over it. */

#include "engine_fixture.h"
#include "veltra/scripted/scripted_web.h"

class CScriptedTest : public CEngineTest
{
protected:
    CScriptedTest() { g_tCalls.bHurry = true; }

    /** Downloads a URL. @return the file, or the result code of the failure */
    std::string Fetch(const std::string& strUrl)
    {
        return SyncDownload(strUrl, "file") ? ReadFile(Path("file")) : std::to_string(m_tReport.nResultCode);
    }

    CScriptedWeb m_tWeb;
};

TEST_F(CScriptedTest, ScriptsServeInTheirOrder)
{
    EXPECT_EQ(Fetch("http://unknown.example/"), "6");
    EXPECT_EQ(m_tReport.strErrorMsg, "Could not resolve host: unknown.example");
    m_tWeb.Answer("http://b.example", {200, {}, "first"});
    m_tWeb.Fail("http://b.example/#fragment", 7, "Refused");
    EXPECT_EQ(Fetch("http://b.example#other"), "first");
    EXPECT_EQ(Fetch("http://b.example"), "7");
    EXPECT_EQ(m_tReport.nSystemError, ECONNREFUSED);
    const std::string strLong(10000, 'x');
    m_tWeb.Answer("http://b.example/", {200, {"Content-Type: text/plain"}, strLong, 3}); // exceeds a time slice
    EXPECT_EQ(Fetch("http://b.example"), strLong);
    EXPECT_EQ(m_tReport.strContentType, "text/plain");
    const CScriptedWeb tSecond;
    EXPECT_EQ(Fetch("http://b.example"), strLong);
    EXPECT_EQ(m_tWeb.Requests().size(), 5U);
    m_tWeb.Answer("ftp://b.example/");
    EXPECT_EQ(Fetch("ftp://b.example/"), "1");
    EXPECT_EQ(Fetch("http://b example/"), "3");
}

TEST_F(CScriptedTest, AnswersAreReadAsLibcurlReadsThem)
{
    const std::string strHundred(100, 'x');
    const std::tuple<SCRIPTED_ANSWER_t, std::string, long long> arrRows[] = {
        {{200, {"Content-Length: 200"}, strHundred}, "18", 200}, {{200, {"content-length:2"}, strHundred}, "xx", 2},
        {{200, {"Transfer-Encoding: chunked"}, "x"}, "x", -1},   {{204, {}, strHundred}, "", -1},
        {{302, {"Location: /file"}, strHundred}, "47", 100},     {{404, {}, strHundred}, "22", 100},
    };
    m_tSettings.bFailOnHttpError = true;
    m_tSettings.nMostRedirects = 2;
    for (const auto& [tAnswer, strOutcome, nLength] : arrRows)
    {
        m_tWeb.Answer("https://a.example/file", tAnswer);
        EXPECT_EQ(Fetch("https://a.example/file"), strOutcome);
        EXPECT_EQ(m_tReport.nContentLength, nLength) << strOutcome;
    }
    EXPECT_EQ(m_tReport.strErrorMsg, "The requested URL returned error: 404");
}

TEST_F(CScriptedTest, BrokenDownloadIsResumedWithTheSameVersionOnly)
{
    m_tSettings.nRetries = 1;
    m_tSettings.lstHeader = {"X-Token: secret"};
    const SCRIPTED_ANSWER_t tAnswer{200, {"ETag: \"1\""}, "0123456789"};
    const SCRIPTED_ANSWER_t tLong{200, {"ETag: \"1\""}, BODY};
    const std::string strLong = "http://c.example/long";
    m_tWeb.Fail(strLong, 18, "Closed", tLong, 50000);
    m_tWeb.Answer(strLong, tLong);
    m_tWeb.Hold(strLong, 100000); // of the rest
    OUTCOME_t tDownload;
    ASSERT_EQ(Start(tDownload, strLong, "long"), 1);
    EXPECT_TRUE(m_tWeb.WaitUntilHeld(strLong));
    for (const bool bSame : {true, false})
    {
        const std::string strUrl = bSame ? "http://c.example/" : "http://c.example/other";
        m_tWeb.Fail(strUrl, 18, "Closed", tAnswer, 4);
        m_tWeb.Answer(strUrl, {200, {bSame ? "ETag: \"1\"" : "ETag: \"2\""}, tAnswer.strBody});
        EXPECT_EQ(Fetch(strUrl), bSame ? tAnswer.strBody : "33");
        EXPECT_EQ(m_tReport.nHttpStatus, bSame ? 206 : 200);
        EXPECT_EQ(m_tWeb.Requests().back().lstHeader,
                  std::list<std::string>({"X-Token: secret", "If-Range: \"1\"", "Range: bytes=4-"}));
    }
    m_tWeb.Release(strLong);
    EXPECT_TRUE(tDownload.tEnded.Wait());
    EXPECT_TRUE(ReadFile(Path("long")) == BODY) << "another download does not disturb it";
}

TEST_F(CScriptedTest, QueryUsesTheEngineOfAnApplicationThatHidesItsSymbols)
{
    m_tWeb.Answer("http://info.example/", {200, {}, "<info/>"});
    std::string strInfo;
    CSingleton<CWebConnector>::m_pObj = m_ptEngine.get();
    EXPECT_TRUE(CHttpRequest().RequestServerAppBinaryInfo("http://info.example/", strInfo));
    CSingleton<CWebConnector>::m_pObj = nullptr;
    EXPECT_EQ(strInfo, "<info/>");
}

TEST_F(CScriptedTest, DownloadsAboveTheMostWaitInOrder)
{
    m_tSettings.nMostDownloads = 1;
    const std::string strUrl = "http://d.example/";
    m_tWeb.Answer(strUrl + "request");
    m_tWeb.Hold(strUrl + "0");
    std::vector<OUTCOME_t> vecDownloads(40);
    std::vector<std::string> vecExpected{strUrl + "0", strUrl + "request"};
    for (size_t i = 0; i < vecDownloads.size(); ++i)
    {
        const std::string strName = std::to_string(i);
        m_tWeb.Answer(strUrl + strName);
        ASSERT_EQ(Start(vecDownloads[i], strUrl + strName, strName), 1);
        i == 0 || i == 10 ? void() : vecExpected.push_back(strUrl + strName);
    }
    EXPECT_EQ(Cancel(vecDownloads[10]), DOWNLOAD_TYPE_CANCEL);
    EXPECT_TRUE(m_tWeb.WaitUntilHeld(strUrl + "0"));
    EXPECT_TRUE(Get(strUrl + "request")) << "requests do not wait behind downloads";
    m_tWeb.Release(strUrl + "0");
    for (OUTCOME_t& tDownload : vecDownloads)
    {
        EXPECT_TRUE(tDownload.tEnded.Wait());
        EXPECT_EQ(tDownload.eType, &tDownload == &vecDownloads[10] ? DOWNLOAD_TYPE_CANCEL : DOWNLOAD_TYPE_SUCCESS);
    }
    std::vector<std::string> vecRequested;
    for (const SCRIPTED_REQUEST_t& tRequest : m_tWeb.Requests())
    {
        vecRequested.push_back(tRequest.strUrl);
    }
    EXPECT_EQ(vecRequested, vecExpected);
}
