#pragma once

#include <chrono>
#include <optional>

#include "veltra/desktop/prepared_settings.h"

namespace WQCurl
{

/**
 * Decides whether a broken download is resumed, and whether an answer is the rest of the file. Each transfer has one,
 * which belongs to the thread that drives it.
 */
class CResume
{
public:
    typedef std::chrono::steady_clock Clock;

    /**
     * Begins with another transfer.
     * @param bDownload whether the transfer is a download; others are not resumed
     * @param lTotalSeconds the longest that it may take; 0: any time
     */
    void Begin(const TRANSFER_SETTINGS_t& tDefaults, bool bDownload, long lTotalSeconds);

    /**
     * Checks an answer by its header lines, before its body is received.
     * @return false for an answer that is neither the whole file nor the rest; Refusal() then returns the reason
     */
    bool AcceptAnswer(CURL* pEasy);

    /** Counts received bytes of the body. */
    void Count(size_t nBytes) { m_nReceived += static_cast<long long>(nBytes); }

    /**
     * Ends an attempt.
     * @param nCode its result, as libcurl's code
     * @return the moment of the next attempt; none if the transfer has ended
     */
    std::optional<Clock::time_point> NextAttempt(int nCode);

    /** Sets the options that request the rest. @param pHeaders the request's own header lines @return a refusal */
    CURLcode RequestRest(CURL* pEasy, const curl_slist* pHeaders);

    /** Limits an attempt to the time that is left of the transfer's total time. */
    void SetTimeLeft(CURL* pEasy) const;

    /** Returns whether the attempts together have not received the whole file. */
    bool IsShort() const { return m_nAttempts > 1 && m_nReceived != m_nTotal; }

    /** Returns why an answer was refused; null if none was. */
    const char* Refusal() const { return m_pszRefusal; }

    long long Received() const { return m_nReceived; } /**< bytes of the body that all attempts have received */
    long long Before() const { return m_nBefore; } /**< bytes that the attempts before the running one have received */
    long long Total() const { return m_nTotal; }   /**< bytes of the whole body; 0: unknown */
    int Attempts() const { return m_nAttempts; }   /**< the number of the running attempt, from 1 on */
    double SecondsSinceBegin() const;

private:
    bool AcceptWhole(CURL* pEasy, long lStatus);
    bool AcceptRest(CURL* pEasy, long lStatus);
    bool HasValidator(CURL* pEasy) const;
    bool Refuse(const char* pszReason);

    bool m_bAllowed = false;   /**< it is a download, and the settings say so */
    int m_nMostAttempts = 0;   /**< the most fruitless attempts in a row */
    long m_lTotalSeconds = 0;  /**< the longest that the transfer may take; 0: any time */
    long m_lResumeSeconds = 0; /**< the time since the begin after which no attempt starts; 0: any time */
    Clock::time_point m_tBegun;

    std::string m_strValidator; /**< the ETag or date of the file's version; empty: the download cannot be resumed */
    long long m_nTotal = 0;
    long long m_nReceived = 0;
    long long m_nBefore = 0;
    int m_nAttempts = 1;
    int m_nFruitlessAttempts = 0;          /**< attempts in a row that have received little */
    std::chrono::seconds m_tRetryAfter{0}; /**< the server's Retry-After, limited */
    bool m_bBusy = false;                  /**< the last answer said that the server is busy */
    const char* m_pszRefusal = nullptr;
    SLIST_PTR_t m_pHeaders;
};

} // namespace WQCurl
