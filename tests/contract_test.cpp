/* The contract that PORTING.md states, as far as a fake can be held to it: over the fake and over the real one. */

#include <gtest/gtest.h>

#include "veltra/platform/wqcurl.h"
#ifdef VELTRA_FAKE_WRAPPER
#include "fake_wqcurl.h"
#else
#include "loopback_server.h"
#endif

using namespace WQCurl;

class CContractTest : public testing::Test
{
protected:
#ifdef VELTRA_FAKE_WRAPPER
    CContractTest()
    {
        static char s_szAnswer[] = "answer";
        g_tFake.emplace().fnTransfer = [](FAKE_TRANSFER_t& t) { t.pfnWrite(s_szAnswer, 1, 6, t.pWriteData); };
    }
    std::string Url(bool bGood)
    {
        return (g_tFake->lstRefused = {bGood ? "nothing" : "transfer"}, "http://x/");
    }
#else
    std::string Url(bool bGood)
    {
        return bGood ? m_tServer.Url() : "http://127.0.0.1:1/";
    }

    CLoopbackServer m_tServer{[](CConnection& tConnection, const REQUEST_t&) { tConnection.Answer("answer"); }};
#endif

    /** Makes a handle ready for a transfer that succeeds, or for one that fails. */
    void Prepare(WQCurlEasy& tEasy, bool bGood = true)
    {
        m_strBody.clear();
        EXPECT_TRUE(tEasy.Initialize());
        EXPECT_EQ(tEasy.getLastError(), "");
        EXPECT_TRUE(tEasy.setOption(URL, Url(bGood)));
        EXPECT_TRUE(tEasy.setOption(WRITEFUNCTION, &Append));
        EXPECT_TRUE(tEasy.setOption(WRITEDATA, &m_strBody));
        EXPECT_TRUE(tEasy.setOption(PRIVATE, &tEasy));
    }

    static size_t Append(char* pData, size_t nSize, size_t nCount, void* pText)
    {
        static_cast<std::string*>(pText)->append(pData, nSize * nCount);
        return nSize * nCount;
    }

    std::string m_strBody;
};

TEST_F(CContractTest, EasyHandleTransfersOnceInitialisedAndTellsWhyNot)
{
    WQCurlEasy tEasy;
    tEasy.reset();
    EXPECT_EQ(tEasy.getLastError(), "");
    for (int nRound = 0; nRound < 2; ++nRound)
    {
        EXPECT_FALSE(tEasy.setOption(URL, Url(true))) << "needs Initialize(), before as well as after reset()";
        EXPECT_NE(tEasy.getLastError(), "");
        EXPECT_FALSE(tEasy.setOption(WRITEFUNCTION, &Append));
        EXPECT_FALSE(tEasy.send());

        Prepare(tEasy);
        EXPECT_TRUE(tEasy.send());
        EXPECT_EQ(m_strBody, "answer");
        void* pPrivate = nullptr;
        double dSpeed = -1.0;
        EXPECT_FALSE(tEasy.getInfo(SPEED_DOWNLOAD, &pPrivate));
        EXPECT_EQ(pPrivate, nullptr);
        EXPECT_FALSE(tEasy.getInfo(PRIVATE_INFO, &dSpeed));
        EXPECT_EQ(dSpeed, -1.0);
        EXPECT_TRUE(tEasy.getInfo(PRIVATE_INFO, &pPrivate));
        EXPECT_EQ(pPrivate, &tEasy);
        EXPECT_TRUE(tEasy.getInfo(SPEED_DOWNLOAD, &dSpeed));
        EXPECT_GT(dSpeed, 0.0);

        Prepare(tEasy, false);
        EXPECT_FALSE(tEasy.send());
        EXPECT_NE(tEasy.getLastError(), "");
        tEasy.reset();
        EXPECT_EQ(tEasy.getLastError(), "");
    }
}

TEST_F(CContractTest, MultiHandleTellsOfEachTransferOnceAndRefusesWhatIsNone)
{
    WQCurlMulti tMulti;
    WQCurlEasy tEasy;
    WQCurlEasy tRemoved;
    Prepare(tEasy);
    EXPECT_FALSE(tMulti.addHandle(&tEasy)) << "needs Initialize() itself";
    ASSERT_TRUE(tMulti.Initialize());
    EXPECT_FALSE(tMulti.addHandle(nullptr));
    EXPECT_FALSE(tMulti.addHandle(&tRemoved)) << "not initialised";
    EXPECT_FALSE(tMulti.removeHandle(nullptr));
    for (const bool bGood : {true, false})
    {
        Prepare(tRemoved);
        EXPECT_TRUE(tMulti.addHandle(&tRemoved));
        EXPECT_TRUE(tMulti.removeHandle(&tRemoved)) << "before it has begun: nothing is told of it";
        Prepare(tEasy, bGood);
        EXPECT_FALSE(tMulti.removeHandle(&tEasy)) << "not added";
        EXPECT_TRUE(tMulti.addHandle(&tEasy));
        EXPECT_FALSE(tMulti.addHandle(&tEasy)) << "twice";
        int nRunning = -1;
        EXPECT_TRUE(tMulti.Perform(nRunning));
        EXPECT_GE(nRunning, 0);
        WQCurlMulti::MultiMsg tMsg;
        for (int nWaits = 0; nWaits < 10000 && tMsg.pEasyHandle == nullptr; ++nWaits)
        {
            EXPECT_TRUE(tMulti.fdSelect(nRunning));
            tMsg = tMulti.InfoRead();
        }
        ASSERT_EQ(tMsg.pEasyHandle, &tEasy);
        EXPECT_EQ(tMsg.bResult, bGood);
        EXPECT_EQ(tMsg.strErrorMsg.empty(), bGood) << tMsg.strErrorMsg;
        EXPECT_EQ(tMulti.InfoRead().pEasyHandle, nullptr);
        EXPECT_TRUE(tMulti.removeHandle(&tEasy));
        EXPECT_FALSE(tMulti.removeHandle(&tEasy)) << "twice";
    }
}
