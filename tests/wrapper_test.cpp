/* The contract that PORTING.md states, as far as a fake can be held to it: built over the fake and over the real
 * wrapper. */

#include <gtest/gtest.h>

#include "veltra/platform/wqcurl.h"
#ifdef VELTRA_FAKE_WRAPPER
#include "fake_wqcurl.h"
#else
#include "loopback_server.h"
#endif

namespace
{

using WQCurl::WQCurlEasy;
using WQCurl::WQCurlMulti;

size_t Append(char* pData, size_t nSize, size_t nCount, void* pText)
{
    static_cast<std::string*>(pText)->append(pData, nSize * nCount);
    return nSize * nCount;
}

} // namespace

class CWrapperTest : public testing::Test
{
protected:
#ifdef VELTRA_FAKE_WRAPPER
    CWrapperTest()
    {
        static char s_szAnswer[] = "answer";
        g_tFake.emplace().fnTransfer = [](FAKE_TRANSFER_t& tTransfer)
        { tTransfer.pfnWrite(s_szAnswer, 1, 6, tTransfer.pWriteData); };
    }
    std::string Good()
    {
        return "http://x/";
    }
    std::string Bad()
    {
        return (g_tFake->lstRefused.push_back("transfer"), "http://x/");
    }
#else
    std::string Good()
    {
        return m_tServer.Url();
    }
    std::string Bad()
    {
        return "http://127.0.0.1:1/";
    }

    CLoopbackServer m_tServer{[](CConnection& tConnection, const REQUEST_t&) { tConnection.Answer("answer"); }};
#endif

    void SetUp(WQCurlEasy& tEasy, const std::string& strUrl)
    {
        EXPECT_TRUE(tEasy.Initialize());
        EXPECT_TRUE(tEasy.setOption(WQCurl::URL, strUrl));
        EXPECT_TRUE(tEasy.setOption(WQCurl::WRITEFUNCTION, &Append));
        EXPECT_TRUE(tEasy.setOption(WQCurl::WRITEDATA, &m_strBody));
        EXPECT_TRUE(tEasy.setOption(WQCurl::PRIVATE, &tEasy));
    }

    std::string m_strBody;
};

TEST_F(CWrapperTest, EasyHandleTransfersOnceInitialisedAndTellsWhyNot)
{
    WQCurlEasy tEasy;
    tEasy.reset();
    EXPECT_EQ(tEasy.getLastError(), "");
    EXPECT_FALSE(tEasy.setOption(WQCurl::URL, Good()));
    EXPECT_NE(tEasy.getLastError(), "");
    EXPECT_FALSE(tEasy.setOption(WQCurl::WRITEFUNCTION, &Append));
    EXPECT_FALSE(tEasy.send());
    for (int nRound = 0; nRound < 2; ++nRound)
    {
        m_strBody.clear();
        SetUp(tEasy, Good());
        EXPECT_EQ(tEasy.getLastError(), "");
        EXPECT_TRUE(tEasy.send());
        EXPECT_EQ(m_strBody, "answer");
        void* pPrivate = nullptr;
        double dSpeed = -1.0;
        EXPECT_FALSE(tEasy.getInfo(WQCurl::SPEED_DOWNLOAD, &pPrivate));
        EXPECT_FALSE(tEasy.getInfo(WQCurl::PRIVATE_INFO, &dSpeed));
        EXPECT_EQ(pPrivate, nullptr);
        EXPECT_EQ(dSpeed, -1.0);
        EXPECT_TRUE(tEasy.getInfo(WQCurl::PRIVATE_INFO, &pPrivate));
        EXPECT_TRUE(tEasy.getInfo(WQCurl::SPEED_DOWNLOAD, &dSpeed));
        EXPECT_EQ(pPrivate, &tEasy);
        EXPECT_GT(dSpeed, 0.0);

        SetUp(tEasy, Bad());
        EXPECT_FALSE(tEasy.send());
        EXPECT_NE(tEasy.getLastError(), "");
        tEasy.reset();
        EXPECT_EQ(tEasy.getLastError(), "");
        EXPECT_FALSE(tEasy.setOption(WQCurl::URL, Good()));
    }
}

TEST_F(CWrapperTest, MultiHandleTellsOfEachTransferOnceAndRefusesWhatIsNone)
{
    WQCurlMulti tMulti;
    WQCurlEasy arrEasy[3];
    SetUp(arrEasy[0], Good());
    EXPECT_FALSE(tMulti.addHandle(&arrEasy[0])) << "not initialised";
    ASSERT_TRUE(tMulti.Initialize());
    EXPECT_FALSE(tMulti.addHandle(nullptr));
    EXPECT_FALSE(tMulti.addHandle(&arrEasy[1])) << "not initialised either";
    EXPECT_FALSE(tMulti.removeHandle(nullptr));
    EXPECT_FALSE(tMulti.removeHandle(&arrEasy[0])) << "not added";
    EXPECT_TRUE(tMulti.addHandle(&arrEasy[0]));
    EXPECT_FALSE(tMulti.addHandle(&arrEasy[0])) << "twice";
    SetUp(arrEasy[2], Good());
    EXPECT_TRUE(tMulti.addHandle(&arrEasy[2]));
    EXPECT_TRUE(tMulti.removeHandle(&arrEasy[2])); // nothing is told of it
    for (int i = 0; i < 2; ++i)
    {
        int nRunning = -1;
        WQCurlMulti::MultiMsg tMsg;
        EXPECT_TRUE(tMulti.Perform(nRunning));
        EXPECT_GE(nRunning, 0);
        for (int nWaits = 0; nWaits < 10000 && tMsg.pEasyHandle == nullptr; ++nWaits)
        {
            EXPECT_TRUE(tMulti.fdSelect(nRunning));
            tMsg = tMulti.InfoRead();
        }
        ASSERT_EQ(tMsg.pEasyHandle, &arrEasy[i]);
        EXPECT_EQ(tMsg.bResult, i == 0);
        EXPECT_EQ(tMsg.strErrorMsg.empty(), i == 0) << tMsg.strErrorMsg;
        EXPECT_EQ(tMulti.InfoRead().pEasyHandle, nullptr);
        EXPECT_TRUE(tMulti.removeHandle(&arrEasy[i]));
        EXPECT_FALSE(tMulti.removeHandle(&arrEasy[i])) << "twice";
        if (i == 0)
        {
            EXPECT_EQ(m_strBody, "answer");
            SetUp(arrEasy[1], Bad());
            EXPECT_TRUE(tMulti.addHandle(&arrEasy[1]));
        }
    }
}
