#include "veltra/desktop/transfer_pool.h"

namespace WQCurl
{

CTransferPool& CTransferPool::Instance()
{
    static auto* const s_ptPool = new CTransferPool;
    return *s_ptPool;
}

std::unique_ptr<TRANSFER_t> CTransferPool::Take()
{
    {
        const std::lock_guard<std::mutex> tGuard(m_tLock);
        if (m_nIdle > 0)
        {
            return std::move(m_arrIdle[--m_nIdle]);
        }
    }
    return std::make_unique<TRANSFER_t>();
}

void CTransferPool::Put(std::unique_ptr<TRANSFER_t> ptTransfer)
{
    ptTransfer->Clear();
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    if (m_nIdle < MOST_IDLE)
    {
        m_arrIdle[m_nIdle++] = std::move(ptTransfer);
    }
}

void CTransferPool::Recycle(EASY_PTR_t& pEasy)
{
    static const bool s_bCanRecycle = curl_version_info(CURLVERSION_NOW)->version_num >= 0x080100;
    if (s_bCanRecycle && pEasy != nullptr)
    {
        curl_easy_reset(pEasy.get());
    }
    else
    {
        pEasy.reset();
    }
}

} // namespace WQCurl
