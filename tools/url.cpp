#include "url.h"

#include <curl/curl.h>
#include <memory>

namespace
{

typedef std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> URL_PTR_t;

/** @return null for a malformed URL */
URL_PTR_t Parse(const std::string& strUrl, unsigned int nFlags = 0)
{
    URL_PTR_t pUrl(curl_url(), &curl_url_cleanup);
    const bool bGood =
        curl_url_set(pUrl.get(), CURLUPART_URL, strUrl.c_str(), CURLU_GUESS_SCHEME | nFlags) == CURLUE_OK;
    return bGood ? std::move(pUrl) : URL_PTR_t(nullptr, &curl_url_cleanup);
}

/** @return a part of a parsed URL; empty if it is missing */
std::string Part(const URL_PTR_t& pUrl, CURLUPart ePart)
{
    char* pszPart = nullptr;
    curl_url_get(pUrl.get(), ePart, &pszPart, 0);
    const std::unique_ptr<char, decltype(&curl_free)> pszOwned(pszPart, &curl_free);
    return pszPart != nullptr ? pszPart : "";
}

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
    const bool bParsed = Parse(strUrl, CURLU_NON_SUPPORT_SCHEME) != nullptr;
    const size_t nEnd = bParsed ? strUrl.find_first_of("/?#", nBegin) : std::string::npos;
    const size_t nAt = strUrl.rfind('@', nEnd);
    return nAt == std::string::npos || nAt < nBegin ? strUrl : strUrl.substr(0, nBegin) + strUrl.substr(nAt + 1);
}

std::string HostOf(const std::string& strUrl)
{
    const std::string strHost = Part(Parse(strUrl), CURLUPART_HOST);
    return strHost.empty() || strHost.front() != '[' ? strHost : strHost.substr(1, strHost.size() - 2);
}

std::string OriginOf(const std::string& strUrl)
{
    const URL_PTR_t pUrl = Parse(strUrl);
    for (const CURLUPart ePart :
         {CURLUPART_USER, CURLUPART_PASSWORD, CURLUPART_OPTIONS, CURLUPART_PATH, CURLUPART_QUERY, CURLUPART_FRAGMENT})
    {
        curl_url_set(pUrl.get(), ePart, nullptr, 0);
    }
    return Part(pUrl, CURLUPART_URL);
}
