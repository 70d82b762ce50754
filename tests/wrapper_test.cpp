/* The curl wrapper's own promises, which hold whatever libcurl, the server and the disk do. */

#include <netinet/tcp.h>

#include "engine_fixture.h"

static const std::string OK = "HTTP/1.1 200 OK\r\n";

class CWrapperTest : public CEngineTest
{
protected:
    bool Send(WQCurl::WRITE_FUNCTION_t pfnWrite, WQCurl::PROGRESS_FUNCTION_t pfnProgress = nullptr)
    {
        WQCurl::WQCurlEasy tEasy;
        EXPECT_TRUE(tEasy.Initialize());
        EXPECT_TRUE(tEasy.setOption(WQCurl::URL, Url("/7")));
        EXPECT_TRUE(tEasy.setOption(WQCurl::WRITEFUNCTION, pfnWrite));
        EXPECT_TRUE(tEasy.setOption(WQCurl::NOPROGRESS, 0L));
        EXPECT_TRUE(tEasy.setOption(WQCurl::PROGRESSFUNCTION, pfnProgress));
        return tEasy.send();
    }
};

TEST_F(CWrapperTest, AnswerThatBreaksOffInItsHeaderLinesFails)
{
    for (const std::string& strCut : {OK.substr(0, 12), OK, OK + "X-H", OK + "X-H: y\r\n", OK + "Content-Length: 5000",
                                      std::string("HTTP/1.1 103 Early Hints\r\nLink: x\r\n\r\n")})
    {
        m_strRaw = strCut;
        for (const bool bReused : {false, true})
        {
            SCOPED_TRACE(strCut + (bReused ? ", on a used connection" : ""));
            EXPECT_TRUE(!bReused || Get(Url()));
            EXPECT_FALSE(Get(Url(RAW)));
            std::ofstream(Path("file")) << "old";
            EXPECT_TRUE(!bReused || Get(Url()));
            EXPECT_EQ(Download(Url(RAW)), DOWNLOAD_TYPE_FAIL);
            EXPECT_FALSE(SyncDownload(Url(RAW), "file"));
            EXPECT_EQ(ReadFile(Path("file")), "old");
            std::filesystem::remove(Path("file.bak"));
        }
    }
    m_strRaw = "HTTP/1.1 100 Go on\r\n\r\n" + OK + "\r\nwhole";
    EXPECT_EQ(Answer(Url(RAW)), "whole");
}

TEST_F(CWrapperTest, HeaderLinesBeyondTheirLimitFail)
{
    for (const size_t nLines : {2000U, 3200U}) // some libcurls accept no more than 5000 lines
    {
        const std::string strLines = Repeat("A: " + std::string(100, 'b') + "\r\n", nLines);
        for (const std::string& strAnswer :
             {OK + strLines + "\r\nx", Repeat("HTTP/1.1 103 Early\r\n\r\n", nLines * 9 / 2) + OK + "\r\nx",
              OK + "Transfer-Encoding: chunked\r\n\r\n1\r\nx\r\n0\r\n" + strLines + "\r\n"})
        {
            m_strRaw = strAnswer;
            EXPECT_EQ(Answer(Url(RAW)) == "x", nLines == 2000) << nLines << " of " << strAnswer.substr(0, 60);
        }
    }
}

TEST_F(CWrapperTest, NoTransferHoldsAStepForLong)
{
    static size_t s_nCalls, s_nBytes; // of a step
    const auto pfnWrite = [](char*, size_t nSize, size_t nCount, void*)
    {
        ++s_nCalls;
        s_nBytes += nSize * nCount;
        std::this_thread::sleep_for(10us); // the server stays ahead
        return nSize * nCount;
    };
    m_strRaw = OK + "Transfer-Encoding: chunked\r\n\r\n" + Repeat("1\r\nc\r\n", 20000) + "0\r\n\r\n";
    for (const auto& [strUrl, nLength] : {std::pair(Url(RAW), 20000U), std::pair(Url("/100000000"), 100000000U)})
    {
        SCOPED_TRACE(strUrl);
        WQCurl::WQCurlEasy tEasy;
        WQCurl::WQCurlMulti tMulti;
        EXPECT_TRUE(tMulti.Initialize() && tEasy.Initialize());
        EXPECT_TRUE(tEasy.setOption(WQCurl::URL, strUrl) && tEasy.setOption(WQCurl::WRITEFUNCTION, pfnWrite));
        EXPECT_TRUE(tMulti.addHandle(&tEasy));
        size_t nReceived = 0;
        for (int nRunning = 1; nRunning > 0; nReceived += s_nBytes)
        {
            s_nCalls = s_nBytes = 0;
            ASSERT_TRUE(tMulti.fdSelect(nRunning));
            EXPECT_LE(s_nCalls, 1000U);
            EXPECT_LE(s_nBytes, 3000000U);
        }
        EXPECT_EQ(nReceived, nLength);
        EXPECT_TRUE(tMulti.InfoRead().bResult);
        EXPECT_TRUE(tMulti.removeHandle(&tEasy));
    }
}

