/* The curl wrapper's own promises, which hold whatever libcurl, the server and the disk do. */

#include <netinet/tcp.h>

#include "engine_fixture.h"

namespace
{

const std::string OK = "HTTP/1.1 200 OK\r\n";

std::string Repeat(const std::string& strPart, size_t nTimes)
{
    std::string strAll;
    for (size_t i = 0; i < nTimes; ++i)
    {
        strAll += strPart;
    }
    return strAll;
}

/** Listens on 127.0.0.1 with a full queue, so that a connection to it is neither accepted nor refused. */
struct SILENT_ADDRESS_t
{
    SILENT_ADDRESS_t()
    {
        sockaddr_in tAddress{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
        socklen_t nSize = sizeof tAddress;
        auto* ptAddress = reinterpret_cast<sockaddr*>(&tAddress);
        std::generate(std::begin(arrSockets), std::end(arrSockets),
                      [] { return socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0); });
        EXPECT_EQ(bind(arrSockets[0], ptAddress, nSize) + listen(arrSockets[0], 0), 0);
        EXPECT_EQ(getsockname(arrSockets[0], ptAddress, &nSize), 0);
        std::for_each(&arrSockets[1], std::end(arrSockets),
                      [&](int nSocket) { return connect(nSocket, ptAddress, nSize); });
        strPort = std::to_string(ntohs(tAddress.sin_port));
    }
    ~SILENT_ADDRESS_t() { std::for_each(std::begin(arrSockets), std::end(arrSockets), &close); }

    int arrSockets[5] = {};
    std::string strPort;
};

} // namespace

class CWrapperTest : public CEngineTest
{
protected:
    CWrapperTest() { EXPECT_TRUE(m_tMulti.Initialize()); }

    void Add(WQCurl::WQCurlEasy& tEasy, const std::string& strUrl, WQCurl::WRITE_FUNCTION_t pfnWrite = nullptr,
             WQCurl::PROGRESS_FUNCTION_t pfnProgress = nullptr)
    {
        EXPECT_TRUE(tEasy.Initialize());
        EXPECT_TRUE(tEasy.setOption(WQCurl::URL, strUrl));
        EXPECT_TRUE(tEasy.setOption(WQCurl::WRITEFUNCTION, pfnWrite));
        EXPECT_TRUE(tEasy.setOption(WQCurl::WRITEDATA, &*m_tServer));
        EXPECT_TRUE(tEasy.setOption(WQCurl::NOPROGRESS, 0L));
        EXPECT_TRUE(tEasy.setOption(WQCurl::PROGRESSFUNCTION, pfnProgress));
        EXPECT_TRUE(m_tMulti.addHandle(&tEasy));
    }

    /** Takes steps until a transfer ends, and removes it. @return whether it succeeded */
    bool Run(
        const WQCurl::WQCurlEasy& tEasy, const std::function<void()>& fnAfterStep = [] {})
    {
        WQCurl::WQCurlMulti::MultiMsg tMsg;
        const auto tLatest = std::chrono::steady_clock::now() + 30s;
        while (tMsg.pEasyHandle == nullptr && std::chrono::steady_clock::now() < tLatest)
        {
            EXPECT_TRUE(m_tMulti.fdSelect(m_nRunning));
            fnAfterStep();
            tMsg = m_tMulti.InfoRead();
        }
        EXPECT_EQ(tMsg.pEasyHandle, &tEasy);
        EXPECT_EQ(tMsg.strErrorMsg.empty(), tMsg.bResult);
        EXPECT_TRUE(m_tMulti.removeHandle(&tEasy));
        return tMsg.bResult;
    }

    /** Takes steps for a time, in each of which a function may fail. @return how many */
    int CountSteps(std::chrono::milliseconds tLength, const char* pszFailing = "")
    {
        int nSteps = 0;
        for (const auto tEnd = std::chrono::steady_clock::now() + tLength; std::chrono::steady_clock::now() < tEnd;)
        {
            g_tCalls.Fail(pszFailing, EBADF);
            EXPECT_EQ(m_tMulti.fdSelect(m_nRunning), *pszFailing == '\0');
            ++nSteps;
        }
        g_tCalls.Fail("", 0);
        return nSteps;
    }

