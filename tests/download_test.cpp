/* Downloads, on the worker and on the caller's thread, their cancellation and what can go wrong on disk. */

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "engine_fixture.h"

namespace
{

using std::chrono::seconds;

constexpr size_t BODY_SIZE = 1000000;

std::string Body()
{
    std::string strBody(BODY_SIZE, '\0');
    for (size_t i = 0; i < strBody.size(); ++i)
    {
        strBody[i] = static_cast<char>(i * 2654435761U >> 13);
    }
    return strBody;
}

std::string Head(unsigned long long nLength)
{
    return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(nLength) + "\r\n\r\n";
}

void Serve(CConnection& tConnection, const REQUEST_t& tRequest)
{
    static const std::string s_strBody = Body();
    const std::string& strPath = tRequest.strPath;
    if (strPath == "/whole")
    {
        tConnection.Answer(s_strBody);
    }
    else if (strPath == "/tiny")
    {
        tConnection.Answer("tiny");
    }
    else if (strPath == "/endless" || strPath == "/huge")
    {
        constexpr unsigned long long HUGE_SIZE = (1ULL << 31) + 100;
        unsigned long long nLeft = strPath == "/huge" ? HUGE_SIZE : 1ULL << 50;
        for (bool bGoOn = tConnection.Send(Head(nLeft)); bGoOn && nLeft > 0;)
        {
            const size_t nNow = static_cast<size_t>(std::min<unsigned long long>(nLeft, s_strBody.size()));
            bGoOn = tConnection.Send(s_strBody.substr(0, nNow));
            nLeft -= nNow;
        }
    }
    else if (strPath == "/nolength")
    {
        tConnection.Send("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + s_strBody);
        tConnection.Shutdown();
    }
    else
    {
        tConnection.Send(Head(s_strBody.size()) + s_strBody.substr(0, BODY_SIZE / 2));
        if (strPath == "/reset")
        {
            tConnection.Reset();
        }
        else if (strPath == "/cut")
        {
            tConnection.Shutdown();
        }
        else
        {
            tConnection.Stall();
        }
    }
}

/** Stands in for a full disk: no file of this process may grow beyond nBytes. */
class CFileSizeLimit
{
public:
    explicit CFileSizeLimit(size_t nBytes)
    {
        signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_tOld);
        const rlimit tNew{nBytes, m_tOld.rlim_max};
        setrlimit(RLIMIT_FSIZE, &tNew);
    }
    ~CFileSizeLimit() { setrlimit(RLIMIT_FSIZE, &m_tOld); }

private:
    rlimit m_tOld{};
};

void WriteFile(const std::string& strPath, const std::string& strText)
{
    std::ofstream(strPath, std::ios::binary) << strText;
}

} // namespace

class CDownloadTest : public CEngineTest
{
protected:
    /** Downloads on the worker and waits for the final event. */
    DOWNLOAD_TYPE_e Download(DOWNLOAD_t& tDownload, const std::string& strUrlPath, const std::string& strName)
    {
        EXPECT_EQ(tDownload.Start(*m_ptEngine, Url(strUrlPath), Path(strName)), 1);
        EXPECT_TRUE(tDownload.tEnded.Wait());
        EXPECT_EQ(tDownload.tEnded.Count(), 1);
        return tDownload.eFinal;
    }

    void SetUp() override
    {
        CEngineTest::SetUp();
        m_ptServer = std::make_unique<CLoopbackServer>(&Serve);
    }

    void TearDown() override
    {
        m_ptEngine.reset();
        m_ptServer.reset();
        CEngineTest::TearDown();
    }

    std::string Url(const std::string& strPath) const { return m_ptServer->Url(strPath); }

private:
    std::unique_ptr<CLoopbackServer> m_ptServer;
};

