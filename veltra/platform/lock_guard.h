#pragma once

#include <pthread.h>

/** Holds a POSIX mutex for the length of a scope. */
class CLockGuard
{
public:
    /** Waits for the mutex, which must outlive the guard. */
    explicit CLockGuard(pthread_mutex_t& tMutex) : m_tMutex(tMutex) { pthread_mutex_lock(&m_tMutex); }
    ~CLockGuard() { pthread_mutex_unlock(&m_tMutex); }
    CLockGuard(const CLockGuard&) = delete;
    CLockGuard& operator=(const CLockGuard&) = delete;

private:
    pthread_mutex_t& m_tMutex;
};
