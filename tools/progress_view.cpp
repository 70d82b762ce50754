#include "progress_view.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>

#include "messages.h"
#include "text.h"

namespace
{

constexpr int LINE_STEP_PERCENT = 25;
constexpr size_t LEAST_NAME_COLUMNS = 12;
constexpr size_t PERCENT_COLUMNS = 5; /* this and the following include a leading blank */
constexpr size_t SPEED_COLUMNS = 11;
constexpr size_t BYTES_COLUMNS = 22;
constexpr size_t LEFT_COLUMNS = 13;
constexpr size_t LEAST_BAR_COLUMNS = 11;
constexpr size_t MOST_BAR_COLUMNS = 33;

struct SIZE_t
{
    size_t nColumns;
    size_t nRows;
};

SIZE_t TerminalSize()
{
    winsize tSize = {};
    const bool bKnown = ioctl(STDOUT_FILENO, TIOCGWINSZ, &tSize) == 0 && tSize.ws_col > 0 && tSize.ws_row > 0;
    return bKnown ? SIZE_t{tSize.ws_col, tSize.ws_row} : SIZE_t{80, 24};
}

/** The columns of each part of a line; 0: the part is left out. */
struct LAYOUT_t
{
    size_t nName;
    size_t nSpeed = 0;
    size_t nBar = 0;
    size_t nBytes = 0;
    size_t nLeft = 0;
};

LAYOUT_t MakeLayout(size_t nTerminal, size_t nLongestName)
{
    LAYOUT_t tLayout;
    /* Some terminals wrap a line that fills the last column. */
    const size_t nRoom = std::max(nTerminal, PERCENT_COLUMNS + 2) - PERCENT_COLUMNS - 1;
    const size_t nLeast = std::min({LEAST_NAME_COLUMNS, nLongestName, nRoom});
    size_t nFree = nRoom - nLeast;
    const auto fnTake = [&nFree](size_t nColumns)
    {
        const size_t nTaken = nColumns <= nFree ? nColumns : 0;
        nFree -= nTaken;
        return nTaken;
    };
    tLayout.nSpeed = fnTake(SPEED_COLUMNS);
    tLayout.nBar = fnTake(LEAST_BAR_COLUMNS);
    tLayout.nBytes = fnTake(BYTES_COLUMNS);
    tLayout.nLeft = fnTake(LEFT_COLUMNS);
    tLayout.nName = nLeast + fnTake(std::min(nLongestName - nLeast, nFree));
    tLayout.nBar += tLayout.nBar > 0 ? fnTake(std::min(MOST_BAR_COLUMNS - LEAST_BAR_COLUMNS, nFree)) : 0;
    return tLayout;
}

std::string Bar(const PROGRESS_t& tProgress, size_t nColumns)
{
    const size_t nCells = nColumns - 3;
    const size_t nFull = static_cast<size_t>(std::clamp(tProgress.nPercent, 0, 100)) * nCells / 100;
    return " [" + std::string(nFull, '#') + std::string(nCells - nFull, '.') + "]";
}

std::string Bytes(const PROGRESS_t& tProgress)
{
    const std::string strBytes = FormatBytes(static_cast<double>(tProgress.nBytes));
    return tProgress.nTotal <= 0 ? strBytes : strBytes + " of " + FormatBytes(static_cast<double>(tProgress.nTotal));
}

std::string TimeLeft(const PROGRESS_t& tProgress)
{
    constexpr double LONGEST = 359999.0;
    const double dSeconds = static_cast<double>(tProgress.nTotal - tProgress.nBytes) / tProgress.dSpeed;
    if (tProgress.nTotal <= 0 || tProgress.dSpeed <= 0.0 || dSeconds < 0.0 || dSeconds > LONGEST)
    {
        return "";
    }
    const long nSeconds = std::lround(dSeconds);
    return nSeconds < 3600 ? Format("%ld:%02ld left", nSeconds / 60, nSeconds % 60)
                           : Format("%ld:%02ld:%02ld left", nSeconds / 3600, nSeconds / 60 % 60, nSeconds % 60);
}

std::string Line(const PROGRESS_t& tProgress, const LAYOUT_t& tLayout)
{
    std::string strLine = LastColumns(tProgress.strName, tLayout.nName);
    strLine += std::string(tLayout.nName - Columns(strLine), ' ');
    if (tLayout.nBar > 0)
    {
        const std::string strBytes = tLayout.nBytes > 0 ? "" : Bytes(tProgress);
        strLine += tProgress.nPercent >= 0 ? Bar(tProgress, tLayout.nBar)
                                           : Format("%*s", static_cast<int>(tLayout.nBar), strBytes.c_str());
    }
    strLine += tProgress.nPercent >= 0 ? Format(" %3d%%", tProgress.nPercent) : std::string(PERCENT_COLUMNS, ' ');
    const std::string strSpeed = tProgress.dSpeed > 0.0 ? FormatBytes(tProgress.dSpeed) + "/s" : "";
    for (const auto& [nColumns, strPart] :
         {std::pair(tLayout.nBytes, Bytes(tProgress)), std::pair(tLayout.nSpeed, strSpeed),
          std::pair(tLayout.nLeft, TimeLeft(tProgress))})
    {
        strLine += nColumns > 0 ? Format("%*s", static_cast<int>(nColumns), strPart.c_str()) : "";
    }
    return strLine;
}

/** Bars need a terminal. */
VIEW_e WithoutBars(VIEW_e eView)
{
    return eView == VIEW_BARS ? VIEW_LINES : eView == VIEW_BARS_ALONE ? VIEW_NOTHING : eView;
}

} // namespace

