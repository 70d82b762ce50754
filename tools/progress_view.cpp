#include "progress_view.h"

#include <algorithm>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>

#include "text.h"

namespace
{

winsize TerminalSize()
{
    winsize tSize = {};
    const bool bKnown = ioctl(STDOUT_FILENO, TIOCGWINSZ, &tSize) == 0 && tSize.ws_col > 0 && tSize.ws_row > 0;
    return bKnown ? tSize : winsize{24, 80, 0, 0};
}

/** Returns a bar; without a known total the received bytes instead. */
std::string Bar(const PROGRESS_t& tProgress, int nPercent, size_t nColumns)
{
    if (tProgress.nTotal <= 0)
    {
        const std::string strBytes = FormatBytes(static_cast<double>(tProgress.nBytes));
        return Format("%*s", static_cast<int>(nColumns), strBytes.c_str());
    }
    const size_t nCells = nColumns - 3;
    const size_t nFull = static_cast<size_t>(nPercent) * nCells / 100;
    return " [" + std::string(nFull, '#') + std::string(nCells - nFull, '.') + "]";
}

std::string TimeLeft(const PROGRESS_t& tProgress)
{
    constexpr double LONGEST = 359999.0;
    const double dSeconds = static_cast<double>(tProgress.nTotal - tProgress.nBytes) / tProgress.dSpeed;
    if (tProgress.dSpeed <= 0.0 || dSeconds < 0.0 || dSeconds > LONGEST)
    {
        return "";
    }
    const auto nSeconds = static_cast<int>(dSeconds);
    return Format("%d:%02d:%02d left", nSeconds / 3600, nSeconds / 60 % 60, nSeconds % 60);
}

std::string Line(const PROGRESS_t& tProgress, size_t nLongestName, size_t nTerminal)
{
    constexpr size_t LEAST_NAME_COLUMNS = 12;
    const bool bTotal = tProgress.nTotal > 0;
    const int nPercent = bTotal ? static_cast<int>(std::min(tProgress.nBytes * 100 / tProgress.nTotal, 100LL)) : 0;
    const std::string strSpeed = tProgress.dSpeed > 0.0 ? FormatBytes(tProgress.dSpeed) + "/s" : "";
    const std::string strBytes = FormatBytes(static_cast<double>(tProgress.nBytes)) + " of " +
                                 FormatBytes(static_cast<double>(tProgress.nTotal));
    const size_t nBar = std::clamp(nTerminal / 4, size_t{20}, size_t{42}) - 9;
    /* Some terminals wrap a line that fills the last column. */
    size_t nName = std::min({LEAST_NAME_COLUMNS, nLongestName, nTerminal - 1});
    size_t nFree = nTerminal - 1 - nName;
    std::string strLine;
    /* Each part has its own width in all lines. A part that finds no room is left out. */
    for (const std::string& strPart :
         {bTotal ? Format(" %3d%%", nPercent) : Format("%5s", ""), Format("%11s", strSpeed.c_str()),
          Bar(tProgress, nPercent, nBar), Format("%22s", bTotal ? strBytes.c_str() : ""),
          Format("%14s", TimeLeft(tProgress).c_str())})
    {
        if (strPart.size() <= nFree)
        {
            strLine += strPart;
            nFree -= strPart.size();
        }
    }
    nName = std::min(nName + nFree, nLongestName);
    const std::string strName = LastColumns(tProgress.strName, nName);
    return strName + std::string(nName - Columns(strName), ' ') + strLine;
}

} // namespace

void PROGRESS_t::Update(long long nReceived, long long nExpected)
{
    constexpr double LEAST_SECONDS = 0.5;
    constexpr double WEIGHT = 0.3; /* of the newest measurement */
    const auto tNow = std::chrono::steady_clock::now();
    const std::chrono::duration<double> tPassed = tNow - m_tLast;
    nBytes = nReceived;
    nTotal = nExpected;
    if (nBytes > 0 && tPassed.count() < LEAST_SECONDS)
    {
        return;
    }
    if (nBytes > 0)
    {
        const double dNewest = static_cast<double>(nBytes - m_nLast) / tPassed.count();
        dSpeed = dSpeed > 0.0 ? dSpeed + WEIGHT * (dNewest - dSpeed) : dNewest;
    }
    m_tLast = tNow;
    m_nLast = nBytes;
}

CProgressView::CProgressView(bool bWanted) : m_bShown(bWanted && isatty(STDOUT_FILENO) != 0) {}

/* Leaves the cursor at the first bar. A terminal that has become narrower has wrapped the lines. */
void CProgressView::Erase()
{
    if (m_vecDrawn.empty())
    {
        return;
    }
    const size_t nColumns = TerminalSize().ws_col;
    size_t nRows = 0;
    for (const size_t nDrawn : m_vecDrawn)
    {
        nRows += std::max<size_t>(1, (nDrawn + nColumns - 1) / nColumns);
    }
    /* Clear the first row separately: some terminals save a screen that is cleared at once to their history. */
    printf("\r\033[%zuA\033[K\033[B\033[J\033[A", nRows);
    m_vecDrawn.clear();
}

void CProgressView::Show(const std::vector<PROGRESS_t>& vecProgress, const std::string& strSummary)
{
    if (!m_bShown)
    {
        return;
    }
    Erase();
    constexpr size_t OTHER_ROWS = 2; /* the summary and the row of the cursor */
    const winsize tSize = TerminalSize();
    size_t nLongest = 1;
    for (const PROGRESS_t& tProgress : vecProgress)
    {
        nLongest = std::max(nLongest, Columns(tProgress.strName));
    }
    std::vector<std::string> vecLine;
    for (const PROGRESS_t& tProgress : vecProgress)
    {
        if (vecLine.size() + OTHER_ROWS < tSize.ws_row)
        {
            vecLine.push_back(Line(tProgress, nLongest, tSize.ws_col));
        }
    }
    if (!strSummary.empty())
    {
        vecLine.push_back(LastColumns(strSummary, tSize.ws_col - size_t{1}));
    }
    for (const std::string& strLine : vecLine)
    {
        m_vecDrawn.push_back(Columns(strLine));
        puts(strLine.c_str());
    }
}
