/* Downloads on the worker and on the caller's thread: their files, their cancellation and a full disk. */

#include "engine_fixture.h"

using CDownloadTest = CEngineTest;

const std::string WHOLE = "/1000000";

TEST_F(CDownloadTest, OnlyWholeBodiesReachTheTargetAndNothingIsPrinted)
{
    m_strRaw = "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + BODY;
    const std::tuple<std::string, bool, size_t> arrCases[] = {
        {WHOLE, true, BODY.size()},           {RAW, true, BODY.size()},
        {WHOLE + "/cut", false, BODY.size()}, {WHOLE + "/reset", false, BODY.size()},
        {WHOLE, false, BODY.size() / 3},      {WHOLE, false, BODY.size() - 3},
    };
    for (const auto& [strPath, bWhole, nLimit] : arrCases)
    {
        SCOPED_TRACE(strPath + " up to " + std::to_string(nLimit));
        std::ofstream(Path("sync.bak")) << "left over";
        std::ofstream(Path("sync")) << "old";
        std::ofstream(Path("async")) << "old";
        LimitFiles(nLimit);
        EXPECT_EQ(CWebConnector().SyncDownloadFile(Url(strPath), Path("sync"), 0, 0), bWhole) << "needs no Create()";
        EXPECT_TRUE(ReadFile(Path("sync")) == (bWhole ? BODY : "old"));
        EXPECT_EQ(std::filesystem::exists(Path("sync.bak")), !bWhole);

        OUTCOME_t tDownload;
        EXPECT_EQ(Download(tDownload, Url(strPath), "async"), bWhole ? DOWNLOAD_TYPE_SUCCESS : DOWNLOAD_TYPE_FAIL);
        EXPECT_TRUE(ReadFile(Path("async")) == (bWhole ? BODY : "old"));
        EXPECT_FALSE(std::filesystem::exists(Path("async.bak")));
        EXPECT_GT(tDownload.dSpeed, 0.0);
        EXPECT_EQ(bWhole ? tDownload.vecPercent.back() : 0, bWhole && strPath == WHOLE ? 100 : 0);
    }
    LimitFiles(RLIM_INFINITY);
    m_ptEngine->Destroy(); // its easy handles are used again
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_TRUE(SyncDownload(Url("/3000000"), "sync", 25)) << "the pauses between turns are the worker's alone";
    EXPECT_EQ(testing::internal::GetCapturedStderr() + testing::internal::GetCapturedStdout(), "");
}

TEST_F(CDownloadTest, ConcurrentStartsGiveTheTargetToOneDownload)
{
    constexpr int ROUNDS = 300;
    m_tSettings.nMostConnections = 1;
    std::vector<OUTCOME_t> vecDownloads(ROUNDS * 2);
    std::atomic<int> nReady{0};
    std::atomic<int> nResults{0};
    const auto fnStart = [&](int nThread)
    {
        for (int i = 0; i < ROUNDS; ++i)
        {
            for (++nReady; nReady < 2 * (i + 1);) // waits for the other thread
            {
            }
            nResults += Start(vecDownloads[static_cast<size_t>(2 * i + nThread)], Url(STALL), std::to_string(i));
        }
    };
    std::thread tOther(fnStart, 1);
    fnStart(0);
    tOther.join();
    m_ptEngine->Destroy();
    EXPECT_EQ(nResults, ROUNDS * (1 - 16)) << "-16 for the other, whose target is in use";
}

TEST_F(CDownloadTest, CallbackCancelsItsDownload)
{
    OUTCOME_t tDownload;
    tDownload.fnOnEvent = [&] // once at 5 %, amid a turn
    { EXPECT_TRUE(tDownload.vecPercent.empty() || m_ptEngine->CancelDownload(tDownload.nId, true)); };
    EXPECT_EQ(Download(tDownload, Url("/100000000")), DOWNLOAD_TYPE_CANCEL);
    EXPECT_EQ(tDownload.vecPercent.size(), 2U);
    EXPECT_TRUE(std::filesystem::is_empty(Path("")));
}

TEST_F(CDownloadTest, SilentCancellationEndsTheDownloadWithoutAnEvent)
{
    OUTCOME_t tRequest, tSilent, tTwice, tNamesake;
    tSilent.fnOnEvent = [&] // runs on the worker, which cannot end the download meanwhile
    {
        EXPECT_FALSE(m_ptEngine->CancelDownload(-1, false));
        EXPECT_TRUE(m_ptEngine->CancelDownload(tSilent.nId, false));
    };
    tTwice.fnOnEvent = [&]
    {
        EXPECT_TRUE(m_ptEngine->CancelDownload(tTwice.nId, false));
        EXPECT_TRUE(m_ptEngine->CancelDownload(tTwice.nId, true)) << "does not bring the callback back";
    };
    ASSERT_TRUE(Start(tRequest, Url(STALL)));
    ASSERT_EQ(Start(tSilent, Url(STALL), "silent"), 1);
    ASSERT_EQ(Start(tTwice, Url(STALL), "silent twice"), 1);
    ASSERT_EQ(Start(tNamesake, Url(STALL), "namesake", tSilent.nId), 1);
    const auto fnFiles = [this] { return std::distance(std::filesystem::directory_iterator(Path("")), {}); };
    EXPECT_LT(SecondsOf([&] { EXPECT_TRUE(WaitUntil([&] { return fnFiles() == 1; })); }), 25)
        << "low speed ends it later";
    tSilent.ptEngine = nullptr;
    tTwice.ptEngine = nullptr;
    m_ptEngine->Destroy();
    EXPECT_EQ(tSilent.tEnded.Count() + tTwice.tEnded.Count(), 0);
    EXPECT_EQ(tNamesake.eType, DOWNLOAD_TYPE_FAIL);
    EXPECT_TRUE(std::filesystem::is_empty(Path("")));
}

#if __SIZEOF_POINTER__ == 4 // elsewhere all file sizes have 64 bits anyhow
TEST_F(CDownloadTest, FileBeyondTwoGigabytesIsWhole)
{
    if (std::filesystem::space(Path("")).available < (3ULL << 30))
    {
        GTEST_SKIP() << "needs 3 GiB of free space";
    }
    const std::uintmax_t nSize = (1ULL << 31) + 100;
    OUTCOME_t tDownload;
    EXPECT_EQ(Download(tDownload, Url("/" + std::to_string(nSize)), "huge"), DOWNLOAD_TYPE_SUCCESS);
    EXPECT_EQ(std::filesystem::file_size(Path("huge")), nSize);
    EXPECT_EQ(tDownload.vecPercent.size(), 21U);
}
#endif
