#include "veltra/desktop/waiting_downloads.h"

#include "veltra/desktop/transfer.h"

namespace WQCurl
{

void CWaitingDownloads::AddFirst(std::list<TRANSFER_t*>& lstDownloads)
{
    m_lstWaiting.splice(m_lstWaiting.end(), lstDownloads, lstDownloads.begin());
}

TRANSFER_t* CWaitingDownloads::Start(int nMost)
{
    m_nMost = nMost;
    if (!CanStart())
    {
        return nullptr;
    }
    TRANSFER_t* ptTransfer = m_lstWaiting.front();
    m_lstWaiting.pop_front();
    ptTransfer->bCounted = true;
    ++m_nRunning;
    return ptTransfer;
}

void CWaitingDownloads::Remove(TRANSFER_t& tTransfer)
{
    if (tTransfer.bCounted)
    {
        tTransfer.bCounted = false;
        --m_nRunning;
    }
    else if (tTransfer.bReporting)
    {
        m_lstWaiting.remove(&tTransfer);
    }
}

} // namespace WQCurl