TEST_F(CDownloadTest, OnlyWholeBodiesReachTheTarget)
{
    struct
    {
        const char* pszPath;
        bool bWhole;
        size_t nFileSizeLimit;
    } const arrCases[] = {
        {"/whole", true, BODY_SIZE},  {"/nolength", true, BODY_SIZE},   {"/cut", false, BODY_SIZE},
        {"/reset", false, BODY_SIZE}, {"/whole", false, BODY_SIZE / 3}, {"/whole", false, BODY_SIZE - 3},
    };
    for (const auto& tCase : arrCases)
    {
        SCOPED_TRACE(std::string(tCase.pszPath) + " up to " + std::to_string(tCase.nFileSizeLimit));
        WriteFile(Path("sync.bak"), "left over");
        WriteFile(Path("sync"), "old");
        WriteFile(Path("async"), "old");
        const CFileSizeLimit tLimit(tCase.nFileSizeLimit);

        /* Before Create() as well as beside the running engine. */
        EXPECT_EQ(m_ptEngine->SyncDownloadFile(Url(tCase.pszPath), Path("sync"), 0, 0), tCase.bWhole);
        EXPECT_TRUE(ReadFile(Path("sync")) == (tCase.bWhole ? Body() : "old"));
        EXPECT_EQ(Exists(Path("sync.bak")), !tCase.bWhole);

        m_ptEngine->Create();
        DOWNLOAD_t tDownload;
        EXPECT_EQ(Download(tDownload, tCase.pszPath, "async"),
                  tCase.bWhole ? DOWNLOAD_TYPE_SUCCESS : DOWNLOAD_TYPE_FAIL);
        EXPECT_TRUE(ReadFile(Path("async")) == (tCase.bWhole ? Body() : "old"));
        EXPECT_FALSE(Exists(Path("async.bak")));
        EXPECT_GT(tDownload.dSpeed, 0.0);
        if (tCase.pszPath == std::string("/nolength"))
        {
            EXPECT_EQ(tDownload.vecPercent, std::vector<int>{0});
        }
        else if (tCase.bWhole)
        {
            EXPECT_EQ(tDownload.vecPercent.back(), 100);
        }
        for (size_t i = 0; i < tDownload.vecPercent.size(); ++i)
        {
            EXPECT_EQ(tDownload.vecPercent[i] % 5, 0);
            EXPECT_TRUE(i == 0 || tDownload.vecPercent[i] > tDownload.vecPercent[i - 1]);
        }
    }
}

TEST_F(CDownloadTest, RefusalsCostNothing)
{
    m_ptEngine->Create();
    WriteFile(Path("precious"), "precious");
    WriteFile(Path("left.bak"), "left over");
    const timespec arrAfter2038[2] = {{1LL << 32, 0}, {1LL << 32, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, Path("left.bak").c_str(), arrAfter2038, 0), 0);
    ASSERT_EQ(symlink(Path("precious").c_str(), Path("link.bak").c_str()), 0);
    ASSERT_EQ(symlink(Path("nothing").c_str(), Path("dangling.bak").c_str()), 0);
    ASSERT_EQ(mkfifo(Path("pipe.bak").c_str(), 0600), 0);
    struct
    {
        std::string strUrl;
        std::string strName;
        int nAsync;
        bool bSync;
    } const arrCases[] = {
        {"", Path("x"), -6, false},
        {Url("/whole"), "", -6, false},
        {Url("/whole"), Path("no/such/folder"), -6, false},
        {Url("/whole"), Path("link"), -16, false},
        {Url("/whole"), Path("dangling"), -6, false},
        {Url("/whole"), Path("left"), -16, true},
        {Url("/whole"), Path("pipe"), -16, false},
        {Url("/whole"), Path("precious") + '\0', -6, false},
    };
    for (const auto& tCase : arrCases)
    {
        DOWNLOAD_t tDownload;
        EXPECT_EQ(tDownload.Start(*m_ptEngine, tCase.strUrl, tCase.strName), tCase.nAsync) << tCase.strName;
        EXPECT_EQ(m_ptEngine->SyncDownloadFile(tCase.strUrl, tCase.strName, 0, 0), tCase.bSync) << tCase.strName;
        EXPECT_EQ(tDownload.tEnded.Count(), 0);
    }
    EXPECT_EQ(m_ptEngine->StartDownload(1, Url("/"), Path("x"), nullptr, nullptr), -6);
    EXPECT_EQ(ReadFile(Path("precious")), "precious");
    EXPECT_TRUE(Exists(Path("link.bak")) && Exists(Path("dangling.bak")));
    EXPECT_FALSE(Exists(Path("nothing")) || Exists(Path("x.bak")));

    DOWNLOAD_t tFirst;
    DOWNLOAD_t tSecond;
    ASSERT_EQ(tFirst.Start(*m_ptEngine, Url("/stall"), Path("twice")), 1);
    EXPECT_EQ(tSecond.Start(*m_ptEngine, Url("/tiny"), Path("twice")), -16);
    m_ptEngine->Destroy();
}

TEST_F(CDownloadTest, RenameThatFailsIsNotAFailedDownload)
{
    m_ptEngine->Create();
    for (const char* pszName : {"async", "sync"})
    {
        ASSERT_EQ(mkdir(Path(pszName).c_str(), 0700), 0);
    }
    DOWNLOAD_t tDownload;
    EXPECT_EQ(Download(tDownload, "/tiny", "async"), DOWNLOAD_TYPE_SUCCESS);
    EXPECT_TRUE(m_ptEngine->SyncDownloadFile(Url("/tiny"), Path("sync"), 0, 0));
    EXPECT_EQ(ReadFile(Path("async.bak")) + ReadFile(Path("sync.bak")), "tinytiny");
}

