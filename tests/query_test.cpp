/* The device-identified query and the information request, over TLS, from the facade to the wire. */

#include "engine_fixture.h"

namespace
{

const char* const SERVER_LIST = "<rsp stat='ok'><rm><queryinfo><notice><s url='https://query.veltra.example/info'/>"
                                "</notice></queryinfo></rm></rsp>";
const char* const INFORMATION = "<emplist><file id='one' url='u1' boot='yes'><signature>S</signature></file>"
                                "<file id='empCERT1' url='u2'/></emplist>";

/** The facade reaches the process's own engine, so each test gives the process a new one. */
class CQueryTest : public CEngineTest
{
protected:
    void SetUp() override
    {
        CEngineTest::SetUp();
        m_ptServer = std::make_unique<CLoopbackServer>(
            [this](CConnection& tConnection, const REQUEST_t& tRequest)
            {
                m_vecHeads.push_back(tRequest.strHead);
                tConnection.Answer(tRequest.strPath == "/info" ? m_strInformation : m_strServerList);
            },
            true);
        const std::string strTarget = ":443:127.0.0.1:" + std::to_string(m_ptServer->Port());
        WQCurl::SetTransferDefaults(
            {TestCaFile(), {"query.veltra.example" + strTarget, "query-test.veltra.example" + strTarget}});
        CAIAuth::SetIdentity({"X1", "d-u:id", "00:11", "KR", "model", 0});
        CSingleton<CWebConnector>::m_pObj = m_ptEngine.get();
        m_ptEngine->Create();
    }

    void TearDown() override
    {
        CSingleton<CWebConnector>::m_pObj = nullptr;
        m_ptEngine.reset();
        m_ptServer.reset();
        CEngineTest::TearDown();
    }

    ICVeltra m_tFacade;
    std::string m_strServerList = SERVER_LIST;
    std::string m_strInformation = INFORMATION;
    std::vector<std::string> m_vecHeads;
    std::unique_ptr<CLoopbackServer> m_ptServer;
};

} // namespace

TEST_F(CQueryTest, GoesFromTheServerListToTheRecords)
{
    std::vector<std::string> vecUrl{"before"};
    ASSERT_TRUE(m_tFacade.GetAppBinaryServerUrl(vecUrl));
    ASSERT_EQ(vecUrl, (std::vector<std::string>{"before", "https://query.veltra.example/info"}));

    std::map<std::string, APPBIN_SERVER_INFO_t> mapWanted;
    EXPECT_TRUE(m_tFacade.GetServerAppBinaryInfo(vecUrl[1], mapWanted, {"one"}));
    EXPECT_EQ(mapWanted.size(), 1U);
    EXPECT_EQ(mapWanted["one"].strSignature, "S");
    std::map<std::string, APPBIN_SERVER_INFO_t> mapCert;
    std::vector<std::string> vecId{"old"};
    EXPECT_TRUE(m_tFacade.GetCERTAppBinaryInfo(vecUrl[1], mapCert, vecId));
    EXPECT_EQ(mapCert["empCERT1"].strUrl, "u2");
    EXPECT_EQ(vecId, (std::vector<std::string>{"old", "empCERT1"}));
    EXPECT_TRUE(m_tFacade.GetDefaultAppBinaryInfo(vecUrl[1], vecId, mapWanted));
    EXPECT_EQ(vecId, std::vector<std::string>{"one"});

    m_ptEngine->Destroy();
    ASSERT_EQ(m_vecHeads.size(), 4U);
    EXPECT_EQ(m_vecHeads[0], "GET /openapi/device/auth/query HTTP/1.1\r\nHost: query.veltra.example\r\nAccept: */*\r\n"
                             "DUID:d-u:id\r\nMACAddr:00:11\r\nCategory:EMP\r\nCountryCode:KR\r\nModelId:model\r\n"
                             "Param:X1,5.100\r\n");
    EXPECT_EQ(m_vecHeads[1], "GET /info HTTP/1.1\r\nHost: query.veltra.example\r\nAccept: */*\r\n");
}

TEST_F(CQueryTest, FailsWithoutTouchingTheResult)
{
    const auto fnFails = [this](const char* pszWhy)
    {
        std::vector<std::string> vecUrl{"kept"};
        EXPECT_FALSE(m_tFacade.GetAppBinaryServerUrl(vecUrl)) << pszWhy;
        EXPECT_EQ(vecUrl, std::vector<std::string>{"kept"}) << pszWhy;
    };
    CAIAuth::SetIdentity({"", "d", "m", "c", "i", 0});
    fnFails("no chipset");
    EXPECT_TRUE(m_vecHeads.empty());
    CAIAuth::SetIdentity({"X1", "", "", "", "", -1});
    m_strServerList = "";
    fnFails("empty answer");
    m_strServerList = "<rsp stat='OK'/>";
    fnFails("status");
    EXPECT_NE(m_vecHeads.at(0).find("Host: query-test.veltra.example\r\n"), std::string::npos) << m_vecHeads[0];
    m_strInformation = "";
    std::map<std::string, APPBIN_SERVER_INFO_t> mapInfo;
    EXPECT_FALSE(m_tFacade.GetServerAppBinaryInfo("", mapInfo, {}));
    EXPECT_FALSE(m_tFacade.GetServerAppBinaryInfo("https://query.veltra.example/info", mapInfo, {}));
    m_ptServer.reset();
    fnFails("no server");
}

TEST_F(CQueryTest, TrustsNoUnknownAuthority)
{
    WQCurl::SetTransferDefaults({"", {"query.veltra.example:443:127.0.0.1:" + std::to_string(m_ptServer->Port())}});
    std::vector<std::string> vecUrl;
    EXPECT_FALSE(m_tFacade.GetAppBinaryServerUrl(vecUrl));
    m_ptEngine->Destroy();
    EXPECT_TRUE(m_vecHeads.empty());
}
