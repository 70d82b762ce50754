#include "veltra/scripted/scripted_url.h"

#include <curl/curl.h>
#include <memory>

namespace
{

constexpr unsigned AS_A_TRANSFER = CURLU_GUESS_SCHEME | CURLU_NON_SUPPORT_SCHEME | CURLU_PATH_AS_IS;

struct URL_DELETER_t
{
    void operator()(CURLU* pUrl) const { curl_url_cleanup(pUrl); }
};

typedef std::unique_ptr<CURLU, URL_DELETER_t> URL_PTR_t;

bool Set(const URL_PTR_t& pUrl, const std::string& strUrl, unsigned nFlags)
{
    return curl_url_set(pUrl.get(), CURLUPART_URL, strUrl.c_str(), nFlags) == CURLUE_OK;
}

std::string Part(const URL_PTR_t& pUrl, CURLUPart ePart)
{
    char* pszPart = nullptr;
    if (curl_url_get(pUrl.get(), ePart, &pszPart, CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK)
    {
        return "";
    }
    const std::unique_ptr<char, void (*)(void*)> ptFree(pszPart, &curl_free);
    return pszPart;
}

} // namespace

SCRIPTED_URL_t::SCRIPTED_URL_t(const std::string& strGiven) : strUrl(strGiven), strKey(strGiven)
{
    const URL_PTR_t pUrl(curl_url());
    if (Set(pUrl, strGiven, AS_A_TRANSFER))
    {
        strUrl = Part(pUrl, CURLUPART_URL);
        strScheme = Part(pUrl, CURLUPART_SCHEME);
        strHost = Part(pUrl, CURLUPART_HOST);
        curl_url_set(pUrl.get(), CURLUPART_FRAGMENT, nullptr, 0);
        strKey = Part(pUrl, CURLUPART_URL);
    }
}

std::string ResolveReference(const std::string& strUrl, const std::string& strReference)
{
    const URL_PTR_t pUrl(curl_url());
    const unsigned nFlags = AS_A_TRANSFER | CURLU_URLENCODE;
    return Set(pUrl, strUrl, nFlags) && Set(pUrl, strReference, nFlags) ? Part(pUrl, CURLUPART_URL) : "";
}
