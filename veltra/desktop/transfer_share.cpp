#include "veltra/desktop/transfer_share.h"

#include <mutex>

namespace WQCurl
{

namespace
{

class CTransferShare
{
public:
    CTransferShare()
    {
        curl_share_setopt(m_pShare, CURLSHOPT_LOCKFUNC, &Lock);
        curl_share_setopt(m_pShare, CURLSHOPT_UNLOCKFUNC, &Unlock);
        curl_share_setopt(m_pShare, CURLSHOPT_USERDATA, this);
        curl_share_setopt(m_pShare, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    }

    CURLSH* Get() const { return m_pShare; }

private:
    static void Lock(CURL* /*pEasy*/, curl_lock_data eData, curl_lock_access /*eAccess*/, void* pShare)
    {
        static_cast<CTransferShare*>(pShare)->m_arrLocks[eData].lock();
    }

    static void Unlock(CURL* /*pEasy*/, curl_lock_data eData, void* pShare)
    {
        static_cast<CTransferShare*>(pShare)->m_arrLocks[eData].unlock();
    }

    std::mutex m_arrLocks[CURL_LOCK_DATA_LAST];
    CURLSH* const m_pShare = curl_share_init();
};

} // namespace

CURLSH* TransferShare()
{
    static auto* const s_ptShare = new CTransferShare;
    return s_ptShare->Get();
}

} // namespace WQCurl