    WQCurl::WQCurlMulti m_tMulti;
    int m_nRunning = 0;
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
    static std::atomic<size_t> s_nCalls;
    static std::atomic<size_t> s_nBytes;
    const auto pfnWrite = [](char*, size_t nSize, size_t nCount, void*)
    {
        ++s_nCalls;
        s_nBytes += nSize * nCount;
        return nSize * nCount;
    };
    m_strRaw = OK + "Transfer-Encoding: chunked\r\n\r\n" + Repeat("1\r\nc\r\n", 100000) + "0\r\n\r\n";
    for (const auto& [strUrl, nLength] : {std::pair(Url(RAW), 100000U), std::pair(Url("/100000000"), 100000000U)})
    {
        SCOPED_TRACE(strUrl);
        WQCurl::WQCurlEasy tEasy;
        Add(tEasy, strUrl, pfnWrite);
        size_t nReceived = 0;
        const auto fnAfterStep = [&nReceived]
        {
            EXPECT_LE(s_nCalls.exchange(0), 1000U);
            EXPECT_LE(s_nBytes, 3000000U);
            nReceived += s_nBytes.exchange(0);
        };
        EXPECT_TRUE(Run(tEasy, fnAfterStep));
        EXPECT_EQ(nReceived, nLength);
    }
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
    const SILENT_ADDRESS_t tSilent;
    g_tCalls.bNameServerSilent = true;
    const std::string arrUrls[] = {
        Url(STALL),                              // stalls after the request
        SilentTlsUrl(),                          // is in a TLS handshake, where libcurl asks for no turn
        "http://counted.invalid/",               // looks the name up
        "http://two.invalid:" + tSilent.strPort, // tries a silent address and one that refuses
    };
    OUTCOME_t arrDownloads[4];
    for (OUTCOME_t& tDownload : arrDownloads)
    {
        const auto nIndex = &tDownload - arrDownloads;
        ASSERT_EQ(Start(tDownload, arrUrls[nIndex], std::to_string(nIndex)), 1);
    }
    for (OUTCOME_t& tDownload : arrDownloads)
    {
        EXPECT_TRUE(tDownload.tProgress.Wait());
    }
    std::this_thread::sleep_for(300ms); // each state is reached; cancelling earlier is easier
    const auto fnCancel = [&]
    {
        for (OUTCOME_t& tDownload : arrDownloads)
        {
            EXPECT_TRUE(m_ptEngine->CancelDownload(tDownload.nId, true));
            EXPECT_TRUE(tDownload.tEnded.Wait());
            EXPECT_EQ(tDownload.eType, DOWNLOAD_TYPE_CANCEL) << tDownload.nId;
        }
    };
    EXPECT_LT(SecondsOf(fnCancel), 10) << "time-outs end them later";
    const std::ptrdiff_t nDescriptors = CountDescriptors();
    g_tCalls.bNameServerSilent = false;
    WaitUntil([&] { return CountDescriptors() != nDescriptors; }); // the look-up's thread closes its sockets at its end
}

