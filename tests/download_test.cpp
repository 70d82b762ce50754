/* Downloads, on the worker and on the caller's thread, their cancellation and what can go wrong on disk. */

#include <signal.h>
#include <sys/resource.h>

#include "engine_fixture.h"

namespace
{

using std::chrono::seconds;

constexpr size_t BODY_SIZE = 1000000;
const std::string WHOLE = "/1000000";
const std::string TINY = "/4";
const std::string STALL = "/1000000/stall";
const std::string ENDLESS = "/1125899906842624";

const std::string BODY = []
{
    std::string strBody;
    for (size_t i = 0; strBody.size() < BODY_SIZE; ++i)
    {
        strBody += std::to_string(i);
    }
    return strBody.substr(0, BODY_SIZE);
}();

/** Sends the body again and again, and what is named after that: "/2147483748", "/1000000/reset", "/nolength/cut". */
void Serve(CConnection& tConnection, const REQUEST_t& tRequest)
{
    const std::string& strPath = tRequest.strPath;
    const unsigned long long nLength = strtoull(strPath.c_str() + 1, nullptr, 10);
    const bool bWhole = strPath.find_first_not_of("0123456789", 1) == std::string::npos;
    unsigned long long nLeft = bWhole ? nLength : BODY_SIZE / (nLength == 0 ? 1 : 2);
    bool bGoOn =
        tConnection.Send(nLength == 0 ? "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n"
                                      : "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(nLength) + "\r\n\r\n");
    while (bGoOn && nLeft > 0)
    {
        const size_t nNow = static_cast<size_t>(std::min<unsigned long long>(nLeft, BODY_SIZE));
        bGoOn = tConnection.Send(BODY.substr(0, nNow));
        nLeft -= nNow;
    }
    if (!bWhole)
    {
        strPath.find("stall") != std::string::npos   ? tConnection.Stall()
        : strPath.find("reset") != std::string::npos ? tConnection.Reset()
                                                     : tConnection.Shutdown();
    }
}

} // namespace

class CDownloadTest : public CEngineTest
{
protected:
    int Start(OUTCOME_t& tDownload, const std::string& strUrlPath, const std::string& strName)
    {
        m_ptEngine->Create();
        return tDownload.Download(*m_ptEngine, m_tServer.Url(strUrlPath), Path(strName));
    }

    /** Downloads on the worker and waits for the final event. */
    DOWNLOAD_TYPE_e Download(OUTCOME_t& tDownload, const std::string& strUrlPath, const std::string& strName)
    {
        EXPECT_EQ(Start(tDownload, strUrlPath, strName), 1);
        EXPECT_TRUE(tDownload.tEnded.Wait());
        return tDownload.eType;
    }

    bool SyncDownload(const std::string& strUrlPath, const std::string& strName, int nTimeout = 0)
    {
        return m_ptEngine->SyncDownloadFile(m_tServer.Url(strUrlPath), Path(strName), nTimeout, 0);
    }

    CLoopbackServer m_tServer{&Serve};
};

TEST_F(CDownloadTest, OnlyWholeBodiesReachTheTarget)
{
    signal(SIGXFSZ, SIG_IGN);
    const std::tuple<std::string, bool, size_t> arrCases[] = {
        {WHOLE, true, BODY_SIZE},           {"/nolength", true, BODY_SIZE},
        {"/1000000/cut", false, BODY_SIZE}, {"/1000000/reset", false, BODY_SIZE},
        {WHOLE, false, BODY_SIZE / 3},      {WHOLE, false, BODY_SIZE - 3},
    };
    for (const auto& [strPath, bWhole, nLimit] : arrCases)
    {
        SCOPED_TRACE(strPath + " up to " + std::to_string(nLimit));
        std::ofstream(Path("sync.bak")) << "left over";
        std::ofstream(Path("sync")) << "old";
        std::ofstream(Path("async")) << "old";
        const rlimit tLimit{nLimit, RLIM_INFINITY}; // stands in for a full disk
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &tLimit), 0);

        /* Before Create() as well as beside the running engine. */
        EXPECT_EQ(SyncDownload(strPath, "sync"), bWhole);
        EXPECT_TRUE(ReadFile(Path("sync")) == (bWhole ? BODY : "old"));
        EXPECT_EQ(std::filesystem::exists(Path("sync.bak")), !bWhole);

        OUTCOME_t tDownload;
        EXPECT_EQ(Download(tDownload, strPath, "async"), bWhole ? DOWNLOAD_TYPE_SUCCESS : DOWNLOAD_TYPE_FAIL);
        EXPECT_TRUE(ReadFile(Path("async")) == (bWhole ? BODY : "old"));
        EXPECT_FALSE(std::filesystem::exists(Path("async.bak")));
        EXPECT_GT(tDownload.dSpeed, 0.0);
        EXPECT_EQ(bWhole ? tDownload.vecPercent.back() : 0, bWhole && strPath == WHOLE ? 100 : 0);
    }
    const rlimit tNone{RLIM_INFINITY, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &tNone);
}

