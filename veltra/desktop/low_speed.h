#pragma once

#include <chrono>

namespace WQCurl
{

/**
 * Finds an attempt that stays too slow for too long. libcurl does so itself, but counts the time for which a transfer
 * is paused. Driving thread only.
 */
class CLowSpeed
{
public:
    typedef std::chrono::steady_clock Clock;

    /** Begins to measure again. @param nReceived the bytes that have been received until now */
    void Restart(long long nReceived)
    {
        m_tSince = Clock::now();
        m_nBefore = nReceived;
    }

    /** Returns whether the speed has stayed below a limit in bytes per second for so many seconds. */
    bool IsTooSlow(long long nReceived, long lLimit, long lSeconds)
    {
        const double dSeconds = std::chrono::duration<double>(Clock::now() - m_tSince).count();
        const bool bSlow = static_cast<double>(nReceived - m_nBefore) < static_cast<double>(lLimit) * dSeconds;
        if (!bSlow)
        {
            Restart(nReceived);
        }
        return bSlow && dSeconds >= static_cast<double>(lSeconds);
    }

private:
    Clock::time_point m_tSince = Clock::now();
    long long m_nBefore = 0;
};

} // namespace WQCurl
