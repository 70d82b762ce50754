#pragma once

#include <string>
#include <vector>

#include "veltra/veltra.h"

/** How far one download has come. */
struct DOWNLOAD_STATUS_t
{
    DOWNLOAD_TYPE_e eType = DOWNLOAD_TYPE_PROGRESS; /**< DOWNLOAD_TYPE_PROGRESS as long as it is under way */
    int nPercent = 0;
    double dSpeed = 0.0; /**< bytes per second, of a finished one */

    bool IsFinal() const { return eType != DOWNLOAD_TYPE_PROGRESS; }
};

/** Shows downloads on standard output: one bar each on a terminal that has room for them, otherwise plain lines. */
class CProgressView
{
public:
    /** @param bBars false for plain lines also on a terminal */
    CProgressView(std::vector<std::string> vecName, bool bBars);

    /** Shows what has changed since the last call; one status for each name. */
    void Show(const std::vector<DOWNLOAD_STATUS_t>& vecStatus);

private:
    void m_ShowBar(const std::string& strName, const DOWNLOAD_STATUS_t& tStatus) const;

    const std::vector<std::string> m_vecName;
    std::vector<DOWNLOAD_STATUS_t> m_vecShown; /**< empty before the first call */
    int m_nNameWidth;                          /**< columns for names; 0: plain lines */
};