TEST_F(CDownloadTest, OfAllThatWantTheSameTargetAtOnceOneGetsIt)
{
    for (int nRound = 0; nRound < 50; ++nRound)
    {
        std::vector<OUTCOME_t> vecDownloads(4);
        std::atomic<int> nStarted{0};
        ForEach(4, 4, [&](size_t i) { nStarted += Start(vecDownloads[i], STALL, "same"); });
        EXPECT_EQ(nStarted, 1 - 3 * 16);
        for (OUTCOME_t& tDownload : vecDownloads)
        {
            const bool bStarted = tDownload.ptEngine != nullptr;
            EXPECT_EQ(m_ptEngine->CancelDownload(tDownload.nId, true), bStarted);
            EXPECT_EQ(bStarted ? tDownload.tEnded.Wait() : false, bStarted);
        }
    }
}

TEST_F(CDownloadTest, SynchronousDownloadIsQuietTimedAndTakesAnId)
{
    const int nBefore = m_ptEngine->CreateDownloadId();
    testing::internal::CaptureStderr();
    EXPECT_TRUE(SyncDownload(WHOLE, "file"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(m_ptEngine->CreateDownloadId(), nBefore + 2);

    /* The third argument limits the whole transfer; otherwise only 30 seconds of low speed would end it. */
    const auto tStart = std::chrono::steady_clock::now();
    EXPECT_FALSE(SyncDownload(STALL, "slow", 1));
    EXPECT_LT(std::chrono::steady_clock::now() - tStart, seconds(25));
    EXPECT_FALSE(m_ptEngine->CancelDownload(nBefore + 1, true));
}

TEST_F(CDownloadTest, CancelsFromAnyThreadAndFromCallbacks)
{
    std::vector<OUTCOME_t> vecDownloads(60);
    for (size_t i = 0; i < vecDownloads.size(); ++i)
    {
        ASSERT_EQ(Start(vecDownloads[i], ENDLESS, std::to_string(i)), 1);
    }
    ForEach(4, vecDownloads.size(),
            [&](size_t i)
            {
                EXPECT_TRUE(vecDownloads[i].tProgress.Wait());
                EXPECT_TRUE(m_ptEngine->CancelDownload(vecDownloads[i].nId, true));
            });
    for (OUTCOME_t& tDownload : vecDownloads)
    {
        ASSERT_TRUE(tDownload.tEnded.Wait());
        EXPECT_EQ(tDownload.eType, DOWNLOAD_TYPE_CANCEL);
    }
    EXPECT_TRUE(std::filesystem::is_empty(Path("")));

    OUTCOME_t tOwn;
    tOwn.fnOnEvent = [&] { EXPECT_TRUE(m_ptEngine->CancelDownload(tOwn.nId, true)); };
    EXPECT_EQ(Download(tOwn, ENDLESS, "own"), DOWNLOAD_TYPE_CANCEL);
    EXPECT_EQ(tOwn.vecPercent.size(), 1U);

    /* Behind a request, and before a download of the same number. */
    OUTCOME_t tRequest;
    OUTCOME_t tSilent;
    OUTCOME_t tNamesake;
    ASSERT_TRUE(tRequest.Start(*m_ptEngine, GetRequest(m_tServer.Url(STALL))));
    ASSERT_EQ(Start(tSilent, STALL, "silent"), 1);
    ASSERT_EQ(tNamesake.Download(*m_ptEngine, m_tServer.Url(STALL), Path("2"), tSilent.nId), 1);
    EXPECT_TRUE(tSilent.tProgress.Wait());
    EXPECT_FALSE(m_ptEngine->CancelDownload(tSilent.nId + 1, false));
    EXPECT_TRUE(m_ptEngine->CancelDownload(tSilent.nId, false));
    tSilent.ptEngine = nullptr;
    EXPECT_TRUE(m_ptEngine->CancelDownload(tSilent.nId, true)) << "does not bring the callback back";
    m_ptEngine->Destroy();
    EXPECT_EQ(tSilent.tEnded.Count(), 0);
    EXPECT_EQ(tNamesake.eType, DOWNLOAD_TYPE_FAIL);
    EXPECT_TRUE(std::filesystem::is_empty(Path("")));
    EXPECT_FALSE(m_ptEngine->CancelDownload(tOwn.nId, true));
}

TEST_F(CDownloadTest, FileBeyondTwoGigabytesLetsOtherTransfersGoFirst)
{
    if (std::filesystem::space(Path("")).available < (3ULL << 30))
    {
        GTEST_SKIP() << "needs 3 GiB of free space";
    }
    const std::uintmax_t nSize = (1ULL << 31) + 100;
    OUTCOME_t tDownload;
    ASSERT_EQ(Start(tDownload, "/" + std::to_string(nSize), "huge"), 1);
    int nAnswers = 0;
    for (; nAnswers < 100 && tDownload.tEnded.Count() == 0; ++nAnswers)
    {
        ASSERT_TRUE(Get(m_tServer.Url(TINY)));
    }
    EXPECT_EQ(nAnswers, 100);
    EXPECT_TRUE(tDownload.tEnded.Wait());
    EXPECT_EQ(tDownload.eType, DOWNLOAD_TYPE_SUCCESS);
    EXPECT_EQ(std::filesystem::file_size(Path("huge")), nSize);
    EXPECT_EQ(tDownload.vecPercent.size(), 21U);
}
