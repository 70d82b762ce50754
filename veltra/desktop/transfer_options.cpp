#include "veltra/desktop/transfer_options.h"

namespace WQCurl
{

namespace
{

long IpResolve(IP_FAMILY_e eFamily)
{
    return eFamily == IP_FAMILY_4   ? CURL_IPRESOLVE_V4
           : eFamily == IP_FAMILY_6 ? CURL_IPRESOLVE_V6
                                    : CURL_IPRESOLVE_WHATEVER;
}

/** Sets options of a new libcurl handle, up to the first that it refuses. Zero and null are the defaults already. */
struct OPTION_SETTER_t
{
    template <class VALUE> void operator()(CURLoption eOption, VALUE tValue)
    {
        if (eResult == CURLE_OK && tValue != VALUE{})
        {
            eResult = curl_easy_setopt(pEasy, eOption, tValue);
        }
    }

    CURL* const pEasy;
    CURLcode eResult = CURLE_OK;
};

/** Sets how a transfer reaches its server: protocol, proxy, addresses and name. */
void SetRoute(OPTION_SETTER_t& tSet, const PREPARED_SETTINGS_t& tPrepared)
{
    const TRANSFER_SETTINGS_t& tSettings = tPrepared.tRecord;
    tSet(CURLOPT_PROTOCOLS_STR, "http,https");
    /* HTTP/1.1 sends header names letter for letter, and a broken or silent connection costs one transfer. */
    tSet(CURLOPT_HTTP_VERSION, long{tSettings.bHttp2 ? CURL_HTTP_VERSION_2TLS : CURL_HTTP_VERSION_1_1});
    tSet(CURLOPT_CONNECTTIMEOUT, long{tSettings.nConnectTimeout});
    tSet(CURLOPT_FAILONERROR, tSettings.bFailOnHttpError ? 1L : 0L);
    /* The environment must not decide where requests go: it names neither a proxy nor an exception. */
    const PROXY_t& tProxy = tPrepared.tProxy;
    const bool bProxy = !tProxy.strUrl.empty();
    tSet(CURLOPT_PROXY, bProxy ? tProxy.strUrl.c_str() : nullptr);
    tSet(CURLOPT_PROXYUSERPWD, tProxy.strUserPassword.empty() ? nullptr : tProxy.strUserPassword.c_str());
    tSet(CURLOPT_NOPROXY, bProxy ? tSettings.strNoProxy.c_str() : "*");
    tSet(CURLOPT_SUPPRESS_CONNECT_HEADERS, bProxy ? 1L : 0L);
    tSet(CURLOPT_IPRESOLVE, IpResolve(tSettings.eIpFamily));
    tSet(CURLOPT_CONNECT_TO, tPrepared.pConnectTo.get());
    tSet(CURLOPT_USERAGENT, tSettings.strUserAgent.empty() ? nullptr : tSettings.strUserAgent.c_str());
}

/** Sets the authorities that a server's certificate is verified with, or a proxy's: both follow the same rules. */
void SetAuthorities(OPTION_SETTER_t& tSet, const TRANSFER_SETTINGS_t& tSettings, CURLoption eFile, CURLoption eFolder)
{
    const char* pszBundle = nullptr;
    curl_easy_getinfo(tSet.pEasy, CURLINFO_CAINFO, &pszBundle); // a proxy's default is the same
    if (!tSettings.strCaFolder.empty())
    {
        curl_easy_setopt(tSet.pEasy, eFile, nullptr);
        tSet(eFolder, tSettings.strCaFolder.c_str());
    }
    else if (pszBundle != nullptr || !tSettings.strCaFile.empty())
    {
        /* Trusts no other authorities than the bundle's. Besides, libcurl keeps the bundle in memory for all
         * connections only if there is no folder; otherwise it reads most of a megabyte for each of them. */
        curl_easy_setopt(tSet.pEasy, eFolder, nullptr);
    }
    tSet(eFile, tSettings.strCaFile.empty() ? nullptr : tSettings.strCaFile.c_str());
}

/** Sets the authorities that a transfer trusts, and its own certificate. */
void SetTrust(OPTION_SETTER_t& tSet, const TRANSFER_SETTINGS_t& tSettings)
{
    tSet.eResult = tSet.eResult == CURLE_OK ? SetOwnCertificate(tSet.pEasy, tSettings, true) : tSet.eResult;
    SetAuthorities(tSet, tSettings, CURLOPT_CAINFO, CURLOPT_CAPATH);
    if (!tSettings.strProxy.empty())
    {
        SetAuthorities(tSet, tSettings, CURLOPT_PROXY_CAINFO, CURLOPT_PROXY_CAPATH);
    }
}

} // namespace

CURLcode SetOwnCertificate(CURL* pEasy, const TRANSFER_SETTINGS_t& tSettings, bool bOffer)
{
    if (tSettings.strClientCertificate.empty())
    {
        return CURLE_OK;
    }
    const bool bKey = bOffer && !tSettings.strClientKey.empty();
    const CURLcode eResult =
        curl_easy_setopt(pEasy, CURLOPT_SSLCERT, bOffer ? tSettings.strClientCertificate.c_str() : nullptr);
    return eResult == CURLE_OK
               ? curl_easy_setopt(pEasy, CURLOPT_SSLKEY, bKey ? tSettings.strClientKey.c_str() : nullptr)
               : eResult;
}

CURLcode ApplySettings(CURL* pEasy, const PREPARED_SETTINGS_t& tPrepared)
{
    OPTION_SETTER_t tSet{pEasy};
    SetRoute(tSet, tPrepared);
    SetTrust(tSet, tPrepared.tRecord);
    return tSet.eResult;
}

} // namespace WQCurl
