#pragma once

#include <pthread.h>

#include "veltra/export.h"
#include "veltra/platform/lock_guard.h"

/**
 * Holds the one instance of T in the process, which the first access constructs and nobody deletes.
 *
 * The two statics exist once per process, even if the application hides its symbols: T's header declares
 * `extern template class CSingleton<T>`, and one library instantiates it.
 */
template <class T> class VELTRA_API CSingleton
{
public:
    /** Returns the instance and constructs it first if necessary. Any thread. Passes exceptions of T's constructor. */
    static T* GetInstance()
    {
        CLockGuard tGuard(m_tSingletonLock);
        if (m_pObj == nullptr)
        {
            m_pObj = new T;
        }
        return m_pObj;
    }

    static T* m_pObj;                        /**< the instance; null before the first access */
    static pthread_mutex_t m_tSingletonLock; /**< guards m_pObj */
};

template <class T> T* CSingleton<T>::m_pObj = nullptr;

template <class T> pthread_mutex_t CSingleton<T>::m_tSingletonLock = PTHREAD_MUTEX_INITIALIZER;
