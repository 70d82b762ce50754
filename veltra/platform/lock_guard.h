#pragma once

#include <pthread.h>

/** Locks a POSIX mutex for the duration of a scope. */
class CLockGuard
{
public:
    /** Waits for the mutex and locks it. The mutex must outlive the guard. */
    explicit CLockGuard(pthread_mutex_t& tMutex) : m_tMutex(tMutex) { pthread_mutex_lock(&m_tMutex); }
    ~CLockGuard() { pthread_mutex_unlock(&m_tMutex); }
    CLockGuard(const CLockGuard&) = delete;
    CLockGuard& operator=(const CLockGuard&) = delete;

private:
    pthread_mutex_t& m_tMutex;
};
