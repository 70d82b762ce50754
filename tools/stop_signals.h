#pragma once

#include <csignal>

/**
 * Blocks the signals that ask the process to end while this lives, so that Take() can return them. A signal that the
 * caller of the process ignores (nohup) stays ignored. SIGPIPE is blocked too, so that only the write fails. The thread
 * that creates this must also destroy it. Threads that it starts in between inherit the blocked signals.
 */
class CStopSignals
{
public:
    CStopSignals();
    ~CStopSignals();
    CStopSignals(const CStopSignals&) = delete;
    CStopSignals& operator=(const CStopSignals&) = delete;

    /** @return a signal that has arrived; 0: none */
    int Take() const;

private:
    sigset_t m_tStop; /**< the signals that Take() returns */
    sigset_t m_tBefore;
};
