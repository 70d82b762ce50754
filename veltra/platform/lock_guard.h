#pragma once

#include <pthread.h>

/** Holds a POSIX mutex for the length of a scope. */
class CLockGuard
{
public:
    explicit CLockGuard(pthread_mutex_t& tMutex) : m_tMutex(tMutex) { pthread_mutex_lock(&m_tMutex); }
    ~CLockGuard() { pthread_mutex_unlock(&m_tMutex); }
    CLockGuard(const CLockGuard&) = delete;
    CLockGuard& operator=(const CLockGuard&) = delete;

private:
    pthread_mutex_t& m_tMutex;
};
