#include "veltra/desktop/transfer_observer.h"

#include <mutex>
#include <pthread.h>
#include <shared_mutex>

namespace WQCurl
{

namespace
{

/**
 * A reader-writer lock that prefers the writer. Calls of the observer are readers, which may overlap.
 * SetTransferObserver() is the writer: calls that overlap without a gap would keep it waiting with std::shared_mutex.
 */
class CObserverLock
{
public:
    void lock() { pthread_rwlock_wrlock(&m_tLock); }
    void unlock() { pthread_rwlock_unlock(&m_tLock); }
    void lock_shared() { pthread_rwlock_rdlock(&m_tLock); }
    void unlock_shared() { pthread_rwlock_unlock(&m_tLock); }

private:
    pthread_rwlock_t m_tLock = PTHREAD_RWLOCK_WRITER_NONRECURSIVE_INITIALIZER_NP;
};

CObserverLock g_tObserverLock;
TRANSFER_OBSERVER_t g_pfnObserver = nullptr;
void* g_pObserverUserData = nullptr;

} // namespace

void TellObserver(const TRANSFER_t& tTransfer)
{
    const std::shared_lock<CObserverLock> tGuard(g_tObserverLock);
    if (g_pfnObserver != nullptr)
    {
        g_pfnObserver(Describe(tTransfer), g_pObserverUserData);
    }
}

void SetTransferObserver(TRANSFER_OBSERVER_t pfnObserver, void* pUserData)
{
    const std::lock_guard<CObserverLock> tGuard(g_tObserverLock);
    g_pfnObserver = pfnObserver;
    g_pObserverUserData = pUserData;
}

} // namespace WQCurl
