#pragma once

#include <chrono>
#include <optional>

#include "veltra/desktop/prepared_settings.h"

namespace WQCurl
{

/**
 * Decides whether the rest of a download that broke is asked for, and whether an answer is that rest. One for each
 * transfer; it belongs to the thread that runs that.
 */
class CResume
{
public:
    typedef std::chrono::steady_clock Clock;

    /**
     * Another transfer begins.
     * @param bDownload whether it is one that may be resumed
     * @param lTotalSeconds the longest that it may take; 0: any time
     */
    void Begin(const TRANSFER_DEFAULTS_t& tDefaults, bool bDownload, long lTotalSeconds);

    /**
     * Judges an answer by its header lines, before its body is taken.
     * @return false for one that is not what was asked for; Reason() tells why
     */
    bool TakesAnswer(CURL* pEasy);

    /** Part of the body has been taken. */
    void Count(size_t nBytes) { m_nReceived += static_cast<long long>(nBytes); }

    /**
     * An attempt has ended.
     * @param nCode how, by libcurl's code
     * @return when the rest is to be asked for; none when this is the transfer's end
     */
    std::optional<Clock::time_point> NextAttempt(int nCode);

    /** Sets the options that ask for the rest. @param pHeaders the request's own header lines @return a refusal */
    CURLcode AskForRest(CURL* pEasy, const curl_slist* pHeaders);

    /** Limits another attempt to what is left of the transfer's total time. */
    void SetTimeLeft(CURL* pEasy) const;

    /** Whether the rest that has come does not make a whole file. */
    bool IsShort() const { return m_nAttempts > 1 && m_nReceived != m_nTotal; }

    /** Why an answer was not taken; null if none was refused. */
    const char* Reason() const { return m_pszReason; }

    long long Received() const { return m_nReceived; } /**< bytes of the body, of all attempts */
    long long Before() const { return m_nBefore; }     /**< those of them that came before the running attempt */
    long long Total() const { return m_nTotal; }       /**< of the whole body; 0: unknown */
    int Attempts() const { return m_nAttempts; }       /**< 1 for the first */
    double SecondsSinceBegin() const;

private:
    bool TakesWhole(CURL* pEasy, long lStatus);
    bool TakesRest(CURL* pEasy, long lStatus);
    bool HasValidator(CURL* pEasy) const;
    bool Refuse(const char* pszReason);

    bool m_bAllowed = false;   /**< it is a download, and the settings say so */
    int m_nMostAttempts = 0;   /**< in a row that bring little */
    long m_lTotalSeconds = 0;  /**< for the transfer; 0: any number */
    long m_lResumeSeconds = 0; /**< after which nothing is asked for again; 0: any number */
    Clock::time_point m_tBegun;

    std::string m_strValidator; /**< what the rest must be the rest of; empty: it cannot be told */
    long long m_nTotal = 0;
    long long m_nReceived = 0;
    long long m_nBefore = 0;
    int m_nAttempts = 1;
    int m_nVain = 0;                       /**< attempts in a row that brought little */
    std::chrono::seconds m_tRetryAfter{0}; /**< the pause that the server has asked for, limited */
    bool m_bBusy = false;                  /**< the last answer said that the server is busy */
    const char* m_pszReason = nullptr;
    SLIST_PTR_t m_pHeaders;
};

} // namespace WQCurl
