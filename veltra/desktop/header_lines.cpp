#include "veltra/desktop/header_lines.h"

#include <utility>

namespace WQCurl
{

namespace
{

bool IsBlank(char cCharacter)
{
    return cCharacter == ' ' || cCharacter == '\t' || cCharacter == '\r' || cCharacter == '\n';
}

std::string_view Trim(std::string_view strText)
{
    while (!strText.empty() && IsBlank(strText.back()))
    {
        strText.remove_suffix(1);
    }
    while (!strText.empty() && IsBlank(strText.front()))
    {
        strText.remove_prefix(1);
    }
    return strText;
}

bool HasName(std::string_view strLine, std::string_view strName)
{
    return strLine.size() > strName.size() && strLine[strName.size()] == ':' &&
           curl_strnequal(strLine.data(), strName.data(), strName.size()) != 0;
}

} // namespace

CHeaderLines::RESULT_e CHeaderLines::Take(std::string_view strLine, CURL* pEasy)
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
        m_strLines.clear();
    }
    else if (strLine == "\r\n" || strLine == "\n")
    {
        long lStatus = 0;
        curl_easy_getinfo(pEasy, CURLINFO_RESPONSE_CODE, &lStatus);
        const bool bInterim = lStatus / 100 == 1 && lStatus != SWITCHING_PROTOCOLS;
        const bool bTrailer = std::exchange(m_bComplete, !bInterim);
        return bInterim || bTrailer ? RESULT_MORE : RESULT_COMPLETE;
    }
    else if (!m_bComplete)
    {
        Keep(strLine);
    }
    return RESULT_MORE;
}

void CHeaderLines::Keep(std::string_view strLine)
{
    constexpr size_t USUAL_BYTES = 1024;
    if (m_strLines.empty())
    {
        m_strLines.reserve(USUAL_BYTES);
    }
    const bool bFolded = strLine.front() == ' ' || strLine.front() == '\t';
    if (bFolded && !m_strLines.empty())
    {
        m_strLines.back() = ' '; // instead of the end of the line before
    }
    m_strLines.append(Trim(strLine)).push_back('\n');
}

void CHeaderLines::Clear()
{
    constexpr size_t MOST_IDLE_BYTES = 4096;
    m_nBytes = 0;
    m_bComplete = false;
    m_strLines.clear();
    if (m_strLines.capacity() > MOST_IDLE_BYTES)
    {
        m_strLines.shrink_to_fit();
    }
}

std::vector<std::string_view> CHeaderLines::All() const
{
    std::vector<std::string_view> vecLines;
    for (std::string_view strLeft = m_strLines; !strLeft.empty();)
    {
        const size_t nEnd = strLeft.find('\n');
        vecLines.push_back(strLeft.substr(0, nEnd));
        strLeft.remove_prefix(nEnd + 1);
    }
    return vecLines;
}

std::vector<std::string_view> CHeaderLines::Values(std::string_view strName) const
{
    std::vector<std::string_view> vecValues;
    for (const std::string_view strLine : All())
    {
        if (HasName(strLine, strName))
        {
            vecValues.push_back(Trim(strLine.substr(strName.size() + 1)));
        }
    }
    return vecValues;
}

std::string CHeaderLines::Value(std::string_view strName) const
{
    std::string strJoined;
    for (const std::string_view strValue : Values(strName))
    {
        strJoined.append(strJoined.empty() ? "" : ", ").append(strValue);
    }
    return strJoined;
}

} // namespace WQCurl
