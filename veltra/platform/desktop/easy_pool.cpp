#include "veltra/platform/desktop/easy_pool.h"

namespace WQCurl
{

WQCurlEasy::CPool& WQCurlEasy::CPool::Instance()
{
    static auto* const s_ptPool = new CPool;
    return *s_ptPool;
}

std::unique_ptr<WQCurlEasy::IMPL_t> WQCurlEasy::CPool::Take()
{
    {
        const std::lock_guard<std::mutex> tGuard(m_tLock);
        if (m_nIdle > 0)
        {
            return std::move(m_arrIdle[--m_nIdle]);
        }
    }
    return std::make_unique<IMPL_t>();
}

void WQCurlEasy::CPool::Put(std::unique_ptr<IMPL_t> pImpl)
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    if (m_nIdle < MOST_IDLE)
    {
        m_arrIdle[m_nIdle++] = std::move(pImpl);
    }
}

void WQCurlEasy::CPool::Recycle(EASY_PTR_t& pEasy)
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
