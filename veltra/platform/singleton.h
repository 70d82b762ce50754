#pragma once

#include <pthread.h>

#include "veltra/export.h"
#include "veltra/platform/lock_guard.h"

/**
 * The one instance of T in this process, made at the first access and never deleted.
 *
 * The two statics exist once per process, also when the application hides its own symbols: the header of each T that is
 * shared declares `extern template class CSingleton<T>`, and one library instantiates it.
 */
template <class T> class VELTRA_API CSingleton
{
public:
    /** Returns the instance, constructing it if there is none yet. Any thread; an exception of T's constructor passes.
     */
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
