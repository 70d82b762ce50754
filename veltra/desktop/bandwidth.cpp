#include "veltra/desktop/bandwidth.h"

#include <algorithm>

#include "veltra/desktop/transfer_settings.h"

namespace WQCurl
{

namespace
{

/** Returns the bytes of one grant: few, so that all downloads get one soon, but enough to be worth the switch. */
long long GrantSize(long long nLimit)
{
    constexpr long long GRANTS_PER_SECOND = 128;
    constexpr long long LEAST = 16384; // libcurl hands over so many at once
    constexpr long long MOST = 262144;
    return std::clamp(nLimit / GRANTS_PER_SECOND, LEAST, MOST);
}

} // namespace

CBandwidth& CBandwidth::Instance()
{
    static auto* const s_ptBandwidth = new CBandwidth;
    return *s_ptBandwidth;
}

void CBandwidth::SetLimit(long long nBytesPerSecond)
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    if (nBytesPerSecond != m_nLimit)
    {
        Refill();
        m_nLimit = nBytesPerSecond;
        ++m_nEpoch; // no credit is left
        m_dTokens = std::max(m_dTokens, 0.0);
    }
}

bool CBandwidth::Take(BANDWIDTH_SHARE_t& tShare, size_t nBytes)
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    if (m_nLimit < 0)
    {
        return true;
    }
    Renew(tShare);
    if (tShare.nCredit <= 0 && !tShare.bInLine)
    {
        m_lstLine.push_back(&tShare);
        tShare.bInLine = true;
        GrantDue();
    }
    if (tShare.nCredit <= 0)
    {
        return false;
    }
    tShare.nCredit -= static_cast<long long>(nBytes);
    return true;
}

bool CBandwidth::MayGoOn(BANDWIDTH_SHARE_t& tShare)
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    GrantDue();
    if (m_nLimit < 0)
    {
        TakeOutOfLine(tShare);
    }
    return !tShare.bInLine;
}

void CBandwidth::Leave(BANDWIDTH_SHARE_t& tShare)
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    TakeOutOfLine(tShare);
    Renew(tShare);
    m_dTokens += static_cast<double>(tShare.nCredit);
    tShare.nCredit = 0;
}

std::optional<CBandwidth::Clock::time_point> CBandwidth::NextGrant()
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    if (m_nLimit < 0)
    {
        return Clock::now();
    }
    if (m_nLimit == 0)
    {
        return std::nullopt;
    }
    Refill();
    const double dSeconds = std::max(1.0 - m_dTokens, 0.0) / static_cast<double>(m_nLimit);
    return m_tRefilled +
           std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(std::min(dSeconds, 3600.0)));
}

void CBandwidth::Refill()
{
    constexpr double MOST_SECONDS = 0.1; // that can be saved up
    const Clock::time_point tNow = Clock::now();
    if (m_nLimit > 0)
    {
        const auto dLimit = static_cast<double>(m_nLimit);
        const double dMost = std::max(dLimit * MOST_SECONDS, 1.0);
        m_dTokens = std::min(m_dTokens + dLimit * std::chrono::duration<double>(tNow - m_tRefilled).count(), dMost);
    }
    m_tRefilled = tNow;
}

/** Gives the first of the line what is due. */
void CBandwidth::GrantDue()
{
    Refill();
    const long long nGrant = GrantSize(m_nLimit);
    while (m_nLimit > 0 && m_dTokens >= 1.0 && !m_lstLine.empty())
    {
        BANDWIDTH_SHARE_t& tShare = *m_lstLine.front();
        m_lstLine.pop_front();
        m_dTokens -= static_cast<double>(nGrant);
        Renew(tShare);
        tShare.nCredit += nGrant;
        tShare.bInLine = false;
    }
}

/** Takes away the credit of an earlier limit. */
void CBandwidth::Renew(BANDWIDTH_SHARE_t& tShare) const
{
    tShare.nCredit = tShare.nEpoch == m_nEpoch ? tShare.nCredit : std::min(tShare.nCredit, 0LL);
    tShare.nEpoch = m_nEpoch;
}

void CBandwidth::TakeOutOfLine(BANDWIDTH_SHARE_t& tShare)
{
    if (tShare.bInLine)
    {
        m_lstLine.remove(&tShare);
        tShare.bInLine = false;
    }
}

bool SetBandwidth(long long nBytesPerSecond)
{
    if (nBytesPerSecond < -1)
    {
        return false;
    }
    CBandwidth::Instance().SetLimit(nBytesPerSecond);
    return true;
}

} // namespace WQCurl
