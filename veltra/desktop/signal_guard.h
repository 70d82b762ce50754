#pragma once

#include <csignal>
#include <ctime>

/**
 * Keeps the signals of failed writes from the application: SIGPIPE of a broken connection, SIGXFSZ of a file that
 * reaches the process's size limit. Both are blocked on this thread for a scope, and taken back if they came; the write
 * fails with EPIPE or EFBIG. The process's signal dispositions stay as they are.
 */
class CSignalGuard
{
public:
    CSignalGuard()
    {
        sigset_t tBlocked;
        sigset_t tOld;
        sigemptyset(&tBlocked);
        sigemptyset(&m_tOurs);
        for (const int nSignal : SIGNALS)
        {
            sigaddset(&tBlocked, nSignal);
        }
        pthread_sigmask(SIG_BLOCK, &tBlocked, &tOld);
        for (const int nSignal : SIGNALS)
        {
            if (sigismember(&tOld, nSignal) == 0)
            {
                sigaddset(&m_tOurs, nSignal);
                m_bOurs = true;
            }
        }
    }

    ~CSignalGuard()
    {
        if (!m_bOurs)
        {
            return;
        }
        const timespec tNoWait{};
        while (sigtimedwait(&m_tOurs, nullptr, &tNoWait) > 0)
        {
        }
        pthread_sigmask(SIG_UNBLOCK, &m_tOurs, nullptr);
    }

    CSignalGuard(const CSignalGuard&) = delete;
    CSignalGuard& operator=(const CSignalGuard&) = delete;

private:
    static constexpr int SIGNALS[] = {SIGPIPE, SIGXFSZ};

    sigset_t m_tOurs;     /**< those that were not blocked before */
    bool m_bOurs = false; /**< there are any */
};
