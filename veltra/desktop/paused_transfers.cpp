#include "veltra/desktop/paused_transfers.h"

#include <algorithm>

#include "veltra/desktop/transfer.h"

namespace WQCurl
{

void CPausedTransfers::Remove(TRANSFER_t& tTransfer)
{
    if (tTransfer.bReporting)
    {
        CBandwidth::Instance().Leave(tTransfer.tShare);
    }
    for (auto* pvecPaused : {&m_vecUsedUp, &m_vecHeldBack})
    {
        pvecPaused->erase(std::remove(pvecPaused->begin(), pvecPaused->end(), &tTransfer), pvecPaused->end());
    }
}

std::vector<TRANSFER_t*> CPausedTransfers::TakeDue()
{
    std::vector<TRANSFER_t*> vecDue;
    vecDue.swap(m_vecUsedUp);
    size_t nStill = 0;
    for (TRANSFER_t* ptTransfer : m_vecHeldBack)
    {
        if (CBandwidth::Instance().MayGoOn(ptTransfer->tShare))
        {
            vecDue.push_back(ptTransfer);
        }
        else
        {
            m_vecHeldBack[nStill++] = ptTransfer;
        }
    }
    m_vecHeldBack.resize(nStill);
    return vecDue;
}

std::optional<CPausedTransfers::Clock::time_point> CPausedTransfers::Next() const
{
    return m_vecHeldBack.empty() ? std::nullopt : CBandwidth::Instance().NextGrant();
}

} // namespace WQCurl
