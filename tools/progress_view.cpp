#include "progress_view.h"

#include <algorithm>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace
{

constexpr int BAR_CELLS = 20;
constexpr int COLUMNS_BESIDE_NAME = BAR_CELLS + 26; /* brackets, percentage, blanks and the longest outcome */
constexpr int LEAST_NAME_WIDTH = 8;
constexpr int LINE_STEP_PERCENT = 25;

/** The columns that a terminal has for names beside the bars; 0 when standard output is none or it is too small. */
int NameWidth(const std::vector<std::string>& vecName)
{
    winsize tSize = {};
    if (isatty(STDOUT_FILENO) == 0 || ioctl(STDOUT_FILENO, TIOCGWINSZ, &tSize) != 0 || tSize.ws_row <= vecName.size() ||
        tSize.ws_col < COLUMNS_BESIDE_NAME + LEAST_NAME_WIDTH)
    {
        return 0;
    }
    size_t nLongest = 0;
    for (const std::string& strName : vecName)
    {
        nLongest = std::max(nLongest, strName.size());
    }
    return static_cast<int>(std::min<size_t>(nLongest, tSize.ws_col - COLUMNS_BESIDE_NAME));
}

std::string FormatSpeed(double dSpeed)
{
    const char* pszUnit = "B/s";
    for (const char* pszLarger : {"kB/s", "MB/s", "GB/s"})
    {
        if (dSpeed < 1000.0)
        {
            break;
        }
        dSpeed /= 1000.0;
        pszUnit = pszLarger;
    }
    char szText[32];
    static_cast<void>(snprintf(szText, sizeof szText, "%.1f %s", dSpeed, pszUnit));
    return szText;
}

std::string Outcome(const DOWNLOAD_STATUS_t& tStatus)
{
    switch (tStatus.eType)
    {
    case DOWNLOAD_TYPE_SUCCESS:
        return "done, " + FormatSpeed(tStatus.dSpeed);
    case DOWNLOAD_TYPE_FAIL:
        return "failed";
    case DOWNLOAD_TYPE_CANCEL:
        return "cancelled";
    default:
        return "";
    }
}

/** The end of a name that is too long for its column, from the beginning of a character. */
const char* NameEnd(const std::string& strName, int nWidth)
{
    const char* pszEnd = strName.c_str() + strName.size() - std::min(strName.size(), static_cast<size_t>(nWidth));
    while ((static_cast<unsigned char>(*pszEnd) & 0xC0U) == 0x80U)
    {
        ++pszEnd;
    }
    return pszEnd;
}

void ShowLine(const std::string& strName, const DOWNLOAD_STATUS_t& tStatus, const DOWNLOAD_STATUS_t& tShown)
{
    if (tStatus.IsFinal() && !tShown.IsFinal())
    {
        printf("%s: %s\n", strName.c_str(), Outcome(tStatus).c_str());
    }
    else if (tStatus.nPercent / LINE_STEP_PERCENT > tShown.nPercent / LINE_STEP_PERCENT)
    {
        printf("%s: %d%%\n", strName.c_str(), tStatus.nPercent);
    }
}

} // namespace

CProgressView::CProgressView(std::vector<std::string> vecName, bool bBars)
    : m_vecName(std::move(vecName)), m_nNameWidth(bBars ? NameWidth(m_vecName) : 0)
{
}

void CProgressView::Show(const std::vector<DOWNLOAD_STATUS_t>& vecStatus)
{
    const bool bFirst = m_vecShown.empty();
    m_vecShown.resize(vecStatus.size());
    if (m_nNameWidth > 0 && !bFirst)
    {
        printf("\033[%zuA", vecStatus.size());
    }
    for (size_t nIndex = 0; nIndex < vecStatus.size(); ++nIndex)
    {
        if (m_nNameWidth > 0)
        {
            m_ShowBar(m_vecName[nIndex], vecStatus[nIndex]);
        }
        else
        {
            ShowLine(m_vecName[nIndex], vecStatus[nIndex], m_vecShown[nIndex]);
        }
    }
    m_vecShown = vecStatus;
    static_cast<void>(fflush(stdout));
}

void CProgressView::m_ShowBar(const std::string& strName, const DOWNLOAD_STATUS_t& tStatus) const
{
    const int nPercent = tStatus.eType == DOWNLOAD_TYPE_SUCCESS ? 100 : tStatus.nPercent;
    const auto nFull = static_cast<size_t>(nPercent * BAR_CELLS / 100);
    const std::string strBar = std::string(nFull, '#') + std::string(BAR_CELLS - nFull, '.');
    printf("\r\033[K%-*s [%s] %3d%% %s\n", m_nNameWidth, NameEnd(strName, m_nNameWidth), strBar.c_str(), nPercent,
           Outcome(tStatus).c_str());
}
