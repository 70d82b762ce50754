#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>

/** What a test waits for, or makes another thread wait for. Every wait has a deadline. */
class CGate
{
public:
    void Open(int nTimes = 1);
    /** Waits until it has been opened nTimes in all. @return false when that takes longer than any test may */
    bool Wait(int nTimes = 1);
    int Count();

private:
    std::mutex m_tLock;
    std::condition_variable m_tChanged;
    int m_nOpened = 0;
};

struct REQUEST_t
{
    std::string strMethod;
    std::string strPath;
    std::string strHead; /**< all lines up to the empty one */
    std::string strBody;
};

/** The server's side of one connection, for a script to act on. */
class CConnection
{
public:
    CConnection(int nSocket, void* pTls);
    ~CConnection();

    /** Sends raw bytes. @return false when the peer has gone */
    bool Send(const std::string& strBytes);
    /** Sends a whole answer with its length. */
    bool Answer(const std::string& strBody, const std::string& strStatus = "200 OK");
    /** Keeps silent until the peer goes away or the server is stopped. */
    void Stall();
    /** Closes with a reset instead of an orderly end. */
    void Reset();
    void Shutdown();
    void Close();
    bool Read(REQUEST_t& tRequest);

private:
    ssize_t Receive(char* pBuffer, size_t nSize);

    std::mutex m_tLock; /**< keeps the server's end from meeting a descriptor that is closed already */
    int m_nSocket;
    void* m_pTls;
    std::string m_strUnread;
};

/** An HTTP server on 127.0.0.1 whose answers are a script: one thread a connection, one call a request. */
class CLoopbackServer
{
public:
    typedef std::function<void(CConnection&, const REQUEST_t&)> SCRIPT_t;

    explicit CLoopbackServer(SCRIPT_t fnScript, bool bTls = false);
    ~CLoopbackServer();

    std::string Url(const std::string& strPath = "/") const;
    int Port() const { return m_nPort; }

private:
    /** A connection and the thread that serves it. */
    struct SESSION_t
    {
        SESSION_t(int nSocket, void* pTls) : tConnection(nSocket, pTls) {}
        CConnection tConnection;
        std::atomic<bool> bEnded{false};
        std::thread tThread;
    };

    void Accept();
    void Serve(SESSION_t& tSession);
    void Reap();

    SCRIPT_t m_fnScript;
    void* m_pTlsContext = nullptr;
    int m_nListener;
    int m_nPort = 0;
    std::list<SESSION_t> m_lstSessions;
    std::thread m_tAcceptor;
};

/** The certificate authority that signed the server's certificate, as a PEM file. */
std::string TestCaFile();
