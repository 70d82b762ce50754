#pragma once

#include <chrono>
#include <cstddef>
#include <list>
#include <mutex>
#include <optional>

namespace WQCurl
{

/** One download's part of the bandwidth. Belongs to CBandwidth. */
struct BANDWIDTH_SHARE_t
{
    long long nCredit = 0; /**< bytes that the download may still take; negative: has taken too many */
    unsigned nEpoch = 0;   /**< the number of the limit for which they were granted */
    bool bInLine = false;
};

/**
 * The bytes per second that all downloads of the process share. Downloads that have used up their credit stand in line,
 * and the first of the line gets the next grant. So each gets the same, and none starves. Any thread.
 */
class CBandwidth
{
public:
    typedef std::chrono::steady_clock Clock;

    static CBandwidth& Instance();

    /** @param nBytesPerSecond 0: none; -1: no limit */
    void SetLimit(long long nBytesPerSecond);

    /** Takes bytes for a download. @return false if it has to wait; it then stands in line */
    bool Take(BANDWIDTH_SHARE_t& tShare, size_t nBytes);

    /** Returns whether a download that stood in line may go on. */
    bool MayGoOn(BANDWIDTH_SHARE_t& tShare);

    /** Takes a download out of the line. Its credit goes back. */
    void Leave(BANDWIDTH_SHARE_t& tShare);

    /** Returns when the next grant is due; none if there is none to come. */
    std::optional<Clock::time_point> NextGrant();

private:
    void Refill();
    void GrantDue();
    void Renew(BANDWIDTH_SHARE_t& tShare) const;
    void TakeOutOfLine(BANDWIDTH_SHARE_t& tShare);

    std::mutex m_tLock; /**< guards everything, the shares included */
    long long m_nLimit = -1;
    unsigned m_nEpoch = 1;
    double m_dTokens = 0.0; /**< bytes that can be granted; negative after a grant that was larger */
    Clock::time_point m_tRefilled;
    std::list<BANDWIDTH_SHARE_t*> m_lstLine;
};

} // namespace WQCurl
