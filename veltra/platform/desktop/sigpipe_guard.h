#pragma once

#include <csignal>
#include <ctime>

/**
 * Keeps a SIGPIPE that libcurl or its TLS library may cause from reaching the application, without touching the
 * process's signal dispositions: blocked on this thread for a scope, and taken back if it came.
 */
class CSigpipeGuard
{
public:
    CSigpipeGuard()
    {
        sigset_t tOld;
        pthread_sigmask(SIG_BLOCK, &SigpipeSet(), &tOld);
        m_bWasBlocked = sigismember(&tOld, SIGPIPE) == 1;
    }

    ~CSigpipeGuard()
    {
        if (m_bWasBlocked)
        {
            return;
        }
        const timespec tNoWait{};
        while (sigtimedwait(&SigpipeSet(), nullptr, &tNoWait) == SIGPIPE)
        {
        }
        pthread_sigmask(SIG_UNBLOCK, &SigpipeSet(), nullptr);
    }

    CSigpipeGuard(const CSigpipeGuard&) = delete;
    CSigpipeGuard& operator=(const CSigpipeGuard&) = delete;

private:
    static const sigset_t& SigpipeSet()
    {
        static const sigset_t s_tSet = []
        {
            sigset_t tSet;
            sigemptyset(&tSet);
            sigaddset(&tSet, SIGPIPE);
            return tSet;
        }();
        return s_tSet;
    }

    bool m_bWasBlocked;
};
