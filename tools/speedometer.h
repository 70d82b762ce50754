#pragma once

#include <algorithm>
#include <chrono>

/** The recent speed of a download: a weighted average of its measurements. */
class CSpeedometer
{
public:
    /** @param nBytes received so far @return bytes per second */
    double Measure(long long nBytes)
    {
        const auto tNow = std::chrono::steady_clock::now();
        const std::chrono::duration<double> tPassed = tNow - m_tLast;
        if (tPassed.count() >= LEAST_SECONDS)
        {
            const double dSpeed = static_cast<double>(std::max(nBytes - m_nLast, 0LL)) / tPassed.count();
            m_dSpeed = m_dSpeed > 0.0 ? m_dSpeed + WEIGHT * (dSpeed - m_dSpeed) : dSpeed;
            m_tLast = tNow;
            m_nLast = nBytes;
        }
        return m_dSpeed;
    }

private:
    static constexpr double LEAST_SECONDS = 0.5;
    static constexpr double WEIGHT = 0.3; /* of the newest measurement */

    std::chrono::steady_clock::time_point m_tLast = std::chrono::steady_clock::now();
    long long m_nLast = 0;
    double m_dSpeed = 0.0;
};
