#pragma once

#include <chrono>
#include <optional>
#include <utility>
#include <vector>

#include "veltra/desktop/transfer.h"

namespace WQCurl
{

/** The transfers of a multi handle that run, including those that wait for their next attempt. Driving thread only. */
class CRunningTransfers
{
public:
    typedef std::chrono::steady_clock Clock;

    void Add(TRANSFER_t& tTransfer);
    /** Removes a transfer, if it runs. */
    void Remove(const TRANSFER_t& tTransfer);
    bool IsEmpty() const { return m_vecRunning.empty(); }
    int Count() const { return static_cast<int>(m_vecRunning.size()); }

    /**
     * Returns whether a socket may belong to a running transfer although libcurl does not wait on it: the transfer is
     * paused, or its speed is limited.
     */
    bool MayUse(int nSocket) const;

    /**
     * Asks each transfer that has a progress function once a second whether it is to go on, and checks its total time.
     * libcurl does so while data flow, but not in every state: during a TLS handshake or in a queue it may never do so.
     * @return the transfers that are to end, each with its result code
     */
    std::vector<std::pair<TRANSFER_t*, CURLcode>> FindStopped();

    /** Returns when FindStopped() asks again; none while no transfer runs. */
    std::optional<Clock::time_point> NextAsking() const;

private:
    std::vector<TRANSFER_t*> m_vecRunning; /**< each knows its index */
    Clock::time_point m_tNextAsking;
};

} // namespace WQCurl
