#include "veltra/desktop/header_lines.h"

#include <utility>

namespace WQCurl
{

CHeaderLines::RESULT_e CHeaderLines::Take(std::string_view strLine, long lStatus)
{
    constexpr size_t MOST_BYTES = 307200;
    constexpr long SWITCHING_PROTOCOLS = 101;
    m_nBytes += strLine.size();
    if (m_nBytes > MOST_BYTES)
    {
        return RESULT_TOO_LARGE;
    }
    if (strLine.substr(0, 5) == "HTTP/")
    {
        m_bComplete = false;
    }
    else if (strLine == "\r\n" || strLine == "\n")
    {
        const bool bInterim = lStatus / 100 == 1 && lStatus != SWITCHING_PROTOCOLS;
        const bool bTrailer = std::exchange(m_bComplete, !bInterim);
        return bInterim || bTrailer ? RESULT_MORE : RESULT_COMPLETE;
    }
    return RESULT_MORE;
}

} // namespace WQCurl
