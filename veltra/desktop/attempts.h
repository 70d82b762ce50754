#pragma once

#include <chrono>
#include <curl/curl.h>
#include <optional>

#include "veltra/desktop/transfer_settings.h"

namespace WQCurl
{

/** Returns whether a download may succeed later that an answer with this status has failed. */
bool IsTemporaryStatus(long lStatus);

/** Counts the attempts of one transfer, and decides when the next one begins. Belongs to the driving thread. */
class CAttempts
{
public:
    typedef std::chrono::steady_clock Clock;

    /**
     * Begins with another transfer.
     * @param bDownload whether the transfer is a download; others are not retried
     * @param lTotalSeconds the longest that it may take; 0: any time
     */
    void Begin(const TRANSFER_SETTINGS_t& tSettings, bool bDownload, long lTotalSeconds);

    /** Returns whether the settings allow to retry the transfer. */
    bool MayRetry() const { return m_nMostRetries > 0; }

    /**
     * Ends an attempt that has failed for a temporary reason.
     * @param nReceived the bytes of the body that it has received
     * @param nRetryAfter the seconds that the server asks to wait
     * @return the moment of the next attempt; none if no attempt is left
     */
    std::optional<Clock::time_point> Next(long long nReceived, int nRetryAfter);

    /** Limits an attempt to the time that is left of the transfer's total time. */
    void SetTimeLeft(CURL* pEasy) const;

    int Count() const { return m_nAttempts; } /**< the number of the running attempt, from 1 on */
    double SecondsSinceBegin() const;

private:
    int m_nMostRetries = 0;   /**< the most fruitless retries in a row; 0: it is not retried */
    long m_lTotalSeconds = 0; /**< the longest that the transfer may take; 0: any time */
    long m_lRetrySeconds = 0; /**< the time since the begin after which no attempt starts; 0: any time */
    Clock::time_point m_tBegun;
    int m_nAttempts = 1;
    int m_nFruitlessRetries = 0; /**< retries in a row that have received little */
};

} // namespace WQCurl
