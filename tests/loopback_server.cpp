#include "loopback_server.h"

#include <arpa/inet.h>
#include <chrono>
#include <cstdlib>
#include <openssl/ssl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr std::chrono::seconds LONGEST_WAIT(60);

SSL* Tls(void* pTls)
{
    return static_cast<SSL*>(pTls);
}

std::string CertificateFile(const char* pszName)
{
    return std::string(TEST_CERTIFICATES) + "/" + pszName;
}

} // namespace

std::string TestCaFile()
{
    return CertificateFile("ca.pem");
}

void CGate::Open(int nTimes)
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    m_nOpened += nTimes;
    m_tChanged.notify_all();
}

bool CGate::Wait(int nTimes)
{
    std::unique_lock<std::mutex> tGuard(m_tLock);
    return m_tChanged.wait_for(tGuard, LONGEST_WAIT, [this, nTimes] { return m_nOpened >= nTimes; });
}

int CGate::Count()
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    return m_nOpened;
}

CConnection::CConnection(int nSocket, void* pTls) : m_nSocket(nSocket), m_pTls(pTls) {}

CConnection::~CConnection()
{
    Close();
}

void CConnection::Close()
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    SSL_free(Tls(m_pTls));
    close(m_nSocket);
    m_pTls = nullptr;
    m_nSocket = -1;
}

ssize_t CConnection::Receive(char* pBuffer, size_t nSize)
{
    return m_pTls != nullptr ? SSL_read(Tls(m_pTls), pBuffer, static_cast<int>(nSize))
                             : recv(m_nSocket, pBuffer, nSize, 0);
}

bool CConnection::Read(REQUEST_t& tRequest)
{
    char arrBuffer[16384];
    size_t nHead = 0;
    size_t nTotal = std::string::npos;
    while (m_strUnread.size() < nTotal)
    {
        const ssize_t nRead = Receive(arrBuffer, sizeof arrBuffer);
        if (nRead <= 0)
        {
            return false;
        }
        m_strUnread.append(arrBuffer, static_cast<size_t>(nRead));
        nHead = m_strUnread.find("\r\n\r\n");
        if (nHead != std::string::npos && nTotal == std::string::npos)
        {
            const size_t nLength = m_strUnread.find("Content-Length: ");
            nTotal = nHead + 4 + (nLength < nHead ? strtoul(m_strUnread.c_str() + nLength + 16, nullptr, 10) : 0);
        }
    }
    const size_t nMethod = m_strUnread.find(' ');
    tRequest.strMethod = m_strUnread.substr(0, nMethod);
    tRequest.strPath = m_strUnread.substr(nMethod + 1, m_strUnread.find(' ', nMethod + 1) - nMethod - 1);
    nHead = m_strUnread.find("\r\n\r\n");
    tRequest.strHead = m_strUnread.substr(0, nHead + 2);
    tRequest.strBody = m_strUnread.substr(nHead + 4, nTotal - nHead - 4);
    m_strUnread.erase(0, nTotal);
    return true;
}

bool CConnection::Send(const std::string& strBytes)
{
    for (size_t nSent = 0; nSent < strBytes.size();)
    {
        const size_t nLeft = strBytes.size() - nSent;
        const ssize_t nNow = m_pTls != nullptr ? SSL_write(Tls(m_pTls), &strBytes[nSent], static_cast<int>(nLeft))
                                               : send(m_nSocket, &strBytes[nSent], nLeft, MSG_NOSIGNAL);
        if (nNow <= 0)
        {
            return false;
        }
        nSent += static_cast<size_t>(nNow);
    }
    return true;
}

bool CConnection::Answer(const std::string& strBody, const std::string& strStatus)
{
    return Send("HTTP/1.1 " + strStatus + "\r\nContent-Length: " + std::to_string(strBody.size()) + "\r\n\r\n" +
                strBody);
}

