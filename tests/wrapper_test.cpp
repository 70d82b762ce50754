/* What the curl wrapper promises by itself, whatever libcurl, the server and the disk do. */

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/resource.h>

#include "engine_fixture.h"
#include "interposed.h"

namespace
{

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

/** Listens on 127.0.0.1 and accepts nobody: its queue is full, so that who else connects hears nothing. */
class CSilentAddress
{
public:
    CSilentAddress()
    {
        const sockaddr_in tAny{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
        socklen_t nSize = sizeof m_tAddress;
        EXPECT_EQ(bind(m_nListener, reinterpret_cast<const sockaddr*>(&tAny), sizeof tAny), 0);
        EXPECT_EQ(listen(m_nListener, 0), 0);
        EXPECT_EQ(getsockname(m_nListener, reinterpret_cast<sockaddr*>(&m_tAddress), &nSize), 0);
        for (int& nSocket : m_arrWaiting)
        {
            nSocket = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
            connect(nSocket, reinterpret_cast<const sockaddr*>(&m_tAddress), nSize);
        }
    }
    ~CSilentAddress()
    {
        close(m_nListener);
        std::for_each(std::begin(m_arrWaiting), std::end(m_arrWaiting), &close);
    }

    std::string Port() const { return std::to_string(ntohs(m_tAddress.sin_port)); }

private:
    const int m_nListener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int m_arrWaiting[4] = {};
    sockaddr_in m_tAddress{};
};

/** Answers "/whole" and "/last", sends what stands after "/raw?" with its escapes, and is silent on all else. */
void Serve(CConnection& tConnection, const REQUEST_t& tRequest)
{
    std::string strRaw;
    const std::string& strPath = tRequest.strPath;
    if (strPath.rfind("/raw?", 0) == 0)
    {
        for (size_t i = 5; i < strPath.size(); ++i)
        {
            const bool bEscape = strPath[i] == '%';
            strRaw += bEscape ? static_cast<char>(std::stoi(strPath.substr(i + 1, 2), nullptr, 16)) : strPath[i];
            i += bEscape ? 2 : 0;
        }
        tConnection.Send(strRaw);
        tConnection.Shutdown();
    }
    strPath == "/whole" || strPath == "/last" ? static_cast<void>(tConnection.Answer("answer")) : tConnection.Stall();
    strPath == "/last" ? tConnection.Shutdown() : void();
}

WQCurl::PROGRESS_FUNCTION_t const THROW_IN_PROGRESS = [](void*, double, double, double, double) -> int { throw 1; };

} // namespace

class CWrapperTest : public CEngineTest
{
protected:
    int Start(OUTCOME_t& tDownload, const std::string& strUrl)
    {
        m_ptEngine->Create();
        return tDownload.Download(*m_ptEngine, strUrl, Path("file"));
    }

    CLoopbackServer m_tServer{&Serve};
};

TEST_F(CWrapperTest, AnswerThatBreaksOffInItsHeaderLinesFails)
{
    m_ptEngine->Create();
    const std::string OK = "HTTP/1.1%20200%20OK%0d%0a";
    for (const std::string& strCut : {OK, OK + "X-H", OK + "X-H:%20y%0d%0a", OK + "Content-Length:%205000",
                                      std::string("HTTP/1.1%20103%20Early%20Hints%0d%0aLink:%20x%0d%0a%0d%0a")})
    {
        for (const bool bReused : {false, true})
        {
            SCOPED_TRACE(strCut + (bReused ? ", on a used connection" : ""));
            const std::string strUrl = m_tServer.Url("/raw?" + strCut);
            EXPECT_TRUE(!bReused || Get(m_tServer.Url("/whole")));
            _HTTP_REQ_INFO_t tRequest = GetRequest(strUrl);
            EXPECT_FALSE(m_ptEngine->Get(&tRequest, true));
            EXPECT_NE(tRequest.strErrorReason, "");

            std::ofstream(Path("file")) << "old";
            EXPECT_TRUE(!bReused || Get(m_tServer.Url("/whole")));
            OUTCOME_t tDownload;
            EXPECT_EQ(Start(tDownload, strUrl), 1);
            EXPECT_TRUE(tDownload.tEnded.Wait());
            EXPECT_EQ(tDownload.eType, DOWNLOAD_TYPE_FAIL);
            EXPECT_FALSE(m_ptEngine->SyncDownloadFile(strUrl, Path("file"), 0, 0));
            EXPECT_EQ(ReadFile(Path("file")), "old");
            std::filesystem::remove(Path("file.bak"));
        }
    }
    EXPECT_TRUE(Get(m_tServer.Url("/raw?HTTP/1.1%20100%20Go%20on%0d%0a%0d%0a" + OK + "%0d%0awhole")));
}

TEST_F(CWrapperTest, WriteThatFailsOnWhatLibcurlHeldBackFailsTheTransfer)
{
    /* Small chunks, so that much of them lies in libcurl's buffer when a turn is over. */
    constexpr size_t CHUNKS = 2200;
    CLoopbackServer tServer(
        [](CConnection& tConnection, const REQUEST_t&)
        {
            const std::string strChunk = "400\r\n" + std::string(1024, 'c') + "\r\n";
            std::string strAnswer = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
            for (size_t i = 0; i < CHUNKS; ++i)
            {
                strAnswer += strChunk;
            }
            tConnection.Send(strAnswer + "0\r\n\r\n");
        });
    signal(SIGXFSZ, SIG_IGN);
    for (size_t nShort = 1; nShort < 150; nShort += 8)
    {
        const rlimit tLimit{(CHUNKS - nShort) * 1024, RLIM_INFINITY}; // stands in for a full disk
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &tLimit), 0);
        OUTCOME_t tDownload;
        EXPECT_EQ(Start(tDownload, tServer.Url()), 1);
        EXPECT_TRUE(tDownload.tEnded.Wait());
        EXPECT_EQ(tDownload.eType, DOWNLOAD_TYPE_FAIL) << nShort << " KiB did not fit";
        EXPECT_FALSE(std::filesystem::exists(Path("file")));
    }
    const rlimit tNone{RLIM_INFINITY, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &tNone);
    OUTCOME_t tDownload;
    EXPECT_EQ(Start(tDownload, tServer.Url()), 1);
    EXPECT_TRUE(tDownload.tEnded.Wait());
    EXPECT_EQ(std::filesystem::file_size(Path("file")), CHUNKS * 1024);
}