TEST_F(CWrapperTest, FailedWaitIsRepeatedAfterAPause)
{
    WQCurl::WQCurlMulti tMulti;
    int nRunning = 0;
    EXPECT_TRUE(tMulti.Initialize());
    g_tCalls.Fail("epoll_wait", EBADF);
    EXPECT_GT(SecondsOf([&] { EXPECT_FALSE(tMulti.fdSelect(nRunning)); }), 0.005);
}

TEST_F(CWrapperTest, FailedWriteOfBufferedDataFailsTheTransfer)
{
    constexpr size_t CHUNKS = 2200; // small ones: libcurl holds much back when a turn ends
    m_strRaw = OK + "Transfer-Encoding: chunked\r\n\r\n" + Repeat("400\r\n" + std::string(1024, 'c') + "\r\n", CHUNKS) +
               "0\r\n\r\n";
    for (size_t nShort = 1; nShort < 150; nShort += 8)
    {
        LimitFiles((CHUNKS - nShort) * 1024);
        EXPECT_EQ(Download(Url(RAW)), DOWNLOAD_TYPE_FAIL) << nShort << " KiB did not fit";
        EXPECT_FALSE(std::filesystem::exists(Path("file")));
    }
    LimitFiles(RLIM_INFINITY);
    EXPECT_EQ(Download(Url(RAW)), DOWNLOAD_TYPE_SUCCESS);
    EXPECT_EQ(std::filesystem::file_size(Path("file")), CHUNKS * 1024);
}

TEST_F(CWrapperTest, CancelsInEveryState)
{
    g_tCalls.bNameServerSilent = true;
    const std::string arrUrls[] = {
        Url(STALL),                // stalls after the request
        SilentTlsUrl(),            // is in a TLS handshake, where libcurl asks for no turn
        "http://counted.invalid/", // looks the name up
    };
    for (const std::string& strUrl : arrUrls)
    {
        OUTCOME_t tDownload;
        ASSERT_EQ(Start(tDownload, strUrl, "file"), 1);
        EXPECT_TRUE(tDownload.tProgress.Wait());
        std::this_thread::sleep_for(300ms); // the state is reached; cancelling earlier is easier
        EXPECT_LT(SecondsOf([&] { EXPECT_EQ(Cancel(tDownload), DOWNLOAD_TYPE_CANCEL) << strUrl; }), 10)
            << "a time-out ends it later";
    }
    const std::ptrdiff_t nDescriptors = CountDescriptors();
    g_tCalls.bNameServerSilent = false;
    WaitUntil([&] { return CountDescriptors() != nDescriptors; }); // the look-up's thread closes its sockets at its end
}

TEST_F(CWrapperTest, SilentPeersAreGivenUp)
{
    OUTCOME_t tStalled;
    ASSERT_TRUE(Start(tStalled, Url(STALL)));
    EXPECT_TRUE(m_tArrived.Wait());
    const std::vector<int> vecSockets = SocketsTo(*m_tServer);
    ASSERT_EQ(vecSockets.size(), 1U);
    int nMilliseconds = 0;
    socklen_t nSize = sizeof nMilliseconds;
    EXPECT_EQ(getsockopt(vecSockets[0], IPPROTO_TCP, TCP_USER_TIMEOUT, &nMilliseconds, &nSize), 0);
    EXPECT_EQ(nMilliseconds, 30000);
    EXPECT_LT(SecondsOf([&] { EXPECT_FALSE(SyncDownload(SilentTlsUrl(), "handshake", 0, 1)); }), 25)
        << "the caller's limit";
    m_ptEngine->Destroy();
}

TEST_F(CWrapperTest, DeadIdleConnectionsFailNoRequest)
{
    std::atomic<int> nConnections{0};
    CLoopbackServer tServer(
        [&](CConnection& tConnection, const REQUEST_t& tRequest)
        {
            thread_local bool t_bUsed = false;
            ++nConnections;
            std::exchange(t_bUsed, true) ? tConnection.Shutdown() : m_fnServe(tConnection, tRequest);
        });
    for (int i = 0; i < 21; ++i)
    {
        EXPECT_TRUE(Get(tServer.Url())) << i;
    }
    EXPECT_EQ(nConnections, 41) << "the first connection is new, the others replace one that died";
    m_tSettings.nMostIdleConnections = 16;
    Burst(tServer.Url(""), 16);
    EXPECT_TRUE(Get(tServer.Url())) << "libcurl alone gives up after five that died";
}

