#pragma once

#include <chrono>
#include <optional>
#include <utility>
#include <vector>

#include "veltra/desktop/transfer.h"

namespace WQCurl
{

/** The transfers that wait for their next attempt, each with the moment of it. Driving thread only. */
class CRetrySchedule
{
public:
    typedef std::chrono::steady_clock Clock;

    void Add(TRANSFER_t& tTransfer, Clock::time_point tMoment) { m_vecWaiting.emplace_back(tMoment, &tTransfer); }
    void Remove(const TRANSFER_t& tTransfer);
    bool IsEmpty() const { return m_vecWaiting.empty(); }

    /** Ends all back-offs. */
    void MakeAllDue();

    /** Takes out the transfers whose moment has come. */
    std::vector<TRANSFER_t*> TakeDue();

    /** Returns the next moment; none if no transfer waits. */
    std::optional<Clock::time_point> Next() const;

private:
    std::vector<std::pair<Clock::time_point, TRANSFER_t*>> m_vecWaiting;
};

} // namespace WQCurl