TEST_F(CWrapperTest, CancelsInEveryState)
{
    CSilentAddress tSilent;
    const std::pair<const char*, std::string> arrCases[] = {
        {"a stall after the request", m_tServer.Url()},
        {"a TLS handshake, for which libcurl asks for no turn", "https" + m_tServer.Url().substr(4)},
        {"a name look-up, for whose thread libcurl waits", "http://silent.invalid/"},
        {"a silent address, and one of the other family that refuses", "http://two.invalid:" + tSilent.Port()},
    };
    for (const auto& [pszState, strUrl] : arrCases)
    {
        SCOPED_TRACE(pszState);
        OUTCOME_t tDownload;
        ASSERT_EQ(Start(tDownload, strUrl), 1);
        EXPECT_TRUE(tDownload.tProgress.Wait());
        std::this_thread::sleep_for(milliseconds(300)); // that state is reached; earlier would be easier
        const auto tStart = steady_clock::now();
        EXPECT_TRUE(m_ptEngine->CancelDownload(tDownload.nId, true));
        ASSERT_TRUE(tDownload.tEnded.Wait());
        EXPECT_EQ(tDownload.eType, DOWNLOAD_TYPE_CANCEL);
        EXPECT_LT(steady_clock::now() - tStart, seconds(10)) << "time-outs end it later";
    }
    const std::ptrdiff_t nDescriptors = CountDescriptors();
    g_tInterposed.tNameServer.Open();
    for (int i = 0; i < 1000 && CountDescriptors() == nDescriptors; ++i)
    {
        std::this_thread::sleep_for(milliseconds(10)); // the look-up's thread closes its sockets when it ends
    }
}

TEST_F(CWrapperTest, SilentPeersAreNoticedInSeconds)
{
    /* The handshake is never answered: libcurl's own limit is five minutes, ours half a one, and the caller's counts.
     */
    OUTCOME_t tDownload;
    const std::string strUrl = "https" + m_tServer.Url().substr(4);
    ASSERT_EQ(Start(tDownload, strUrl), 1);
    const auto tStart = steady_clock::now();
    EXPECT_FALSE(m_ptEngine->SyncDownloadFile(strUrl, Path("sync"), 0, 1));
    EXPECT_LT(steady_clock::now() - tStart, seconds(25));

    OUTCOME_t tStalled;
    ASSERT_TRUE(tStalled.Start(*m_ptEngine, GetRequest(m_tServer.Url())));
    std::vector<int> vecSockets;
    for (int i = 0; i < 1000 && vecSockets.empty(); ++i)
    {
        std::this_thread::sleep_for(milliseconds(10));
        vecSockets = SocketsTo(m_tServer.Port());
    }
    EXPECT_FALSE(vecSockets.empty());
    for (const int nSocket : vecSockets)
    {
        int nMilliseconds = 0;
        socklen_t nSize = sizeof nMilliseconds;
        EXPECT_EQ(getsockopt(nSocket, IPPROTO_TCP, TCP_USER_TIMEOUT, &nMilliseconds, &nSize), 0);
        EXPECT_EQ(nMilliseconds, 15000);
    }
    EXPECT_TRUE(tDownload.tEnded.Wait());
    EXPECT_EQ(tDownload.eType, DOWNLOAD_TYPE_FAIL);
    EXPECT_TRUE(tStalled.tEnded.Wait());
}

