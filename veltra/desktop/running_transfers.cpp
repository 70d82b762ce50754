#include "veltra/desktop/running_transfers.h"

#include <algorithm>

namespace WQCurl
{

void CRunningTransfers::Add(TRANSFER_t& tTransfer)
{
    tTransfer.nRunningIndex = m_vecRunning.size();
    m_vecRunning.push_back(&tTransfer);
}

void CRunningTransfers::Remove(const TRANSFER_t& tTransfer)
{
    const size_t nIndex = tTransfer.nRunningIndex;
    if (nIndex < m_vecRunning.size() && m_vecRunning[nIndex] == &tTransfer)
    {
        m_vecRunning[nIndex] = m_vecRunning.back();
        m_vecRunning[nIndex]->nRunningIndex = nIndex;
        m_vecRunning.pop_back();
    }
}

bool CRunningTransfers::MayUse(int nSocket) const
{
    const auto fnMayUse = [nSocket](const TRANSFER_t* ptTransfer)
    {
        const TRANSFER_t::ATTEMPT_t& tAttempt = ptTransfer->tAttempt;
        const bool bUnknown = tAttempt.nSocket < 0 && tAttempt.tHeaderLines.HaveBegun();
        return tAttempt.nSocket == nSocket || bUnknown;
    };
    return std::any_of(m_vecRunning.begin(), m_vecRunning.end(), fnMayUse);
}

std::vector<std::pair<TRANSFER_t*, CURLcode>> CRunningTransfers::FindStopped()
{
    constexpr std::chrono::seconds INTERVAL(1);
    std::vector<std::pair<TRANSFER_t*, CURLcode>> vecStopped;
    if (m_vecRunning.empty() || Clock::now() < m_tNextAsking)
    {
        return vecStopped;
    }
    m_tNextAsking = Clock::now() + INTERVAL;
    for (TRANSFER_t* ptTransfer : m_vecRunning)
    {
        const bool bStop = ptTransfer->bReporting && ptTransfer->AskProgress() != 0;
        if (bStop || ptTransfer->IsOverdue() || ptTransfer->IsTooSlow())
        {
            vecStopped.emplace_back(ptTransfer, bStop ? CURLE_ABORTED_BY_CALLBACK : CURLE_OPERATION_TIMEDOUT);
        }
    }
    return vecStopped;
}

std::optional<CRunningTransfers::Clock::time_point> CRunningTransfers::NextAsking() const
{
    return m_vecRunning.empty() ? std::nullopt : std::optional(m_tNextAsking);
}

} // namespace WQCurl
