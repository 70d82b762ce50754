/* The bandwidth that all downloads share, and their turn beside requests. */

#include "engine_fixture.h"

class CBandwidthTest : public CEngineTest
{
protected:
    ~CBandwidthTest() override { WQCurl::SetBandwidth(-1); }

    /** Returns the size of a download's temporary file. */
    size_t Size(const std::string& strName) const { return ReadFile(Path(strName + ".bak")).size(); }
};

TEST_F(CBandwidthTest, DownloadsShareItEvenly)
{
    constexpr size_t LIMIT = 2000000;
    OUTCOME_t arrDownloads[3];
    EXPECT_TRUE(WQCurl::SetBandwidth(LIMIT));
    std::atomic<bool> bSynchronous{false};
    std::thread tThread([&] { bSynchronous = m_ptEngine->SyncDownloadFile(Url("/1000000"), Path("sync"), 0, 0); });
    const double dSeconds = SecondsOf(
        [&]
        {
            for (OUTCOME_t& tDownload : arrDownloads)
            {
                ASSERT_EQ(Start(tDownload, Url("/1000000"), std::to_string(&tDownload - arrDownloads)), 1);
            }
            EXPECT_TRUE(WaitUntil([&] { return Size("0") > 500000; }));
            for (const char* pszOther : {"1", "2", "sync"})
            {
                const size_t nOther = Size(pszOther);
                EXPECT_TRUE(nOther == 0 || (nOther > 300000 && nOther < 900000)) << pszOther << ": " << nOther;
            }
            EXPECT_TRUE(Get(Url("/1000000"))) << "requests are exempt";
            EXPECT_EQ(arrDownloads[0].tEnded.Count(), 0);
            for (OUTCOME_t& tDownload : arrDownloads)
            {
                EXPECT_TRUE(tDownload.tEnded.Wait());
                EXPECT_EQ(tDownload.eType, DOWNLOAD_TYPE_SUCCESS);
            }
        });
    tThread.join();
    EXPECT_TRUE(bSynchronous);
    EXPECT_GT(dSeconds, 3000000.0 / LIMIT * 0.9);
    EXPECT_FALSE(WQCurl::SetBandwidth(-2));
}

TEST_F(CBandwidthTest, PauseFailsNoDownloadAndEndsAtOnce)
{
    g_tCalls.bHurry = true;
    OUTCOME_t tDownload, tCancelled, tEnded, tSlow;
    EXPECT_TRUE(WQCurl::SetBandwidth(1)); // one piece, and the next one after hours
    ASSERT_EQ(Start(tDownload, Url("/1000000"), "file"), 1);
    EXPECT_TRUE(WaitUntil([&] { return Size("file") > 0; }));
    EXPECT_TRUE(WQCurl::SetBandwidth(0));
    ASSERT_EQ(Start(tCancelled, Url("/1000000"), "cancelled"), 1);
    ASSERT_EQ(Start(tEnded, Url("/1000000"), "ended"), 1);
    EXPECT_FALSE(SyncDownload(Url("/1000000"), "sync", 40)) << "the total time goes on, the low-speed limit does not";
    EXPECT_LT(Size("file"), 20000U);
    EXPECT_EQ(Size("cancelled") + Size("sync"), 0U);
    EXPECT_TRUE(Get(Url()) && Get(Url())) << "their start leaves alone what the downloads have not read yet";
    EXPECT_EQ(tDownload.tEnded.Count(), 0);
    EXPECT_EQ(Cancel(tCancelled), DOWNLOAD_TYPE_CANCEL);

    EXPECT_TRUE(WQCurl::SetBandwidth(-1));
    EXPECT_TRUE(tDownload.tEnded.Wait() && tEnded.tEnded.Wait());
    EXPECT_EQ(tDownload.eType, DOWNLOAD_TYPE_SUCCESS);
    EXPECT_TRUE(ReadFile(Path("file")) == BODY && ReadFile(Path("ended")) == BODY);

    EXPECT_TRUE(WQCurl::SetBandwidth(100000000));
    m_tSettings.nRetries = 2;
    EXPECT_EQ(Download(tSlow, Url(STALL), "slow"), DOWNLOAD_TYPE_FAIL) << "a silent server fails it";
    EXPECT_EQ(m_tReport.nAttempts, 3);
    EXPECT_TRUE(m_tReport.dTotal >= 90 && m_tReport.strErrorMsg.find("too slow") != std::string::npos)
        << m_tReport.dTotal;
    EXPECT_TRUE(WQCurl::SetBandwidth(0));
    OUTCOME_t tLast;
    ASSERT_EQ(Start(tLast, Url("/1000000"), "last"), 1);
    m_ptEngine->Destroy();
    EXPECT_EQ(tLast.eType, DOWNLOAD_TYPE_FAIL);
}

TEST_F(CBandwidthTest, DownloadStartsAlthoughRequestsNeverCease)
{
    std::atomic<bool> bGoOn{true};
    std::vector<OUTCOME_t> vecRequests(64);
    for (OUTCOME_t& tRequest : vecRequests)
    {
        tRequest.fnOnEvent = [&] { bGoOn = bGoOn && Start(tRequest, Url()); };
        ASSERT_TRUE(Start(tRequest, Url()));
    }
    OUTCOME_t tDownload;
    ASSERT_EQ(Start(tDownload, Url("/7"), "file"), 1);
    EXPECT_TRUE(WaitUntil([&] { return tDownload.tEnded.Count() > 0; }));
    bGoOn = false;
    m_ptEngine->Destroy();
}
