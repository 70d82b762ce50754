#include "veltra/desktop/resume.h"

#include <algorithm>
#include <curl/curl.h>

#include "veltra/desktop/attempts.h"
#include "veltra/desktop/header_values.h"

namespace WQCurl
{

namespace
{

constexpr long long UNCHANGED_SECONDS = 60; // a file modified later may change again within the same second

/** Returns whether the answer's body is encoded. A part of an encoded file cannot be joined to one of the plain file.
 */
bool IsEncoded(const CHeaderLines& tHeader)
{
    const std::string strEncoding = tHeader.Value("Content-Encoding");
    return !strEncoding.empty() && curl_strequal(strEncoding.c_str(), "identity") == 0;
}

bool IsStrongTag(const std::string& strTag)
{
    return strTag.size() >= 2 && strTag.front() == '"' && strTag.find('"', 1) == strTag.size() - 1;
}

/** Returns the strong ETag or date that identifies the file's bytes; empty when the server sends neither. */
std::string StrongValidator(const CHeaderLines& tHeader)
{
    std::string strTag = tHeader.Value("ETag");
    if (IsStrongTag(strTag))
    {
        return strTag;
    }
    std::string strModified = tHeader.Value("Last-Modified");
    const std::optional<long long> optModified = Date(strModified);
    const std::optional<long long> optDate = Date(tHeader.Value("Date"));
    const bool bStrong = optModified && optDate && *optDate - *optModified >= UNCHANGED_SECONDS;
    return bStrong && strTag.empty() ? strModified : "";
}

FAULT_t Refuse(const char* pszReason)
{
    return {CURLE_RANGE_ERROR, pszReason};
}

} // namespace

void CResume::Begin(bool bAllowed)
{
    *this = CResume();
    m_bAllowed = bAllowed;
}

FAULT_t CResume::Check(const CHeaderLines& tHeader, long lStatus)
{
    if (!m_bAllowed)
    {
        return {};
    }
    if (IsTemporaryStatus(lStatus))
    {
        return {CURLE_HTTP_RETURNED_ERROR, "The server reports a temporary failure"};
    }
    return m_nBefore == 0 ? CheckWhole(tHeader, lStatus) : CheckRest(tHeader, lStatus);
}

FAULT_t CResume::CheckWhole(const CHeaderLines& tHeader, long lStatus)
{
    if (lStatus == 206)
    {
        return Refuse("The server has sent a part of the file unasked");
    }
    const bool bFile = lStatus == 200;
    m_strValidator = bFile && !IsEncoded(tHeader) ? StrongValidator(tHeader) : "";
    m_nTotal = bFile ? Number(tHeader.Value("Content-Length")).value_or(0) : 0;
    return {};
}

FAULT_t CResume::CheckRest(const CHeaderLines& tHeader, long lStatus)
{
    if (lStatus != 206)
    {
        return Refuse("The server does not send the rest of the file, or the file has changed");
    }
    /* Some servers ignore If-Range and send a part of whatever the file is now. */
    if (IsEncoded(tHeader) || !HasValidator(tHeader))
    {
        return Refuse("The server has sent a part of another version of the file");
    }
    const std::string strRange = tHeader.Value("Content-Range");
    if (m_nTotal == 0)
    {
        m_nTotal = Number(strRange.substr(strRange.find('/') + 1)).value_or(0);
    }
    const std::string strRest =
        "bytes " + std::to_string(m_nReceived) + "-" + std::to_string(m_nTotal - 1) + "/" + std::to_string(m_nTotal);
    const bool bRest = m_nTotal > m_nReceived && strRange == strRest;
    return bRest ? FAULT_t() : Refuse("The server has sent another part of the file than the rest");
}

bool CResume::HasValidator(const CHeaderLines& tHeader) const
{
    if (IsStrongTag(m_strValidator))
    {
        return tHeader.Value("ETag") == m_strValidator; // a 206 must carry it
    }
    const std::string strModified = tHeader.Value("Last-Modified");
    return strModified.empty() || strModified == m_strValidator;
}

bool CResume::CanGoOn() const
{
    const bool bTooMuch = m_nTotal > 0 && m_nReceived > m_nTotal;
    return m_nReceived == 0 || (!m_strValidator.empty() && !bTooMuch);
}

} // namespace WQCurl
