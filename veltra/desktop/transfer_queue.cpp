#include "veltra/desktop/transfer_queue.h"

#include <sys/eventfd.h>
#include <utility>

namespace WQCurl
{

bool CTransferQueue::Open()
{
    m_tWakeUp.Reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    return m_tWakeUp.Get() >= 0;
}

void CTransferQueue::AcknowledgeWakeUp() const
{
    eventfd_t nCount = 0;
    eventfd_read(m_tWakeUp.Get(), &nCount);
}

bool CTransferQueue::Add(TRANSFER_t& tTransfer, const WQCurlMulti* ptMulti)
{
    bool bWakeUp = false;
    std::list<TRANSFER_t*> lstAdded{&tTransfer};
    {
        const std::lock_guard<std::mutex> tGuard(m_tLock);
        const WQCurlMulti* ptNone = nullptr;
        if (!tTransfer.pMulti.compare_exchange_strong(ptNone, ptMulti))
        {
            return false;
        }
        std::list<TRANSFER_t*>& lstQueued = tTransfer.bReporting ? m_lstDownloads : m_lstRequests;
        lstQueued.splice(lstQueued.end(), lstAdded);
        tTransfer.eStage = TRANSFER_t::STAGE_QUEUED;
        ++m_nRegistered;
        bWakeUp = std::exchange(m_bWaiting, false);
    }
    /* From here on the transfer may run, finish and be freed at any moment. */
    if (bWakeUp)
    {
        eventfd_write(m_tWakeUp.Get(), 1);
    }
    return true;
}

TRANSFER_t::STAGE_e CTransferQueue::Remove(TRANSFER_t& tTransfer, bool& bLast)
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    tTransfer.pMulti = nullptr;
    const TRANSFER_t::STAGE_e eStage = std::exchange(tTransfer.eStage, TRANSFER_t::STAGE_NONE);
    if (eStage == TRANSFER_t::STAGE_QUEUED)
    {
        (tTransfer.bReporting ? m_lstDownloads : m_lstRequests).remove(&tTransfer);
    }
    --m_nRegistered;
    bLast = m_nRegistered == 0;
    return eStage;
}

size_t CTransferQueue::Take(TRANSFER_t** arrRequests, size_t nMost, std::list<TRANSFER_t*>& lstDownloads,
                            size_t& nRegistered)
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    size_t nTaken = 0;
    for (; nTaken < nMost && !m_lstRequests.empty(); m_lstRequests.pop_front())
    {
        arrRequests[nTaken] = m_lstRequests.front();
        arrRequests[nTaken++]->eStage = TRANSFER_t::STAGE_RUNNING;
    }
    for (TRANSFER_t* ptTransfer : m_lstDownloads)
    {
        ptTransfer->eStage = TRANSFER_t::STAGE_RUNNING;
    }
    lstDownloads.splice(lstDownloads.end(), m_lstDownloads);
    nRegistered = m_nRegistered;
    return nTaken;
}

bool CTransferQueue::BeginWait()
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    m_bWaiting = m_lstRequests.empty() && m_lstDownloads.empty();
    return m_bWaiting;
}

void CTransferQueue::EndWait()
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    m_bWaiting = false;
}

} // namespace WQCurl