TEST_F(CWrapperTest, SilentPeersAreGivenUp)
{
    m_tSettings.nConnectTimeout = 2;
    OUTCOME_t tStalled, tConnecting;
    EXPECT_TRUE(WQCurl::SetTransferDefaults(m_tSettings));
    ASSERT_TRUE(Start(tStalled, Url(STALL)));
    const auto fnDownload = [&] { EXPECT_FALSE(m_ptEngine->SyncDownloadFile(Url(STALL), Path("sync"), 3, 0)); };
    std::thread tCaller([&] { EXPECT_LT(SecondsOf(fnDownload), 25); });
    EXPECT_TRUE(m_tArrived.Wait(2));
    const std::vector<int> vecSockets = SocketsTo(*m_tServer);
    EXPECT_EQ(vecSockets.size(), 2U);
    for (const int nSocket : vecSockets)
    {
        int nMilliseconds = 0;
        socklen_t nSize = sizeof nMilliseconds;
        EXPECT_EQ(getsockopt(nSocket, IPPROTO_TCP, TCP_USER_TIMEOUT, &nMilliseconds, &nSize), 0);
        EXPECT_EQ(nMilliseconds, 30000);
    }
    ASSERT_EQ(Start(tConnecting, SilentTlsUrl(), "file"), 1);
    EXPECT_LT(SecondsOf([&] { EXPECT_TRUE(tConnecting.tEnded.Wait()); }), 25);
    EXPECT_EQ(tConnecting.eType, DOWNLOAD_TYPE_FAIL);
    m_tSettings.nConnectTimeout = 30;
    EXPECT_LT(SecondsOf([&] { EXPECT_FALSE(SyncDownload(SilentTlsUrl(), "handshake", 0, 1)); }), 25)
        << "the caller's limit";
    tCaller.join();
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
            m_tArrived.Open();
            EXPECT_TRUE(tRequest.strPath != GATED || m_tGoOn.Wait());
            if (std::exchange(t_bUsed, true))
            {
                return tConnection.Shutdown();
            }
            tConnection.Answer("answer");
        });
    for (int i = 0; i < 21; ++i)
    {
        EXPECT_EQ(Answer(tServer.Url()), "answer") << i;
    }
    EXPECT_EQ(nConnections, 41) << "the first connection is new, the others replace one that died";
    m_tSettings.nMostIdleConnections = 16;
    Burst(tServer, 16);
    EXPECT_EQ(Answer(tServer.Url()), "answer") << "libcurl alone gives up after five that died";
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
            m_tArrived.Open();
            EXPECT_TRUE(tRequest.strPath != GATED || m_tGoOn.Wait());
            tConnection.Answer("answer");
            if (tRequest.strPath == GATED && tFarewell.Wait())
            {
                tConnection.Send("HTTP/1.1 408 Request Timeout\r\nContent-Length: 4\r\n\r\nlate");
                tConnection.Shutdown();
            }
        };
        CLoopbackServer tServer(fnServe, bTls);
        Burst(tServer, BURST);
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
            EXPECT_EQ(Answer(tServer.Url()), "answer") << (bTls ? "https" : "http");
        }
    }
}

TEST_F(CWrapperTest, CallbacksThatFailOrRaiseASignalEndTheirTransfer)
{
    const auto pfnPause = [](char*, size_t, size_t, void*) -> size_t
    { return 0x10000001; }; // libcurl takes it for a pause
    const auto pfnThrow = [](char*, size_t, size_t, void*) -> size_t { throw 1; };
    const auto pfnThrowProgress = [](void*, double, double, double, double) -> int { throw 1; };
    const std::tuple<bool, WQCurl::WRITE_FUNCTION_t, WQCurl::PROGRESS_FUNCTION_t> arrCases[] = {
        {false, pfnPause, nullptr},
        {false, pfnThrow, nullptr},
        {false, nullptr, pfnThrowProgress},
        {true, &RaiseSigpipe, nullptr},
    };
    for (const auto& [bResult, pfnWrite, pfnProgress] : arrCases)
    {
        WQCurl::WQCurlEasy tEasy;
        Add(tEasy, Url("/7"), pfnWrite, pfnProgress);
        EXPECT_EQ(Run(tEasy), bResult) << "case " << &bResult - &std::get<0>(arrCases[0]);
    }
}

TEST_F(CWrapperTest, StepsDoNotSpin)
{
    WQCurl::WQCurlEasy tStalled, tBroken, tWhole;
    Add(tStalled, Url(STALL));
    EXPECT_LE(CountSteps(300ms, "epoll_wait"), 100) << "a wait that fails is repeated after a pause";

    static std::vector<int> s_vecCopies; // of sockets, as a forked process has them
    const auto pfnCopy = [](char*, size_t nSize, size_t nCount, void* pServer)
    {
        s_vecCopies = SocketsTo(*static_cast<CLoopbackServer*>(pServer));
        std::transform(s_vecCopies.begin(), s_vecCopies.end(), s_vecCopies.begin(), &dup);
        return nSize * nCount;
    };
    Add(tBroken, Url("/7/cut"), pfnCopy);
    EXPECT_FALSE(Run(tBroken));
    m_strRaw = OK + "Content-Length: 6\r\n\r\nanswer";
    Add(tWhole, Url(RAW));
    EXPECT_TRUE(Run(tWhole));
    EXPECT_LE(CountSteps(2s), 14) << "beside a stall, a copy of a closed connection, and an idle one that ends";
    EXPECT_EQ(m_nRunning, 1);
    EXPECT_TRUE(m_tMulti.removeHandle(&tStalled));
    std::for_each(s_vecCopies.begin(), s_vecCopies.end(), &close);
}
