#pragma once

#include <chrono>
#include <optional>
#include <vector>

namespace WQCurl
{

struct TRANSFER_t;

/**
 * The transfers that libcurl has paused for the wrapper: their time slice is used up, or they wait for bandwidth.
 * Driving thread only.
 */
class CPausedTransfers
{
public:
    typedef std::chrono::steady_clock Clock;

    void AddUsedUp(TRANSFER_t& tTransfer) { m_vecUsedUp.push_back(&tTransfer); }
    void AddHeldBack(TRANSFER_t& tTransfer) { m_vecHeldBack.push_back(&tTransfer); }
    void Remove(TRANSFER_t& tTransfer);

    /** Returns whether a transfer has used up its time slice. */
    bool IsAnyUsedUp() const { return !m_vecUsedUp.empty(); }

    /** Takes out the transfers that go on now: each with a new time slice, or with bandwidth. */
    std::vector<TRANSFER_t*> TakeDue();

    /** Returns when the next transfer may go on; none if that is unknown. */
    std::optional<Clock::time_point> Next() const;

private:
    std::vector<TRANSFER_t*> m_vecUsedUp;
    std::vector<TRANSFER_t*> m_vecHeldBack;
};

} // namespace WQCurl
