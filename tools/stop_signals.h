#pragma once

#include <csignal>

/**
 * The signals that ask the process to end, held back so that they can be asked for, as long as this lives. What the
 * caller has ignored (nohup) stays ignored. A broken pipe is an error of the write then, and no signal. It belongs to
 * the thread that made it; threads that are started meanwhile hold them back, too.
 */
class CStopSignals
{
public:
    CStopSignals();
    ~CStopSignals();
    CStopSignals(const CStopSignals&) = delete;
    CStopSignals& operator=(const CStopSignals&) = delete;

    /** Takes a signal that has arrived. @return 0 for none */
    int Take() const;

private:
    sigset_t m_tStop; /**< those that Take() takes */
    sigset_t m_tBefore;
};
