/* What the curl wrapper promises by itself, whatever libcurl, the server and the disk do. */

#include <netinet/tcp.h>

#include "engine_fixture.h"
#include "interposed.h"

namespace
{

/** Listens on 127.0.0.1 and accepts nobody: its queue is full, so that who else connects hears nothing. */
class CSilentAddress
{
public:
    CSilentAddress()
    {
        socklen_t nSize = sizeof m_tAddress;
        auto* ptAddress = reinterpret_cast<sockaddr*>(&m_tAddress);
        for (int& nSocket : m_arrSockets)
        {
            nSocket = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
            if (&nSocket == m_arrSockets)
            {
                EXPECT_EQ(bind(nSocket, ptAddress, nSize) + listen(nSocket, 0), 0);
                EXPECT_EQ(getsockname(nSocket, ptAddress, &nSize), 0);
            }
            connect(nSocket, ptAddress, nSize); // refused to the first, which listens
        }
    }
    ~CSilentAddress() { std::for_each(std::begin(m_arrSockets), std::end(m_arrSockets), &close); }

    std::string Port() const { return std::to_string(ntohs(m_tAddress.sin_port)); }

private:
    int m_arrSockets[5] = {};
    sockaddr_in m_tAddress{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
};

} // namespace

using CWrapperTest = CEngineTest;

TEST_F(CWrapperTest, AnswerThatBreaksOffInItsHeaderLinesFails)
{
    const std::string OK = "HTTP/1.1 200 OK\r\n";
    for (const std::string& strCut : {OK.substr(0, 12), OK, OK + "X-H", OK + "X-H: y\r\n", OK + "Content-Length: 5000",
                                      std::string("HTTP/1.1 103 Early Hints\r\nLink: x\r\n\r\n")})
    {
        m_strRaw = strCut;
        for (const bool bReused : {false, true})
        {
            SCOPED_TRACE(strCut + (bReused ? ", on a used connection" : ""));
            EXPECT_TRUE(!bReused || Get(Url()));
            const std::string strAnswer = Answer(Url(RAW));
            EXPECT_EQ(strAnswer.substr(0, 8), "failed: ");
            EXPECT_GT(strAnswer.size(), 8U);

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
    const std::string OK = "HTTP/1.1 200 OK\r\n";
    const std::string LINE = "A: " + std::string(100, 'b') + "\r\n"; // some libcurls take no more than 5000 lines
    const auto fnRepeat = [](const std::string& strLine, size_t nBytes)
    {
        std::string strLines;
        for (; strLines.size() < nBytes; strLines += strLine)
        {
        }
        return strLines;
    };
    for (const size_t nBytes : {200000U, 320000U})
    {
        for (const std::string& strAnswer :
             {OK + fnRepeat(LINE, nBytes) + "\r\nx", fnRepeat("HTTP/1.1 103 Early\r\n\r\n", nBytes) + OK + "\r\nx",
              OK + "Transfer-Encoding: chunked\r\n\r\n1\r\nx\r\n0\r\n" + fnRepeat(LINE, nBytes) + "\r\n"})
        {
            m_strRaw = strAnswer;
            const std::string strResult = Answer(Url(RAW));
            EXPECT_TRUE(nBytes < 307200 ? strResult == "x" : strResult.rfind("failed: ", 0) == 0)
                << nBytes << " of " << strAnswer.substr(0, 60) << strResult;
        }
    }
}

TEST_F(CWrapperTest, BodyInTinyChunksIsTakenInTurns)
{
    constexpr size_t CHUNKS = 100000;
    m_strRaw = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    for (size_t i = 0; i < CHUNKS; ++i)
    {
        m_strRaw += "1\r\nc\r\n";
    }
    m_strRaw += "0\r\n\r\n";
    static size_t s_nCalls;
    static size_t s_nBytes;
    const auto pfnWrite = [](char*, size_t nSize, size_t nCount, void*)
    {
        ++s_nCalls;
        s_nBytes += nSize * nCount;
        return nSize * nCount;
    };
    WQCurl::WQCurlMulti tMulti;
    WQCurl::WQCurlEasy tEasy;
    EXPECT_TRUE(tMulti.Initialize() && tEasy.Initialize());
    EXPECT_TRUE(tEasy.setOption(WQCurl::URL, Url(RAW)) && tEasy.setOption(WQCurl::WRITEFUNCTION, pfnWrite));
    EXPECT_TRUE(tMulti.addHandle(&tEasy));
    WQCurl::WQCurlMulti::MultiMsg tMsg;
    size_t nMostInStep = 0;
    while (tMsg.pEasyHandle == nullptr)
    {
        int nRunning = 0;
        s_nCalls = 0;
        ASSERT_TRUE(tMulti.fdSelect(nRunning));
        nMostInStep = std::max(nMostInStep, s_nCalls);
        tMsg = tMulti.InfoRead();
    }
    EXPECT_TRUE(tMsg.bResult) << tMsg.strErrorMsg;
    EXPECT_EQ(s_nBytes, CHUNKS);
    EXPECT_LE(nMostInStep, 1000U);
    EXPECT_TRUE(tMulti.removeHandle(&tEasy));
}

TEST_F(CWrapperTest, WriteThatFailsOnWhatLibcurlHeldBackFailsTheTransfer)
{
    /* Small chunks, so that much of them lies in libcurl's buffer when a turn is over. */
    constexpr size_t CHUNKS = 2200;
    m_strRaw = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    for (size_t i = 0; i < CHUNKS; ++i)
    {
        m_strRaw += "400\r\n" + std::string(1024, 'c') + "\r\n";
    }
    m_strRaw += "0\r\n\r\n";
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
    CSilentAddress tSilent;
    const std::pair<const char*, std::string> arrCases[] = {
        {"a stall after the request", Url(STALL)},
        {"a TLS handshake, for which libcurl asks for no turn", SilentTlsUrl()},
        {"a name look-up, for whose thread libcurl waits", "http://silent.invalid/"},
        {"a silent address, and one of the other family that refuses", "http://two.invalid:" + tSilent.Port()},
    };
    for (const auto& [pszState, strUrl] : arrCases)
    {
        SCOPED_TRACE(pszState);
        OUTCOME_t tDownload;
        ASSERT_EQ(Start(tDownload, strUrl, "file"), 1);
        EXPECT_TRUE(tDownload.tProgress.Wait());
        std::this_thread::sleep_for(300ms); // that state is reached; earlier would be easier
        const auto fnCancel = [&]
        {
            EXPECT_TRUE(m_ptEngine->CancelDownload(tDownload.nId, true));
            EXPECT_TRUE(tDownload.tEnded.Wait());
        };
        EXPECT_LT(SecondsOf(fnCancel), 10) << "time-outs end it later";
        EXPECT_EQ(tDownload.eType, DOWNLOAD_TYPE_CANCEL);
    }
    const std::ptrdiff_t nDescriptors = CountDescriptors();
    g_tInterposed.tNameServer.Open();
    WaitUntil([&] { return CountDescriptors() != nDescriptors; }); // the look-up's thread closes its sockets at its end
}

TEST_F(CWrapperTest, SilentPeersAreNoticedInSeconds)
{
    /* The handshake is never answered: libcurl's own limit is five minutes, ours half a one; the caller's counts. */
    OUTCOME_t tDownload;
    ASSERT_EQ(Start(tDownload, SilentTlsUrl(), "file"), 1);
    EXPECT_LT(SecondsOf([&] { EXPECT_FALSE(SyncDownload(SilentTlsUrl(), "sync", 0, 1)); }), 25);

    OUTCOME_t tStalled;
    ASSERT_TRUE(Start(tStalled, Url(STALL)));
    ASSERT_TRUE(m_tArrived.Wait());
    const std::vector<int> vecSockets = SocketsTo(*m_tServer);
    EXPECT_EQ(vecSockets.size(), 2U);
    for (const int nSocket : vecSockets)
    {
        int nMilliseconds = 0;
        socklen_t nSize = sizeof nMilliseconds;
        EXPECT_EQ(getsockopt(nSocket, IPPROTO_TCP, TCP_USER_TIMEOUT, &nMilliseconds, &nSize), 0);
        EXPECT_EQ(nMilliseconds, 30000);
    }
    EXPECT_TRUE(tDownload.tEnded.Wait());
    EXPECT_EQ(tDownload.eType, DOWNLOAD_TYPE_FAIL);
    EXPECT_TRUE(tStalled.tEnded.Wait());
}

TEST_F(CWrapperTest, ConnectionsThatDieWhileTheyAreKeptCostNoRequest)
{
    std::atomic<int> nConnections{0};
    CLoopbackServer tServer(
        [&](CConnection& tConnection, const REQUEST_t& tRequest)
        {
            thread_local bool t_bUsed = false;
            ++nConnections;
            m_tArrived.Open();
            EXPECT_TRUE(tRequest.strPath != GATED || m_tGoOn.Wait());
            std::exchange(t_bUsed, true) ? tConnection.Shutdown() : static_cast<void>(tConnection.Answer("answer"));
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
    m_tSettings.nMostIdleConnections = 100; // those of the first server stay, too
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

TEST_F(CWrapperTest, MultiHandleForgetsAndDoesNotSpin)
{
    WQCurl::WQCurlMulti tMulti;
    WQCurl::WQCurlEasy tStalled;
    WQCurl::WQCurlEasy tOther;
    int nRunning = 0;
    ASSERT_TRUE(tMulti.Initialize());
    ASSERT_TRUE(tStalled.Initialize());
    EXPECT_TRUE(tStalled.setOption(WQCurl::URL, Url(STALL)));
    EXPECT_TRUE(tMulti.addHandle(&tStalled));

    m_strRaw = "HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nanswer";
    const auto fnEnds = [&](const char* pszWhat, bool bResult, WQCurl::WRITE_FUNCTION_t pfnWrite,
                            WQCurl::PROGRESS_FUNCTION_t pfnProgress)
    {
        SCOPED_TRACE(pszWhat);
        EXPECT_TRUE(tOther.Initialize());
        EXPECT_TRUE(tOther.setOption(WQCurl::URL, Url(RAW)));
        EXPECT_TRUE(tOther.setOption(WQCurl::WRITEFUNCTION, pfnWrite));
        EXPECT_TRUE(tOther.setOption(WQCurl::WRITEDATA, &*m_tServer));
        EXPECT_TRUE(tOther.setOption(WQCurl::NOPROGRESS, 0L));
        EXPECT_TRUE(tOther.setOption(WQCurl::PROGRESSFUNCTION, pfnProgress));
        EXPECT_TRUE(tMulti.addHandle(&tOther));
        WQCurl::WQCurlMulti::MultiMsg tMsg;
        for (int i = 0; i < 100 && tMsg.pEasyHandle == nullptr; ++i)
        {
            EXPECT_TRUE(tMulti.fdSelect(nRunning));
            tMsg = tMulti.InfoRead();
        }
        EXPECT_EQ(tMsg.pEasyHandle, &tOther);
        EXPECT_EQ(tMsg.bResult, bResult);
        EXPECT_EQ(tMsg.strErrorMsg.empty(), bResult);
        EXPECT_TRUE(tMulti.removeHandle(&tOther));
    };
    /* Waits again and again. @return how often it did */
    const auto fnWaits = [&](std::chrono::milliseconds tLength, bool bResult)
    {
        g_tInterposed.nWaits = 0;
        for (const auto tEnd = std::chrono::steady_clock::now() + tLength; std::chrono::steady_clock::now() < tEnd;)
        {
            EXPECT_EQ(tMulti.fdSelect(nRunning), bResult);
        }
        return g_tInterposed.nWaits.load();
    };
    static std::vector<int> s_vecCopies; // of the sockets: what a process has that the application forks
    WQCurl::WRITE_FUNCTION_t const pfnPause = [](char*, size_t, size_t, void* pServer) -> size_t
    {
        s_vecCopies = SocketsTo(*static_cast<CLoopbackServer*>(pServer));
        std::transform(s_vecCopies.begin(), s_vecCopies.end(), s_vecCopies.begin(), &dup);
        return 0x10000001;
    };
    WQCurl::PROGRESS_FUNCTION_t const pfnThrow = [](void*, double, double, double, double) -> int { throw 1; };
    fnEnds("a write function that names libcurl's number for a pause", false, pfnPause, nullptr);
    fnEnds("an exception in a progress function", false, nullptr, pfnThrow);
    g_tInterposed.bRefuseMemory = true;
    EXPECT_FALSE(tOther.setOption(WQCurl::HTTPHEADER, std::list<std::string>{"A:1"}));
    EXPECT_THROW(WQCurl::SetTransferDefaults({"", {"a:1:b:2"}}), std::bad_alloc);
    fnEnds("a handle that libcurl refuses", false, nullptr, nullptr);
    g_tInterposed.bRefuseMemory = false;
    g_tInterposed.bFailWaits = true;
    EXPECT_LE(fnWaits(300ms, false), 100) << "a wait that fails must not be tried again at once";
    g_tInterposed.bFailWaits = false;
    fnEnds("a signal raised by a TLS library, which reaches nobody", true, &RaiseSigpipe, nullptr);
    EXPECT_LE(fnWaits(3s, true), 20) << "beside a stall, while the server closes the last connection";
    EXPECT_EQ(nRunning, 1);
    EXPECT_TRUE(tMulti.removeHandle(&tStalled));

    for (WQCurl::WQCurlEasy* ptEasy : {&tStalled, &tOther})
    {
        EXPECT_TRUE(ptEasy->Initialize());
        EXPECT_TRUE(ptEasy->setOption(WQCurl::URL, "file:///"));
        EXPECT_TRUE(tMulti.addHandle(ptEasy));
    }
    EXPECT_TRUE(tMulti.Perform(nRunning));
    EXPECT_TRUE(tMulti.removeHandle(&tOther)) << "finished, with its message unread";
    EXPECT_EQ(tMulti.InfoRead().pEasyHandle, &tStalled);
    EXPECT_EQ(tMulti.InfoRead().pEasyHandle, nullptr);
    EXPECT_TRUE(tMulti.removeHandle(&tStalled));
    std::for_each(s_vecCopies.begin(), s_vecCopies.end(), &close);
}
