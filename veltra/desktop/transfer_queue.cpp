#include "veltra/desktop/transfer_queue.h"

#include <algorithm>
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
    {
        const std::lock_guard<std::mutex> tGuard(m_tLock);
        m_vecQueued.push_back(&tTransfer);
        const WQCurlMulti* ptNone = nullptr;
        if (!tTransfer.pMulti.compare_exchange_strong(ptNone, ptMulti))
        {
            m_vecQueued.pop_back();
            return false;
        }
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
        m_vecQueued.erase(std::find(m_vecQueued.begin(), m_vecQueued.end(), &tTransfer));
    }
    --m_nRegistered;
    bLast = m_nRegistered == 0;
    return eStage;
}

size_t CTransferQueue::Take(TRANSFER_t** arrTaken, size_t nMost, size_t& nRegistered)
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    const size_t nTaken = std::min(nMost, m_vecQueued.size());
    for (size_t nIndex = 0; nIndex < nTaken; ++nIndex)
    {
        arrTaken[nIndex] = m_vecQueued[nIndex];
        arrTaken[nIndex]->eStage = TRANSFER_t::STAGE_RUNNING;
    }
    m_vecQueued.erase(m_vecQueued.begin(), m_vecQueued.begin() + static_cast<std::ptrdiff_t>(nTaken));
    nRegistered = m_nRegistered;
    return nTaken;
}

bool CTransferQueue::BeginWait()
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    m_bWaiting = m_vecQueued.empty();
    return m_bWaiting;
}

void CTransferQueue::EndWait()
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    m_bWaiting = false;
}

} // namespace WQCurl
