#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <list>
#include <mutex>
#include <openssl/ssl.h>
#include <poll.h>
#include <signal.h>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <thread>

/** A counter for which threads wait. Every wait has a deadline. */
class CGate
{
public:
    void Open(int nTimes = 1)
    {
        const std::lock_guard<std::mutex> tGuard(m_tLock);
        m_nOpened += nTimes;
        m_tChanged.notify_all();
    }
    /** Waits until it has been opened nTimes in all. @return false when that takes longer than any test may */
    bool Wait(int nTimes = 1)
    {
        std::unique_lock<std::mutex> tGuard(m_tLock);
        return m_tChanged.wait_for(tGuard, std::chrono::seconds(60), [&] { return m_nOpened >= nTimes; });
    }
    int Count() const { return m_nOpened; }

private:
    std::mutex m_tLock;
    std::condition_variable m_tChanged;
    std::atomic<int> m_nOpened{0};
};

struct REQUEST_t
{
    std::string strMethod;
    std::string strPath;
    std::string strHead; /**< all lines up to the empty one */
    std::string strBody;
};

/** The server's side of one connection, for a script to act on, with the thread that runs the script. */
class CConnection
{
public:
    typedef std::function<void(CConnection&, const REQUEST_t&)> SCRIPT_t;

    CConnection(int nSocket, SSL_CTX* pTlsContext, const SCRIPT_t& fnScript)
        : m_nSocket(nSocket), m_pStream(BIO_new_socket(nSocket, BIO_CLOSE))
    {
        BIO_set_tcp_ndelay(m_nSocket, 1);
        m_pStream = pTlsContext != nullptr ? BIO_push(BIO_new_ssl(pTlsContext, 0), m_pStream) : m_pStream;
        m_pStream = BIO_push(BIO_new(BIO_f_buffer()), m_pStream);
        m_tThread = std::thread([this, &fnScript] { Run(fnScript); });
    }

    ~CConnection()
    {
        Shutdown();
        m_tThread.join();
        BIO_free_all(m_pStream);
    }

    /** Sends raw bytes. @return false when the peer has gone */
    bool Send(const std::string& strBytes)
    {
        size_t nSent = 0;
        return BIO_write_ex(m_pStream, strBytes.data(), strBytes.size(), &nSent) == 1 && BIO_flush(m_pStream) == 1;
    }

    bool Answer(const std::string& strBody, const std::string& strStatus = "200 OK")
    {
        return Send("HTTP/1.1 " + strStatus + "\r\nContent-Length: " + std::to_string(strBody.size()) + "\r\n\r\n" +
                    strBody);
    }

    /** Keeps silent until the peer goes away or the server is stopped. */
    void Stall()
    {
        pollfd tPoll{m_nSocket, POLLRDHUP, 0};
        poll(&tPoll, 1, 60000);
    }

    void Reset()
    {
        const sockaddr tNowhere{AF_UNSPEC, {}};
        connect(m_nSocket, &tNowhere, sizeof tNowhere);
    }

    int CopySocket() const { return dup(m_nSocket); }
    void Shutdown() { shutdown(m_nSocket, SHUT_RDWR); }
    bool HasEnded() const { return m_bEnded; }

private:
    void Run(const SCRIPT_t& fnScript)
    {
        for (REQUEST_t tRequest; Read(tRequest);)
        {
            fnScript(*this, tRequest);
        }
        Shutdown();
        m_bEnded = true;
    }

    bool Read(REQUEST_t& tRequest)
    {
        tRequest = REQUEST_t();
        size_t nLength = 0;
        for (char szLine[4096] = ""; strcmp(szLine, "\r\n") != 0; tRequest.strHead += szLine)
        {
            if (BIO_gets(m_pStream, szLine, sizeof szLine) <= 0)
            {
                return false;
            }
            sscanf(szLine, "Content-Length: %zu", &nLength);
        }
        std::istringstream(tRequest.strHead) >> tRequest.strMethod >> tRequest.strPath;
        tRequest.strBody.resize(nLength);
        for (size_t nRead = 0, nNow = 0; nRead < nLength; nRead += nNow)
        {
            if (BIO_read_ex(m_pStream, &tRequest.strBody[nRead], nLength - nRead, &nNow) != 1)
            {
                return false;
            }
        }
        return true;
    }