TEST_F(CWrapperTest, SocketsOfTheApplicationAreLeftAlone)
{
    const int nListener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in tAddress{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    auto* const ptAddress = reinterpret_cast<sockaddr*>(&tAddress);
    socklen_t nSize = sizeof tAddress;
    ASSERT_EQ(bind(nListener, ptAddress, nSize) + listen(nListener, 0) + getsockname(nListener, ptAddress, &nSize), 0);
    const int nOnly = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(connect(nOnly, ptAddress, nSize), 0); // others wait until it is accepted
    OUTCOME_t tDownload;
    ASSERT_EQ(Start(tDownload, "http://127.0.0.1:" + std::to_string(ntohs(tAddress.sin_port)), "file"), 1);
    EXPECT_TRUE(tDownload.tProgress.Wait());
    EXPECT_EQ(Cancel(tDownload), DOWNLOAD_TYPE_CANCEL);

    /* Some libcurls do not tell that they close a socket that never connected. One of these has its number. */
    int arrPairs[8][2];
    char cByte = 'x';
    for (auto& arrPair : arrPairs)
    {
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, arrPair), 0);
        EXPECT_EQ(write(arrPair[0], &cByte, 1) + write(arrPair[1], &cByte, 1), 2);
    }
    EXPECT_TRUE(Get(Url(HEAD)));
    for (const auto& arrPair : arrPairs)
    {
        EXPECT_EQ(recv(arrPair[0], &cByte, 1, MSG_DONTWAIT) + recv(arrPair[1], &cByte, 1, MSG_DONTWAIT), 2);
        close(arrPair[0]);
        close(arrPair[1]);
    }
    close(nOnly);
    close(nListener);
}

TEST_F(CWrapperTest, IdleConnectionsOnWhichTheServerSendsAreNotReused)
{
    constexpr int BURST = 8;
    m_tSettings.nMostIdleConnections = 100; // keeps those of the first server too
    for (const bool bTls : {false, true})
    {
        CGate tFarewell;
        const auto fnServe = [&](CConnection& tConnection, const REQUEST_t& tRequest)
        {
            m_fnServe(tConnection, tRequest);
            if (tRequest.strPath == GATED && tFarewell.Wait())
            {
                tConnection.Send("HTTP/1.1 408 Request Timeout\r\nContent-Length: 4\r\n\r\nlate");
                tConnection.Shutdown();
            }
        };
        CLoopbackServer tServer(fnServe, bTls);
        Burst(tServer.Url(""), BURST);
        const std::vector<int> vecSockets = SocketsTo(tServer);
        EXPECT_EQ(vecSockets.size(), size_t{BURST});
        tFarewell.Open();
        for (const int nSocket : vecSockets)
        {
            pollfd tPoll{nSocket, POLLRDHUP, 0};
            EXPECT_EQ(poll(&tPoll, 1, 60000), 1);
        }
        for (int i = 0; i < BURST; ++i)
        {
            EXPECT_EQ(Answer(tServer.Url()), "GET / ") << (bTls ? "https" : "http");
        }
    }
}

TEST_F(CWrapperTest, CallbacksThatFailOrRaiseASignalEndTheirTransfer)
{
    const auto pfnPause = [](char*, size_t, size_t, void*) -> size_t
    { return 0x10000001; }; // libcurl takes it for a pause
    const auto pfnThrow = [](char*, size_t, size_t, void*) -> size_t { throw 1; };
    const auto pfnThrowProgress = [](void*, double, double, double, double) -> int { throw 1; };
    EXPECT_FALSE(Send(pfnPause));
    EXPECT_FALSE(Send(pfnThrow));
    EXPECT_FALSE(Send(nullptr, pfnThrowProgress));

    sigset_t tSignals;
    sigemptyset(&tSignals);
    sigaddset(&tSignals, SIGPIPE);
    /* Stands for a TLS library that writes to a closed connection. */
    const auto pfnRaise = [](char*, size_t nSize, size_t nCount, void*)
    { return raise(SIGPIPE) == 0 ? nSize * nCount : 0; };
    for (const bool bBlocked : {false, true}) // by the application; the mask stays as it was
    {
        pthread_sigmask(bBlocked ? SIG_BLOCK : SIG_UNBLOCK, &tSignals, nullptr);
        EXPECT_TRUE(Send(pfnRaise));
        EXPECT_EQ(IsBlocked(SIGPIPE), bBlocked);
        EXPECT_FALSE(IsBlocked(SIGXFSZ));
    }
    const timespec tNoWait{};
    EXPECT_EQ(sigtimedwait(&tSignals, nullptr, &tNoWait), SIGPIPE);
    pthread_sigmask(SIG_UNBLOCK, &tSignals, nullptr);
}
