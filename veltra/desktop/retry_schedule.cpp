#include "veltra/desktop/retry_schedule.h"

#include <algorithm>

namespace WQCurl
{

void CRetrySchedule::Remove(const TRANSFER_t& tTransfer)
{
    const auto fnIsIt = [&tTransfer](const auto& tWaiting) { return tWaiting.second == &tTransfer; };
    m_vecWaiting.erase(std::remove_if(m_vecWaiting.begin(), m_vecWaiting.end(), fnIsIt), m_vecWaiting.end());
}

void CRetrySchedule::MakeAllDue()
{
    for (auto& tWaiting : m_vecWaiting)
    {
        tWaiting.first = Clock::time_point();
    }
}

std::vector<TRANSFER_t*> CRetrySchedule::TakeDue()
{
    std::vector<TRANSFER_t*> vecDue;
    const auto fnTake = [tNow = Clock::now(), &vecDue](const auto& tWaiting)
    {
        const bool bDue = tWaiting.first <= tNow;
        if (bDue)
        {
            vecDue.push_back(tWaiting.second);
        }
        return bDue;
    };
    m_vecWaiting.erase(std::remove_if(m_vecWaiting.begin(), m_vecWaiting.end(), fnTake), m_vecWaiting.end());
    return vecDue;
}

std::optional<CRetrySchedule::Clock::time_point> CRetrySchedule::Next() const
{
    const auto itNext = std::min_element(m_vecWaiting.begin(), m_vecWaiting.end());
    return itNext == m_vecWaiting.end() ? std::nullopt : std::optional(itNext->first);
}

} // namespace WQCurl
