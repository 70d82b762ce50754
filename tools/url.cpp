#include "url.h"

#include <curl/curl.h>
#include <glib.h>
#include <memory>

namespace
{

/** A parsed URL. */
class CUrlParts
{
public:
    explicit CUrlParts(const std::string& strUrl, unsigned int nFlags = 0)
        : m_bParsed(curl_url_set(m_pUrl.get(), CURLUPART_URL, strUrl.c_str(), CURLU_GUESS_SCHEME | nFlags) == CURLUE_OK)
    {
    }

    bool IsParsed() const { return m_bParsed; }

    void Set(CURLUPart ePart, const char* pszValue) { curl_url_set(m_pUrl.get(), ePart, pszValue, 0); }

    /** @return empty if the part is missing */
    std::string Get(CURLUPart ePart) const
    {
        char* pszValue = nullptr;
        curl_url_get(m_pUrl.get(), ePart, &pszValue, 0);
        const std::unique_ptr<char, decltype(&curl_free)> pszOwned(pszValue, &curl_free);
        return pszValue != nullptr ? pszValue : "";
    }

private:
    const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> m_pUrl{curl_url(), &curl_url_cleanup};
    const bool m_bParsed;
};

} // namespace

std::string WithoutCredentials(const std::string& strUrl)
{
    const size_t nMark = strUrl.find_first_of(":/?#@");
    const bool bScheme = nMark != std::string::npos && strUrl.compare(nMark, 2, ":/") == 0;
    const size_t nBegin = bScheme ? strUrl.find_first_not_of('/', nMark + 1) : 0;
    if (nBegin == std::string::npos)
    {
        return strUrl;
    }
    /* A password in a malformed URL may contain any character. */
    const bool bParsed = CUrlParts(strUrl, CURLU_NON_SUPPORT_SCHEME).IsParsed();
    const size_t nEnd = bParsed ? strUrl.find_first_of("/?#", nBegin) : std::string::npos;
    const size_t nAt = strUrl.rfind('@', nEnd);
    return nAt == std::string::npos || nAt < nBegin ? strUrl : strUrl.substr(0, nBegin) + strUrl.substr(nAt + 1);
}

std::string HostOf(const std::string& strUrl)
{
    const std::string strHost = CUrlParts(strUrl).Get(CURLUPART_HOST);
    if (strHost.size() > 2 && strHost.front() == '[')
    {
        return strHost.substr(1, strHost.size() - 2);
    }
    const std::unique_ptr<char, decltype(&g_free)> pszAscii(g_hostname_to_ascii(strHost.c_str()), &g_free);
    return pszAscii != nullptr ? pszAscii.get() : strHost;
}

std::string OriginOf(const std::string& strUrl)
{
    CUrlParts tUrl(strUrl);
    for (const CURLUPart ePart :
         {CURLUPART_USER, CURLUPART_PASSWORD, CURLUPART_OPTIONS, CURLUPART_PATH, CURLUPART_QUERY, CURLUPART_FRAGMENT})
    {
        tUrl.Set(ePart, nullptr);
    }
    return tUrl.Get(CURLUPART_URL);
}
