#pragma once

#include <map>
#include <string>
#include <vector>

/** How far one download has come. */
struct PROGRESS_t
{
    std::string strName;
    int nPercent = -1;            /**< -1: unknown */
    long long nBytes = 0;         /**< that have arrived */
    long long nTotal = 0;         /**< that are to come in all; 0: unknown */
    bool bTotalEstimated = false; /**< nTotal was computed from a rounded percentage */
    double dSpeed = 0.0;          /**< bytes per second, of the last moments */
};

enum VIEW_e
{
    VIEW_NOTHING,
    VIEW_LINES,
    VIEW_BARS,      /**< on a terminal; elsewhere plain lines */
    VIEW_BARS_ALONE /**< the same without a line for what has ended, and elsewhere nothing */
};

/**
 * Shows downloads on standard output. Those that have ended leave a line each; below these, on a terminal, stands a bar
 * for each that is under way, drawn anew with each call and to the terminal's present size.
 */
class CProgressView
{
public:
    explicit CProgressView(VIEW_e eView);

    /** One has ended well. */
    void PrintEnd(const std::string& strName, const std::string& strOutcome);

    /** One has failed: says so on standard error. */
    void PrintFailure(const std::string& strName, const std::string& strReason);

    /**
     * Shows what is under way.
     * @param strSummary of all downloads, below the bars; empty: none
     */
    void Show(const std::vector<PROGRESS_t>& vecProgress, const std::string& strSummary);

private:
    bool m_HasBars() const { return m_eView == VIEW_BARS || m_eView == VIEW_BARS_ALONE; }
    void m_EraseBars();
    void m_ShowLines(const std::vector<PROGRESS_t>& vecProgress);
    void m_ShowBars(const std::vector<PROGRESS_t>& vecProgress, const std::string& strSummary);

    const VIEW_e m_eView;
    std::vector<size_t> m_vecDrawn;        /**< columns of each line of the bars that stand there */
    std::map<std::string, int> m_mapShown; /**< with VIEW_LINES: the percentage that was printed last */
};