TEST_F(CDownloadTest, SynchronousDownloadIsQuietTimedAndTakesAnId)
{
    const int nBefore = m_ptEngine->CreateDownloadId();
    testing::internal::CaptureStderr();
    EXPECT_TRUE(m_ptEngine->SyncDownloadFile(Url("/whole"), Path("file"), 0, 0));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(m_ptEngine->CreateDownloadId(), nBefore + 2);

    /* The third argument limits the whole transfer; otherwise only 30 seconds of low speed would end it. */
    const auto tStart = std::chrono::steady_clock::now();
    EXPECT_FALSE(m_ptEngine->SyncDownloadFile(Url("/stall"), Path("slow"), 1, 0));
    EXPECT_LT(std::chrono::steady_clock::now() - tStart, seconds(25));
    EXPECT_FALSE(m_ptEngine->CancelDownload(nBefore + 1, true));

    std::vector<std::thread> vecThreads;
    for (int i = 0; i < 8; ++i)
    {
        vecThreads.emplace_back(
            [this, i]
            {
                const std::string strPath = Path("beside" + std::to_string(i));
                EXPECT_TRUE(m_ptEngine->SyncDownloadFile(Url("/whole"), strPath, 0, 0));
                EXPECT_TRUE(ReadFile(strPath) == Body());
            });
    }
    for (std::thread& tThread : vecThreads)
    {
        tThread.join();
    }
}

TEST_F(CDownloadTest, CancelsFromAnyThreadAndFromCallbacks)
{
    m_ptEngine->Create();
    constexpr int THREADS = 4;
    constexpr int DOWNLOADS = 60;
    std::vector<DOWNLOAD_t> vecDownloads(DOWNLOADS);
    for (DOWNLOAD_t& tDownload : vecDownloads)
    {
        const std::string strPath = Path(std::to_string(&tDownload - vecDownloads.data()));
        ASSERT_EQ(tDownload.Start(*m_ptEngine, Url("/endless"), strPath), 1);
    }
    std::vector<std::thread> vecThreads;
    for (size_t i = 0; i < THREADS; ++i)
    {
        vecThreads.emplace_back(
            [&, i]
            {
                for (size_t n = i; n < DOWNLOADS; n += THREADS)
                {
                    EXPECT_TRUE(vecDownloads[n].tProgress.Wait());
                    EXPECT_TRUE(m_ptEngine->CancelDownload(vecDownloads[n].nId, true));
                }
            });
    }
    for (std::thread& tThread : vecThreads)
    {
        tThread.join();
    }
    for (DOWNLOAD_t& tDownload : vecDownloads)
    {
        ASSERT_TRUE(tDownload.tEnded.Wait());
        EXPECT_EQ(tDownload.eFinal, DOWNLOAD_TYPE_CANCEL);
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(Path("")), {}), 0);

    DOWNLOAD_t tOwn;
    tOwn.fnOnEvent = [this](int nId, DOWNLOAD_TYPE_e eType)
    { EXPECT_EQ(m_ptEngine->CancelDownload(nId, true), true) << eType; };
    EXPECT_EQ(Download(tOwn, "/endless", "own"), DOWNLOAD_TYPE_CANCEL);
    EXPECT_EQ(tOwn.vecPercent.size(), 1U);

    /* A plain server takes the TLS greeting for a request that never ends, and keeps silent. */
    DOWNLOAD_t tHandshake;
    const std::string strSecure = "https" + Url("/").substr(4);
    ASSERT_EQ(tHandshake.Start(*m_ptEngine, strSecure, Path("handshake")), 1);
    EXPECT_TRUE(tHandshake.tProgress.Wait());
    std::this_thread::sleep_for(
        std::chrono::milliseconds(300)); // by then the greeting is sent; earlier would be easier
    EXPECT_TRUE(m_ptEngine->CancelDownload(tHandshake.nId, true));
    ASSERT_TRUE(tHandshake.tEnded.Wait()) << "libcurl asks for no turn during a handshake";
    EXPECT_EQ(tHandshake.eFinal, DOWNLOAD_TYPE_CANCEL);

    DOWNLOAD_t tSilent;
    ASSERT_EQ(tSilent.Start(*m_ptEngine, Url("/stall"), Path("silent")), 1);
    EXPECT_TRUE(tSilent.tProgress.Wait());
    EXPECT_FALSE(m_ptEngine->CancelDownload(tSilent.nId + 1, false));
    EXPECT_TRUE(m_ptEngine->CancelDownload(tSilent.nId, false));
    EXPECT_TRUE(m_ptEngine->CancelDownload(tSilent.nId, true)) << "does not bring the callback back";
    m_ptEngine->Destroy();
    EXPECT_EQ(tSilent.tEnded.Count(), 0);
    EXPECT_FALSE(Exists(Path("silent.bak")));
    EXPECT_FALSE(m_ptEngine->CancelDownload(tOwn.nId, true));
}