    const int m_nSocket;
    BIO* m_pStream;
    std::atomic<bool> m_bEnded{false};
    std::thread m_tThread;
};

/** An HTTP server on 127.0.0.1 whose answers are a script: one thread a connection, one call a request. */
class CLoopbackServer
{
public:
    /** @param bStrict TLS only with clients that show a certificate */
    explicit CLoopbackServer(CConnection::SCRIPT_t fnScript, bool bTls = false, bool bStrict = false)
        : m_fnScript(std::move(fnScript)), m_pTlsContext(bTls ? SSL_CTX_new(TLS_server_method()) : nullptr)
    {
        if (bTls)
        {
            SSL_CTX_set_quiet_shutdown(m_pTlsContext, 1); // sends nothing, and so raises nothing, on the freeing thread
            const auto pfnRefuseHttp2 = [](SSL*, auto, auto, auto pOffered, auto nOffered, void*)
            { return memmem(pOffered, nOffered, "\2h2", 3) ? SSL_TLSEXT_ERR_ALERT_FATAL : SSL_TLSEXT_ERR_NOACK; };
            SSL_CTX_set_alpn_select_cb(m_pTlsContext, pfnRefuseHttp2, nullptr);
            SSL_CTX_load_verify_locations(m_pTlsContext, TEST_CERTIFICATES "/ca.pem", nullptr);
            SSL_CTX_set_verify(m_pTlsContext,
                               bStrict ? SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT : SSL_VERIFY_NONE, nullptr);
            SSL_CTX_use_certificate_chain_file(m_pTlsContext, TEST_CERTIFICATES "/server.pem");
            SSL_CTX_use_PrivateKey_file(m_pTlsContext, TEST_CERTIFICATES "/server.key", SSL_FILETYPE_PEM);
        }
        /* The first call only binds; its short backlog is lengthened. */
        if (BIO_do_accept(m_pListener) != 1 || BIO_get_fd(m_pListener, &m_nListener) < 0 ||
            listen(m_nListener, 1024) != 0 || (bTls && SSL_CTX_check_private_key(m_pTlsContext) != 1))
        {
            abort();
        }
        m_tAcceptor = std::thread(&CLoopbackServer::Accept, this);
    }

    ~CLoopbackServer()
    {
        shutdown(m_nListener, SHUT_RDWR);
        m_tAcceptor.join();
        m_lstConnections.clear();
        BIO_free_all(m_pListener);
        SSL_CTX_free(m_pTlsContext);
    }

    /** Serves the client of a proxy over the proxy's connection until it ends. */
    void ServeThrough(CConnection& tProxy) const
    {
        const CConnection tConnection(tProxy.CopySocket(), m_pTlsContext, m_fnScript);
        tProxy.Stall();
    }

    int Port() const { return std::stoi(BIO_get_accept_port(m_pListener)); }

    std::string Url(const std::string& strPath = "/") const
    {
        return (m_pTlsContext != nullptr ? "https://127.0.0.1:" : "http://127.0.0.1:") + std::to_string(Port()) +
               strPath;
    }

private:
    void Accept()
    {
        /* The application under test must see only the signals that the library raises. */
        sigset_t tSigpipe;
        sigemptyset(&tSigpipe);
        sigaddset(&tSigpipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &tSigpipe, nullptr);
        for (int nSocket; (nSocket = accept4(m_nListener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;)
        {
            m_lstConnections.remove_if([](const CConnection& tConnection) { return tConnection.HasEnded(); });
            m_lstConnections.emplace_back(nSocket, m_pTlsContext, m_fnScript);
        }
    }

    const CConnection::SCRIPT_t m_fnScript;
    SSL_CTX* const m_pTlsContext; /**< with one, it speaks TLS */
    BIO* const m_pListener = BIO_new_accept("127.0.0.1:0");
    int m_nListener = -1;
    std::list<CConnection> m_lstConnections;
    std::thread m_tAcceptor;
};
