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
    const auto fnWaits = [](TRANSFER_t* ptTransfer) { return !CBandwidth::Instance().MayGoOn(ptTransfer->tShare); };
    const auto itDue = std::stable_partition(m_vecHeldBack.begin(), m_vecHeldBack.end(), fnWaits);
    m_vecUsedUp.insert(m_vecUsedUp.end(), itDue, m_vecHeldBack.end()); // first: without memory, all stay
    m_vecHeldBack.erase(itDue, m_vecHeldBack.end());
    std::vector<TRANSFER_t*> vecDue;
    vecDue.swap(m_vecUsedUp);
    return vecDue;
}

std::optional<CPausedTransfers::Clock::time_point> CPausedTransfers::Next() const
{
    return m_vecHeldBack.empty() ? std::nullopt : CBandwidth::Instance().NextGrant();
}

} // namespace WQCurl
