#include "veltra/platform/thread_base.h"

#include <algorithm>
#include <csignal>
#include <pthread.h>

struct CThreadBase::IMPL_t
{
    static void* Run(void* pThread)
    {
        static_cast<CThreadBase*>(pThread)->t_Main();
        return nullptr;
    }

    pthread_t tThread{};
    bool bStarted = false;
};

CThreadBase::CThreadBase() : m_pImpl(std::make_unique<IMPL_t>()) {}

CThreadBase::~CThreadBase() = default;

bool CThreadBase::Create(unsigned long ulStackSize)
{
    if (m_pImpl->bStarted)
    {
        return false;
    }
    pthread_attr_t tAttributes;
    if (pthread_attr_init(&tAttributes) != 0)
    {
        return false;
    }
    size_t nDefaultSize = 0;
    pthread_attr_getstacksize(&tAttributes, &nDefaultSize);
    pthread_attr_setstacksize(&tAttributes, std::max<size_t>(nDefaultSize, ulStackSize));

    /* The new thread inherits the mask: the application's signal handlers run on the application's threads. The signals
     * of the thread's own faults stay open, for the application's crash handler. SIGABRT need not: abort() opens it. */
    sigset_t tMask;
    sigset_t tOld;
    sigfillset(&tMask);
    for (const int nFault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS})
    {
        sigdelset(&tMask, nFault);
    }
    pthread_sigmask(SIG_SETMASK, &tMask, &tOld);
    m_pImpl->bStarted = pthread_create(&m_pImpl->tThread, &tAttributes, &IMPL_t::Run, this) == 0;
    pthread_sigmask(SIG_SETMASK, &tOld, nullptr);
    pthread_attr_destroy(&tAttributes);
    return m_pImpl->bStarted;
}

void CThreadBase::Destroy()
{
    if (m_pImpl->bStarted)
    {
        pthread_join(m_pImpl->tThread, nullptr);
        m_pImpl->bStarted = false;
    }
}
