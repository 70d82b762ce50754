/* Checks the things that a transfer depends on, one after the other. */

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <curl/curl.h>
#include <fstream>
#include <glib.h>
#include <memory>
#include <netdb.h>
#include <sys/socket.h>

#include "commands.h"
#include "session.h"
#include "text.h"
#include "url.h"

namespace
{

class CDoctor
{
public:
    explicit CDoctor(const OPTIONS_t& tOptions);
    int Run();

private:
    bool m_IsHttps() const { return m_strUrl.compare(0, 8, "https://") == 0; }
    /** The host is looked up and connected elsewhere. */
    bool m_IsLedElsewhere() const
    {
        return !m_tOptions.tTransfer.strProxy.empty() || !m_tOptions.tTransfer.lstConnectTo.empty();
    }
    void m_Say(const char* pszWhat, const std::string& strFinding) const;
    void m_Blame(const char* pszWhat, const std::string& strFault);
    void m_LookAtVersions() const;
    void m_LookAtAuthorities();
    void m_LookAtClock();
    void m_LookAtProxy() const;
    void m_LookAtNames();
    void m_MakeRequest();
    time_t m_AskForDate() const;

    const OPTIONS_t& m_tOptions;
    const std::string m_strUrl;
    int m_nStatus = 0;
    int m_nHttpStatus = 0;
};

std::string DefaultUrl(const OPTIONS_t& tOptions)
{
    return std::string("https://") +
           (tOptions.tIdentity.nServerType == 0 ? VELTRA_QUERY_HOST : VELTRA_QUERY_HOST_TEST) + "/";
}

std::string TimeText(time_t tTime)
{
    tm tParts = {};
    gmtime_r(&tTime, &tParts);
    return Format("%04d-%02d-%02d %02d:%02d:%02d UTC", tParts.tm_year + 1900, tParts.tm_mon + 1, tParts.tm_mday,
                  tParts.tm_hour, tParts.tm_min, tParts.tm_sec);
}

/** A list of numeric addresses. @param strFault receives why there is none */
std::string LookUp(const std::string& strHost, std::string& strFault)
{
    addrinfo tHints = {};
    tHints.ai_socktype = SOCK_STREAM;
    addrinfo* pFirst = nullptr;
    const int nError = getaddrinfo(strHost.c_str(), nullptr, &tHints, &pFirst);
    if (nError != 0)
    {
        strFault = gai_strerror(nError);
        return "";
    }
    std::string strList;
    for (const addrinfo* pAddress = pFirst; pAddress != nullptr; pAddress = pAddress->ai_next)
    {
        char szAddress[NI_MAXHOST] = "";
        getnameinfo(pAddress->ai_addr, pAddress->ai_addrlen, szAddress, sizeof szAddress, nullptr, 0, NI_NUMERICHOST);
        strList += (strList.empty() ? "" : ", ") + std::string(szAddress);
    }
    freeaddrinfo(pFirst);
    return strList;
}

std::string NameServers()
{
    std::ifstream tFile("/etc/resolv.conf");
    std::string strList;
    for (std::string strLine; std::getline(tFile, strLine);)
    {
        constexpr std::string_view KEY = "nameserver ";
        if (strLine.compare(0, KEY.size(), KEY) == 0)
        {
            strList += (strList.empty() ? "" : ", ") + strLine.substr(KEY.size());
        }
    }
    return strList.empty() ? "none in /etc/resolv.conf" : strList;
}

/** Not curl_getdate(), which may have another size of time on 32-bit systems. @return -1 for a text that is no date */
time_t ParseDate(const char* pszDate)
{
    tm tParts = {};
    return strptime(pszDate, " %a, %d %b %Y %H:%M:%S GMT", &tParts) != nullptr ? timegm(&tParts) : -1;
}

size_t TakeDate(const char* pData, size_t nSize, size_t nCount, void* pDate)
{
    const std::string strLine(pData, nSize * nCount);
    constexpr size_t NAME = 5;
    if (curl_strnequal(strLine.c_str(), "date:", NAME) != 0)
    {
        *static_cast<time_t*>(pDate) = ParseDate(strLine.c_str() + NAME);
    }
    return nSize * nCount;
}

CDoctor::CDoctor(const OPTIONS_t& tOptions)
    : m_tOptions(tOptions), m_strUrl(tOptions.strUrl.empty() ? DefaultUrl(tOptions) : tOptions.strUrl)
{
}

int CDoctor::Run()
{
    m_Say("url", WithoutCredentials(m_strUrl));
    m_LookAtVersions();
    m_LookAtAuthorities();
    m_LookAtProxy();
    m_LookAtNames();
    m_LookAtClock();
    m_MakeRequest();
    if (m_nStatus == 0)
    {
        puts(m_nHttpStatus < FIRST_HTTP_ERROR ? "All is well." : "All is well but what the server answers.");
    }
    return m_nStatus;
}

void CDoctor::m_Say(const char* pszWhat, const std::string& strFinding) const
{
    printf("%-12s %s\n", pszWhat, Printable(strFinding).c_str());
}

void CDoctor::m_Blame(const char* pszWhat, const std::string& strFault)
{
    m_nStatus = PrintError(pszWhat, strFault);
}

void CDoctor::m_LookAtVersions() const
{
    const curl_version_info_data* ptInfo = curl_version_info(CURLVERSION_NOW);
    m_Say("veltra", VELTRA_VERSION);
    m_Say("libcurl", ptInfo->version);
    m_Say("tls", ptInfo->ssl_version != nullptr ? ptInfo->ssl_version : "none: libcurl was built without");
}

void CDoctor::m_LookAtAuthorities()
{
    const curl_version_info_data* ptInfo = curl_version_info(CURLVERSION_NOW);
    const std::string strSystem = ptInfo->cainfo != nullptr ? ptInfo->cainfo : "";
    const std::string strPath = m_tOptions.tTransfer.strCaFile.empty() ? strSystem : m_tOptions.tTransfer.strCaFile;
    if (!m_tOptions.tTransfer.strCaFolder.empty())
    {
        m_Say("authorities", "in " + m_tOptions.tTransfer.strCaFolder);
        return;
    }
    std::ifstream tFile(strPath);
    int nCount = 0;
    for (std::string strLine; std::getline(tFile, strLine);)
    {
        nCount += strLine.compare(0, 27, "-----BEGIN CERTIFICATE-----") == 0 ? 1 : 0;
    }
    m_Say("authorities", std::to_string(nCount) + " in " + strPath);
    if (nCount == 0 && m_IsHttps())
    {
        m_Blame("authorities", "no certificate can be verified: install the system's bundle or name one (--cacert)");
    }
}

/* The server is not verified, because a wrong clock makes that fail: it is shown no path, query or password. */
time_t CDoctor::m_AskForDate() const
{
    const WQCurl::TRANSFER_DEFAULTS_t& tTransfer = m_tOptions.tTransfer;
    const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> pEasy(curl_easy_init(), &curl_easy_cleanup);
    curl_slist* pConnectTo = nullptr;
    for (const std::string& strEntry : tTransfer.lstConnectTo)
    {
        pConnectTo = curl_slist_append(pConnectTo, strEntry.c_str());
    }
    time_t tDate = -1;
    curl_easy_setopt(pEasy.get(), CURLOPT_URL, OriginOf(m_strUrl).c_str());
    curl_easy_setopt(pEasy.get(), CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(pEasy.get(), CURLOPT_NOBODY, 1L);
    curl_easy_setopt(pEasy.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(pEasy.get(), CURLOPT_TIMEOUT, static_cast<long>(tTransfer.nConnectTimeout));
    curl_easy_setopt(pEasy.get(), CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(pEasy.get(), CURLOPT_SSL_VERIFYHOST, 0L);
    curl_easy_setopt(pEasy.get(), CURLOPT_PROXY, tTransfer.strProxy.c_str());
    curl_easy_setopt(pEasy.get(), CURLOPT_NOPROXY, "");
    curl_easy_setopt(pEasy.get(), CURLOPT_CONNECT_TO, pConnectTo);
    curl_easy_setopt(pEasy.get(), CURLOPT_HEADERFUNCTION, &TakeDate);
    curl_easy_setopt(pEasy.get(), CURLOPT_HEADERDATA, &tDate);
    curl_easy_perform(pEasy.get());
    curl_slist_free_all(pConnectTo);
    return tDate;
}

void CDoctor::m_LookAtClock()
{
    constexpr time_t TOLERANCE = 300;
    const time_t tServer = m_AskForDate();
    const time_t tNow = time(nullptr);
    m_Say("clock", TimeText(tNow) +
                       (tServer < 0 ? "" : Format(", the server's %+lld s", static_cast<long long>(tServer - tNow))));
    if (tNow < VELTRA_BUILD_TIME)
    {
        m_Blame("clock", "it is before " + TimeText(VELTRA_BUILD_TIME) + ", when this was built");
    }
    else if (tServer >= 0 && std::abs(tServer - tNow) > TOLERANCE)
    {
        m_Blame("clock", "it differs from the server's, which says " + TimeText(tServer) +
                             ": certificates may seem to be expired, or not to be valid yet");
    }
}

void CDoctor::m_LookAtProxy() const
{
    const std::string& strProxy = m_tOptions.tTransfer.strProxy;
    std::string strFinding = strProxy.empty() ? "none" : WithoutCredentials(strProxy);
    for (const char* pszName : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"})
    {
        strFinding += g_getenv(pszName) != nullptr ? std::string("; the environment's ") + pszName + " is ignored" : "";
    }
    m_Say("proxy", strFinding);
}

void CDoctor::m_LookAtNames()
{
    m_Say("resolver", NameServers());
    const std::string strHost = HostOf(m_strUrl);
    std::string strFault;
    const std::string strAddresses = strHost.empty() ? "" : LookUp(strHost, strFault);
    m_Say("addresses", strAddresses.empty() ? "none of " + strHost : strAddresses);
    if (strHost.empty())
    {
        m_Blame("url", "it names no host");
    }
    else if (strAddresses.empty() && !m_IsLedElsewhere())
    {
        m_Blame("addresses", strHost + ": " + strFault);
    }
}

void CDoctor::m_MakeRequest()
{
    CSession tSession(m_tOptions.bVerbose);
    _HTTP_REQ_INFO_t tReqInfo;
    tReqInfo.eMethod = HTTP_METHOD_GET;
    tReqInfo.strUrl = m_strUrl;
    const bool bAnswered = tSession.Engine().Get(&tReqInfo, true);
    const TRANSFER_END_t tEnd = tSession.TakeEnd();
    const WQCurl::TRANSFER_REPORT_t tReport = tEnd.value_or(WQCurl::TRANSFER_REPORT_t());
    m_nHttpStatus = tReport.nHttpStatus;
    m_Say("request", tReport.nHttpStatus == 0 ? "no answer"
                                              : Format("HTTP %d, %lld bytes from %s", tReport.nHttpStatus,
                                                       tReport.nBytes, tReport.strPeer.c_str()));
    m_Say("seconds", Format("look-up %.3f, connect %.3f, TLS %.3f, first byte %.3f, total %.3f", tReport.dLookUp,
                            tReport.dConnect, tReport.dTls, tReport.dFirstByte, tReport.dTotal));
    if (!bAnswered)
    {
        m_Blame("request", Reason(tEnd));
    }
}

} // namespace

int RunDoctor(const OPTIONS_t& tOptions)
{
    return CDoctor(tOptions).Run();
}
