#pragma once

#include <chrono>
#include <string>
#include <vector>

/** The progress of one download. */
struct PROGRESS_t
{
    /** @param nReceived bytes so far @param nExpected bytes in all; not positive: unknown */
    void Update(long long nReceived, long long nExpected);

    std::string strName; /**< printable */
    long long nBytes = 0;
    long long nTotal = 0;
    double dSpeed = 0.0; /**< recent bytes per second: a weighted average */

private:
    std::chrono::steady_clock::time_point m_tLast{}; /**< of the last measurement of the speed */
    long long m_nLast = 0;
};

/** Shows running downloads as bars on a terminal, and draws them again in each call for its current size. */
class CProgressView
{
public:
    /** @param bWanted false: this shows nothing, as without a terminal */
    explicit CProgressView(bool bWanted);

    /** Erases the bars, so that other lines can be printed. */
    void Erase();

    /** Replaces the bars. @param strSummary a line about all downloads, below the bars; empty: none */
    void Show(const std::vector<PROGRESS_t>& vecProgress, const std::string& strSummary);

private:
    const bool m_bShown;
    std::vector<size_t> m_vecDrawn; /**< columns of each line that is on the terminal */
};
