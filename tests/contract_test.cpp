/* The contract of the curl wrapper, as PORTING.md states it. */

#include <gtest/gtest.h>

#include "loopback_server.h"
#include "veltra/platform/wqcurl.h"

using namespace WQCurl;

class CContractTest : public testing::Test
{
protected:
    /** Makes a handle ready for a transfer that succeeds, or for one that fails. */
    void Prepare(WQCurlEasy& tEasy, bool bGood = true)
    {
        m_strBody.clear();
        EXPECT_TRUE(tEasy.Initialize() && tEasy.getLastError().empty());
        EXPECT_TRUE(tEasy.setOption(URL, bGood ? m_tServer.Url() : "http://127.0.0.1:1/"));
        EXPECT_TRUE(tEasy.setOption(WRITEFUNCTION, &Append) && tEasy.setOption(WRITEDATA, &m_strBody));
        EXPECT_TRUE(tEasy.setOption(PRIVATE, &tEasy));
    }

    static size_t Append(char* pData, size_t nSize, size_t nCount, void* pText)
    {
        static_cast<std::string*>(pText)->append(pData, nSize * nCount);
        return nSize * nCount;
    }

    CLoopbackServer m_tServer{[](CConnection& tConnection, const REQUEST_t&) { tConnection.Answer("answer"); }};
    std::string m_strBody;
};

TEST_F(CContractTest, EasyHandleWorksOnlyBetweenInitializeAndReset)
{
    WQCurlEasy tEasy;
    tEasy.reset();
    EXPECT_EQ(tEasy.getLastError(), "");
    for (int nRound = 0; nRound < 2; ++nRound)
    {
        EXPECT_FALSE(tEasy.setOption(URL, "http://127.0.0.1/") || tEasy.getLastError().empty());
        EXPECT_FALSE(tEasy.setOption(WRITEFUNCTION, &Append) || tEasy.send());

        Prepare(tEasy);
        EXPECT_TRUE(tEasy.send());
        EXPECT_EQ(m_strBody, "answer");
        void* pPrivate = nullptr;
        double dSpeed = -1.0;
        EXPECT_FALSE(tEasy.getInfo(SPEED_DOWNLOAD, &pPrivate) || pPrivate != nullptr);
        EXPECT_FALSE(tEasy.getInfo(PRIVATE_INFO, &dSpeed) || dSpeed != -1.0);
        EXPECT_TRUE(tEasy.getInfo(PRIVATE_INFO, &pPrivate) && pPrivate == &tEasy);
        EXPECT_TRUE(tEasy.getInfo(SPEED_DOWNLOAD, &dSpeed) && dSpeed > 0.0);

        Prepare(tEasy, false);
        EXPECT_FALSE(tEasy.send() || tEasy.getLastError().empty());
        tEasy.reset();
        EXPECT_EQ(tEasy.getLastError(), "");
    }
}

TEST_F(CContractTest, MultiHandleReportsEachTransferOnceAndRefusesInvalidHandles)
{
    WQCurlMulti tMulti;
    WQCurlEasy tEasy;
    WQCurlEasy tRemoved;
    Prepare(tEasy);
    EXPECT_FALSE(tMulti.addHandle(&tEasy)) << "before Initialize()";
    ASSERT_TRUE(tMulti.Initialize());
    EXPECT_FALSE(tMulti.addHandle(nullptr) || tMulti.removeHandle(nullptr));
    EXPECT_FALSE(tMulti.addHandle(&tRemoved)) << "before the easy handle's Initialize()";
    for (const bool bGood : {true, false})
    {
        Prepare(tRemoved);
        EXPECT_TRUE(tMulti.addHandle(&tRemoved) && tMulti.removeHandle(&tRemoved)) << "not reported later";
        Prepare(tEasy, bGood);
        EXPECT_FALSE(tMulti.removeHandle(&tEasy)) << "not added";
        EXPECT_TRUE(tMulti.addHandle(&tEasy) && !tMulti.addHandle(&tEasy)) << "once";
        int nRunning = -1;
        EXPECT_TRUE(tMulti.Perform(nRunning) && nRunning >= 0);
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
        EXPECT_TRUE(tMulti.removeHandle(&tEasy) && !tMulti.removeHandle(&tEasy)) << "once";
    }
}