CProgressView::CProgressView(VIEW_e eView) : m_eView(isatty(STDOUT_FILENO) != 0 ? eView : WithoutBars(eView)) {}

void CProgressView::PrintEnd(const std::string& strName, const std::string& strOutcome)
{
    m_EraseBars();
    if (m_eView == VIEW_LINES || m_eView == VIEW_BARS)
    {
        printf("%s: %s\n", strName.c_str(), Printable(strOutcome).c_str());
    }
}

void CProgressView::PrintFailure(const std::string& strName, const std::string& strReason)
{
    /* Bars and errors on one terminal: print the failure once. */
    if (!m_HasBars() || isatty(STDERR_FILENO) == 0)
    {
        PrintEnd(strName, "failed, " + strReason);
    }
    m_EraseBars();
    PrintError(strName, strReason);
}

void CProgressView::Show(const std::vector<PROGRESS_t>& vecProgress, const std::string& strSummary)
{
    if (m_HasBars())
    {
        m_ShowBars(vecProgress, strSummary);
    }
    else if (m_eView == VIEW_LINES)
    {
        m_ShowLines(vecProgress);
    }
}

/* Leaves the cursor at the first bar. A terminal that has become narrower has wrapped the lines. */
void CProgressView::m_EraseBars()
{
    if (m_vecDrawn.empty())
    {
        return;
    }
    const size_t nColumns = TerminalSize().nColumns;
    size_t nRows = 0;
    for (const size_t nDrawn : m_vecDrawn)
    {
        nRows += std::max<size_t>(1, (nDrawn + nColumns - 1) / nColumns);
    }
    /* Clear the first row separately: some terminals save a screen that is cleared at once to their history. */
    printf("\r\033[%zuA\033[K\033[B\033[J\033[A", nRows);
    m_vecDrawn.clear();
}

void CProgressView::m_ShowLines(const std::vector<PROGRESS_t>& vecProgress)
{
    for (const PROGRESS_t& tProgress : vecProgress)
    {
        int& nShown = m_mapShown[tProgress.strName];
        if (tProgress.nPercent / LINE_STEP_PERCENT > nShown / LINE_STEP_PERCENT)
        {
            printf("%s: %d%%\n", tProgress.strName.c_str(), tProgress.nPercent);
            nShown = tProgress.nPercent;
        }
    }
}

void CProgressView::m_ShowBars(const std::vector<PROGRESS_t>& vecProgress, const std::string& strSummary)
{
    constexpr size_t OTHER_ROWS = 2; /* the summary and the row of the cursor */
    m_EraseBars();
    const SIZE_t tSize = TerminalSize();
    size_t nLongest = 1;
    for (const PROGRESS_t& tProgress : vecProgress)
    {
        nLongest = std::max(nLongest, Columns(tProgress.strName));
    }
    const LAYOUT_t tLayout = MakeLayout(tSize.nColumns, nLongest);
    std::vector<std::string> vecLine;
    for (const PROGRESS_t& tProgress : vecProgress)
    {
        if (vecLine.size() + OTHER_ROWS < tSize.nRows)
        {
            vecLine.push_back(Line(tProgress, tLayout));
        }
    }
    if (!strSummary.empty())
    {
        vecLine.push_back(LastColumns(strSummary, tSize.nColumns - 1));
    }
    for (const std::string& strLine : vecLine)
    {
        m_vecDrawn.push_back(Columns(strLine));
        puts(strLine.c_str());
    }
}
