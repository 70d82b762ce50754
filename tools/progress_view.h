#pragma once

#include <map>
#include <string>
#include <vector>

/** The progress of one download. */
struct PROGRESS_t
{
    std::string strName;
    int nPercent = -1;    /**< -1: unknown */
    long long nBytes = 0; /**< received */
    long long nTotal = 0; /**< expected; not positive: unknown */
    double dSpeed = 0.0;  /**< recent bytes per second */
};

enum VIEW_e
{
    VIEW_NOTHING,
    VIEW_LINES,
    VIEW_BARS,      /**< on a terminal; elsewhere VIEW_LINES */
    VIEW_BARS_ALONE /**< on a terminal, without lines for ended downloads; elsewhere VIEW_NOTHING */
};

/**
 * Shows downloads on standard output. Each ended download leaves a line. On a terminal, a bar for each running download
 * follows. Every call draws the bars again, for the current size of the terminal.
 */
class CProgressView
{
public:
    explicit CProgressView(VIEW_e eView);

    /** Prints the end of a download that did not fail. */
    void PrintEnd(const std::string& strName, const std::string& strOutcome);

    /** Prints a failure on standard error. */
    void PrintFailure(const std::string& strName, const std::string& strReason);

    /**
     * Shows the running downloads.
     * @param strSummary a line about all downloads, below the bars; empty: none
     */
    void Show(const std::vector<PROGRESS_t>& vecProgress, const std::string& strSummary);

private:
    bool m_HasBars() const { return m_eView == VIEW_BARS || m_eView == VIEW_BARS_ALONE; }
    void m_EraseBars();
    void m_ShowLines(const std::vector<PROGRESS_t>& vecProgress);
    void m_ShowBars(const std::vector<PROGRESS_t>& vecProgress, const std::string& strSummary);

    const VIEW_e m_eView;
    std::vector<size_t> m_vecDrawn;        /**< columns of each line that is on the terminal */
    std::map<std::string, int> m_mapShown; /**< for VIEW_LINES: the percentage that was printed last */
};