TEST_F(CWrapperTest, ConnectionsThatDieWhileTheyAreKeptCostNoRequest)
{
    std::atomic<int> nConnections{0};
    CLoopbackServer tServer(
        [&nConnections](CConnection& tConnection, const REQUEST_t& tRequest)
        {
            thread_local bool t_bUsed = false;
            std::exchange(t_bUsed, true) ? tConnection.Shutdown() : static_cast<void>(tConnection.Answer("answer"));
            nConnections += tRequest.strPath == "/" ? 1 : 0;
        });
    m_ptEngine->Create();
    for (int i = 0; i < 21; ++i)
    {
        _HTTP_REQ_INFO_t tRequest = GetRequest(tServer.Url());
        EXPECT_TRUE(m_ptEngine->Get(&tRequest, true)) << i << ": " << tRequest.strErrorReason;
    }
    EXPECT_EQ(nConnections, 41) << "the first connection is new, the others replace one that died";
}

TEST_F(CWrapperTest, MultiHandleForgetsAndDoesNotSpin)
{
    WQCurl::WQCurlMulti tMulti;
    WQCurl::WQCurlEasy tStalled;
    WQCurl::WQCurlEasy tOther;
    int nRunning = 0;
    ASSERT_TRUE(tMulti.Initialize());
    ASSERT_TRUE(tStalled.Initialize());
    EXPECT_TRUE(tStalled.setOption(WQCurl::URL, m_tServer.Url()));
    EXPECT_TRUE(tMulti.addHandle(&tStalled));

    const auto fnEnds = [&](const char* pszWhat, bool bResult, const std::function<void()>& fnSetUp)
    {
        EXPECT_TRUE(tOther.Initialize());
        tOther.setOption(WQCurl::URL, m_tServer.Url("/whole"));
        fnSetUp();
        EXPECT_TRUE(tMulti.addHandle(&tOther));
        WQCurl::WQCurlMulti::MultiMsg tMsg;
        for (int i = 0; i < 1000 && tMsg.pEasyHandle == nullptr; ++i)
        {
            EXPECT_TRUE(tMulti.fdSelect(nRunning)) << pszWhat;
            tMsg = tMulti.InfoRead();
        }
        EXPECT_EQ(tMsg.pEasyHandle, &tOther) << pszWhat;
        EXPECT_EQ(tMsg.bResult, bResult) << pszWhat;
        EXPECT_EQ(tMsg.strErrorMsg.empty(), bResult) << pszWhat;
        EXPECT_EQ(tMulti.InfoRead().pEasyHandle, nullptr) << pszWhat;
        EXPECT_TRUE(tMulti.removeHandle(&tOther)) << pszWhat;
    };
    fnEnds("a write function that names libcurl's number for a pause", false,
           [&] {
               tOther.setOption(WQCurl::WRITEFUNCTION,
                                [](char*, size_t, size_t, void*) -> size_t { return 0x10000001; });
           });
    fnEnds("an exception in a progress function", false,
           [&]
           {
               tOther.setOption(WQCurl::NOPROGRESS, 0L);
               tOther.setOption(WQCurl::PROGRESSFUNCTION, THROW_IN_PROGRESS);
           });
    fnEnds("a handle that libcurl refuses", false, [] { g_tInterposed.bRefuseHandles = true; });
    g_tInterposed.bRefuseHandles = false;

    g_tInterposed.nWaits = 0;
    g_tInterposed.bFailWaits = true;
    for (const auto tEnd = steady_clock::now() + milliseconds(300); steady_clock::now() < tEnd;)
    {
        EXPECT_FALSE(tMulti.fdSelect(nRunning));
    }
    g_tInterposed.bFailWaits = false;
    EXPECT_LE(g_tInterposed.nWaits, 100) << "a wait that fails must not be tried again at once";

    fnEnds("a signal raised by a TLS library, which reaches nobody", true,
           [&]
           {
               tOther.setOption(WQCurl::URL, m_tServer.Url("/last"));
               tOther.setOption(WQCurl::WRITEFUNCTION, [](char*, size_t nSize, size_t nCount, void*)
                                { return raise(SIGPIPE) == 0 ? nSize * nCount : 0; });
           });
    g_tInterposed.nWaits = 0;
    for (const auto tEnd = steady_clock::now() + seconds(3); steady_clock::now() < tEnd;)
    {
        EXPECT_TRUE(tMulti.fdSelect(nRunning)); // the server closes the last connection meanwhile
    }
    EXPECT_EQ(nRunning, 1);
    EXPECT_LE(g_tInterposed.nWaits, 20);
    EXPECT_TRUE(tMulti.removeHandle(&tStalled));

    EXPECT_TRUE(tOther.Initialize());
    EXPECT_TRUE(tOther.setOption(WQCurl::URL, "file:///"));
    EXPECT_TRUE(tMulti.addHandle(&tOther));
    EXPECT_TRUE(tMulti.Perform(nRunning));
    EXPECT_TRUE(tMulti.removeHandle(&tOther)) << "finished, with its message unread";
    EXPECT_EQ(tMulti.InfoRead().pEasyHandle, nullptr);
}