TEST_F(CDownloadTest, CancellationRacesCompletion)
{
    m_ptEngine->Create();
    constexpr int ROUNDS = 3000;
    std::vector<DOWNLOAD_t> vecDownloads(ROUNDS);
    for (int i = 0; i < ROUNDS; ++i)
    {
        DOWNLOAD_t& tDownload = vecDownloads[static_cast<size_t>(i)];
        const bool bNotify = i % 2 == 0;
        const std::string strPath = Path(std::to_string(i));
        ASSERT_EQ(tDownload.Start(*m_ptEngine, Url("/tiny"), strPath), 1);
        for (int nSpins = i % 50 * 20; nSpins > 0; --nSpins)
        {
            std::this_thread::yield(); // moves the cancellation through the whole life of the download
        }
        if (!m_ptEngine->CancelDownload(tDownload.nId, bNotify) || bNotify)
        {
            ASSERT_TRUE(tDownload.tEnded.Wait());
        }
    }
    m_ptEngine->Destroy();
    for (int i = 0; i < ROUNDS; ++i)
    {
        DOWNLOAD_t& tDownload = vecDownloads[static_cast<size_t>(i)];
        EXPECT_LE(tDownload.tEnded.Count(), 1);
        EXPECT_FALSE(Exists(Path(std::to_string(i) + ".bak")));
        EXPECT_TRUE(tDownload.eFinal != DOWNLOAD_TYPE_SUCCESS || ReadFile(Path(std::to_string(i))) == "tiny");
    }
}

TEST_F(CDownloadTest, BrokenConnectionRaisesNoSignal)
{
    CLoopbackServer tClosing([](CConnection& tConnection, const REQUEST_t&) { tConnection.Reset(); }, true);
    m_ptEngine->Create();
    _HTTP_REQ_INFO_t tRequest = GetRequest(tClosing.Url());
    tRequest.eMethod = HTTP_METHOD_POST;
    tRequest.strPostData.assign(20000000, 'x');
    tRequest.lstHeader = {"Expect:", "Content-Length: 0"}; // the server answers before the body has been sent
    EXPECT_FALSE(m_ptEngine->Post(&tRequest, true));

    /* TLS libraries that write without care for the signal: the callbacks that run inside libcurl stand in for them. */
    DOWNLOAD_t tDownload;
    tDownload.fnOnEvent = [](int, DOWNLOAD_TYPE_e) { raise(SIGPIPE); };
    EXPECT_EQ(Download(tDownload, "/tiny", "async"), DOWNLOAD_TYPE_SUCCESS);
    WQCurl::WQCurlEasy tEasy;
    ASSERT_TRUE(tEasy.Initialize());
    EXPECT_TRUE(tEasy.setOption(WQCurl::URL, Url("/tiny")));
    EXPECT_TRUE(tEasy.setOption(WQCurl::WRITEFUNCTION, [](char*, size_t nSize, size_t nCount, void*)
                                { return raise(SIGPIPE) == 0 ? nSize * nCount : 0; }));
    EXPECT_TRUE(tEasy.send());

    sigset_t tBlocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &tBlocked);
    EXPECT_EQ(sigismember(&tBlocked, SIGPIPE), 0);
}

TEST_F(CDownloadTest, FileBeyondTwoGigabytes)
{
    const auto nFree = std::filesystem::space(Path("")).available;
    if (nFree < (3ULL << 30))
    {
        GTEST_SKIP() << "needs 3 GiB of free space";
    }
    m_ptEngine->Create();
    DOWNLOAD_t tDownload;
    EXPECT_EQ(Download(tDownload, "/huge", "huge"), DOWNLOAD_TYPE_SUCCESS);
    struct stat64 tStat = {};
    EXPECT_EQ(stat64(Path("huge").c_str(), &tStat), 0);
    EXPECT_EQ(tStat.st_size, (1LL << 31) + 100);
    EXPECT_EQ(tDownload.vecPercent.size(), 21U);
}
