#include "veltra/desktop/redirects.h"

#include <algorithm>
#include <memory>

namespace WQCurl
{

namespace
{

struct URL_DELETER_t
{
    void operator()(CURLU* pUrl) const { curl_url_cleanup(pUrl); }
};

/** A parsed URL. */
class CUrl
{
public:
    /** Parses a URL. After the first, a relative one is resolved. @return false if it is none */
    bool Set(const std::string& strUrl)
    {
        /* As libcurl reads a Location: servers send spaces and other bytes that a URL must not have. */
        constexpr unsigned TOLERANT =
            CURLU_URLENCODE | CURLU_ALLOW_SPACE | CURLU_GUESS_SCHEME | CURLU_NON_SUPPORT_SCHEME;
        return m_pUrl != nullptr && curl_url_set(m_pUrl.get(), CURLUPART_URL, strUrl.c_str(), TOLERANT) == CURLUE_OK;
    }

    /** Returns a part; empty if there is none. */
    std::string Get(CURLUPart ePart) const
    {
        const unsigned nFlags = ePart == CURLUPART_PORT ? CURLU_DEFAULT_PORT : CURLU_NON_SUPPORT_SCHEME;
        char* pszPart = nullptr;
        std::string strPart;
        if (curl_url_get(m_pUrl.get(), ePart, &pszPart, nFlags) == CURLUE_OK)
        {
            const std::unique_ptr<char, void (*)(void*)> ptFree(pszPart, &curl_free);
            strPart = pszPart;
        }
        return strPart;
    }

    /** Replaces a part, which is percent-encoded; removes it if the text is empty. */
    void Replace(CURLUPart ePart, const std::string& strPart)
    {
        curl_url_set(m_pUrl.get(), ePart, strPart.empty() ? nullptr : strPart.c_str(), 0);
    }

    bool HasSameServer(const CUrl& tOther) const
    {
        return Get(CURLUPART_SCHEME) == tOther.Get(CURLUPART_SCHEME) &&
               Get(CURLUPART_PORT) == tOther.Get(CURLUPART_PORT) &&
               curl_strequal(Get(CURLUPART_HOST).c_str(), tOther.Get(CURLUPART_HOST).c_str()) != 0;
    }

private:
    std::unique_ptr<CURLU, URL_DELETER_t> m_pUrl{curl_url()};
};

bool HasControl(const std::string& strText)
{
    return std::any_of(strText.begin(), strText.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; });
}

std::string CurrentUrl(CURL* pEasy)
{
    const char* pszUrl = nullptr;
    curl_easy_getinfo(pEasy, CURLINFO_EFFECTIVE_URL, &pszUrl);
    return pszUrl != nullptr ? pszUrl : "";
}

} // namespace

void CRedirects::Begin(int nMost)
{
    m_nMost = nMost;
    m_nFollowed = 0;
    m_bAtFirstServer = true;
    m_strFirstUrl.clear();
}

bool CRedirects::IsRedirect(long lStatus) const
{
    return m_nMost > 0 && (lStatus == 301 || lStatus == 302 || lStatus == 303 || lStatus == 307 || lStatus == 308);
}

FAULT_t CRedirects::Take(CURL* pEasy, const CHeaderLines& tHeader)
{
    const std::string strCurrentUrl = CurrentUrl(pEasy);
    m_strFirstUrl = m_strFirstUrl.empty() ? strCurrentUrl : m_strFirstUrl;
    const std::string strLocation = tHeader.Value("Location");
    CUrl tFirst;
    CUrl tCurrent;
    CUrl tNext;
    m_strNextUrl.clear();
    if (tHeader.Values("Location").size() != 1 || strLocation.empty() || HasControl(strLocation) ||
        !tFirst.Set(m_strFirstUrl) || !tCurrent.Set(strCurrentUrl) || !tNext.Set(strCurrentUrl) ||
        !tNext.Set(strLocation))
    {
        return {CURLE_HTTP_RETURNED_ERROR, "The server redirects without a usable URL"};
    }
    m_bNextAtFirstServer = tNext.HasSameServer(tFirst);
    for (const CURLUPart ePart : {CURLUPART_USER, CURLUPART_PASSWORD})
    {
        tNext.Replace(ePart, m_bNextAtFirstServer ? tFirst.Get(ePart) : "");
    }
    tNext.Replace(CURLUPART_FRAGMENT, "");
    m_strNextUrl = tNext.Get(CURLUPART_URL);
    const std::string strScheme = tNext.Get(CURLUPART_SCHEME);
    if (strScheme != "https" && strScheme != "http")
    {
        return {CURLE_UNSUPPORTED_PROTOCOL, "The server redirects to another scheme than http and https"};
    }
    if (strScheme == "http" && tCurrent.Get(CURLUPART_SCHEME) == "https")
    {
        return {CURLE_UNSUPPORTED_PROTOCOL, "The server redirects from https to http"};
    }
    if (m_nFollowed >= m_nMost)
    {
        return {CURLE_TOO_MANY_REDIRECTS, "The server redirects more often than the settings allow"};
    }
    return {};
}

CURLcode CRedirects::Follow(CURL* pEasy)
{
    ++m_nFollowed;
    m_bAtFirstServer = m_bNextAtFirstServer;
    return curl_easy_setopt(pEasy, CURLOPT_URL, m_strNextUrl.c_str());
}

CURLcode CRedirects::Restart(CURL* pEasy)
{
    m_nFollowed = 0;
    m_bAtFirstServer = true;
    return m_strFirstUrl.empty() ? CURLE_OK : curl_easy_setopt(pEasy, CURLOPT_URL, m_strFirstUrl.c_str());
}

} // namespace WQCurl
