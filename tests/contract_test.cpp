/* The contract of the curl wrapper, as PORTING.md states it. */

#include <gtest/gtest.h>

#include "veltra/platform/wqcurl.h"

using namespace WQCurl;

TEST(Contract, HandlesRefuseCallsInAWrongState)
{
    WQCurlEasy tEasy, tOther;
    WQCurlMulti tMulti, tUnready;
    int nRunning = 0;
    ASSERT_TRUE(tMulti.Initialize() && tOther.Initialize());
    EXPECT_FALSE(tMulti.addHandle(nullptr) || tMulti.removeHandle(nullptr));
    for (int nRound = 0; nRound < 2; ++nRound)
    {
        tEasy.reset();
        EXPECT_EQ(tEasy.getLastError(), "");
        EXPECT_FALSE(tEasy.setOption(URL, "http://127.0.0.1/") || tEasy.getLastError().empty());
        EXPECT_FALSE(tEasy.setOption(WRITEFUNCTION, WRITE_FUNCTION_t()) || tEasy.send() || tMulti.addHandle(&tEasy));

        EXPECT_TRUE(tEasy.Initialize() && tEasy.getLastError().empty());
        EXPECT_TRUE(tEasy.setOption(URL, "file:///") && tEasy.setOption(PRIVATE, &tEasy));
        EXPECT_FALSE(tEasy.send() || tEasy.getLastError().empty());
        void* pPrivate = nullptr;
        double dSpeed = -1.0;
        EXPECT_FALSE(tEasy.getInfo(SPEED_DOWNLOAD, &pPrivate) || pPrivate != nullptr);
        EXPECT_FALSE(tEasy.getInfo(PRIVATE_INFO, &dSpeed) || dSpeed != -1.0);
        EXPECT_TRUE(tEasy.getInfo(PRIVATE_INFO, &pPrivate) && pPrivate == &tEasy);

        EXPECT_FALSE(tUnready.addHandle(&tEasy)) << "before Initialize()";
        EXPECT_FALSE(tMulti.removeHandle(&tEasy)) << "before addHandle()";
        EXPECT_TRUE(tMulti.addHandle(&tEasy) && !tMulti.addHandle(&tEasy)) << "once";
        EXPECT_TRUE(tMulti.addHandle(&tOther) && tMulti.Perform(nRunning)) << "ends both";
        EXPECT_TRUE(tMulti.removeHandle(&tEasy) && !tMulti.removeHandle(&tEasy)) << "once";
        EXPECT_EQ(tMulti.InfoRead().pEasyHandle, &tOther);
        EXPECT_EQ(tMulti.InfoRead().pEasyHandle, nullptr) << "a removed transfer leaves no message";
        EXPECT_TRUE(tMulti.removeHandle(&tOther));
    }
}