void CConnection::Stall()
{
    pollfd tPoll{m_nSocket, POLLRDHUP, 0};
    poll(&tPoll, 1, static_cast<int>(std::chrono::milliseconds(LONGEST_WAIT).count()));
}

void CConnection::Reset()
{
    const linger tLinger{1, 0};
    setsockopt(m_nSocket, SOL_SOCKET, SO_LINGER, &tLinger, sizeof tLinger);
    const int nOther = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    dup2(nOther, m_nSocket);
    close(nOther);
}

void CConnection::Shutdown()
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    shutdown(m_nSocket, SHUT_RDWR);
}

CLoopbackServer::CLoopbackServer(SCRIPT_t fnScript, bool bTls)
    : m_fnScript(std::move(fnScript)), m_nListener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    if (bTls)
    {
        SSL_CTX* pContext = SSL_CTX_new(TLS_server_method());
        m_pTlsContext = pContext;
        if (SSL_CTX_use_certificate_chain_file(pContext, CertificateFile("server.pem").c_str()) != 1 ||
            SSL_CTX_use_PrivateKey_file(pContext, CertificateFile("server.key").c_str(), SSL_FILETYPE_PEM) != 1)
        {
            abort();
        }
    }
    sockaddr_in tAddress{};
    tAddress.sin_family = AF_INET;
    tAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t nSize = sizeof tAddress;
    auto* pAddress = reinterpret_cast<sockaddr*>(&tAddress);
    if (bind(m_nListener, pAddress, nSize) != 0 || listen(m_nListener, 1024) != 0 ||
        getsockname(m_nListener, pAddress, &nSize) != 0)
    {
        abort();
    }
    m_nPort = ntohs(tAddress.sin_port);
    m_tAcceptor = std::thread(&CLoopbackServer::Accept, this);
}

CLoopbackServer::~CLoopbackServer()
{
    shutdown(m_nListener, SHUT_RDWR);
    m_tAcceptor.join();
    for (SESSION_t& tSession : m_lstSessions)
    {
        tSession.tConnection.Shutdown();
        tSession.tThread.join();
    }
    m_lstSessions.clear();
    close(m_nListener);
    SSL_CTX_free(static_cast<SSL_CTX*>(m_pTlsContext));
}

std::string CLoopbackServer::Url(const std::string& strPath) const
{
    return (m_pTlsContext != nullptr ? "https://127.0.0.1:" : "http://127.0.0.1:") + std::to_string(m_nPort) + strPath;
}

void CLoopbackServer::Accept()
{
    /* The application under test must see only the signals that the library raises. */
    sigset_t tSigpipe;
    sigemptyset(&tSigpipe);
    sigaddset(&tSigpipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &tSigpipe, nullptr);
    for (;;)
    {
        const int nSocket = accept4(m_nListener, nullptr, nullptr, SOCK_CLOEXEC);
        if (nSocket < 0)
        {
            return;
        }
        SSL* pTls = nullptr;
        if (m_pTlsContext != nullptr)
        {
            pTls = SSL_new(static_cast<SSL_CTX*>(m_pTlsContext));
            SSL_set_fd(pTls, nSocket);
            SSL_set_accept_state(pTls);
        }
        Reap();
        SESSION_t& tSession = m_lstSessions.emplace_back(nSocket, pTls);
        tSession.tThread = std::thread(&CLoopbackServer::Serve, this, std::ref(tSession));
    }
}

void CLoopbackServer::Reap()
{
    for (auto it = m_lstSessions.begin(); it != m_lstSessions.end();)
    {
        const auto itThis = it++;
        if (itThis->bEnded)
        {
            itThis->tThread.join();
            m_lstSessions.erase(itThis);
        }
    }
}

void CLoopbackServer::Serve(SESSION_t& tSession)
{
    REQUEST_t tRequest;
    while (tSession.tConnection.Read(tRequest))
    {
        m_fnScript(tSession.tConnection, tRequest);
    }
    tSession.tConnection.Close();
    tSession.bEnded = true;
}
