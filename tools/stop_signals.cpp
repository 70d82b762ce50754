#include "stop_signals.h"

#include <algorithm>

CStopSignals::CStopSignals() : m_tStop(), m_tBefore()
{
    sigemptyset(&m_tStop);
    for (const int nSignal : {SIGINT, SIGTERM, SIGHUP})
    {
        struct sigaction tAction = {};
        sigaction(nSignal, nullptr, &tAction);
        if (tAction.sa_handler != SIG_IGN)
        {
            sigaddset(&m_tStop, nSignal);
        }
    }
    sigset_t tHeld = m_tStop;
    sigaddset(&tHeld, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &tHeld, &m_tBefore);
}

CStopSignals::~CStopSignals()
{
    sigset_t tPipe;
    sigemptyset(&tPipe);
    sigaddset(&tPipe, SIGPIPE);
    const timespec tNoWait = {};
    static_cast<void>(sigtimedwait(&tPipe, nullptr, &tNoWait)); /* the write reported the error */
    pthread_sigmask(SIG_SETMASK, &m_tBefore, nullptr);
}

int CStopSignals::Take() const
{
    const timespec tNoWait = {};
    return std::max(sigtimedwait(&m_tStop, nullptr, &tNoWait), 0);
}
