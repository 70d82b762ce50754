/* Prints and checks what a transfer depends on. */

#include <array>
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
#include "messages.h"
#include "options.h"
#include "session.h"
#include "text.h"
#include "url.h"

namespace
{

std::string DefaultUrl(const OPTIONS_t& tOptions)
{
    return std::string("https://") +
           (tOptions.tIdentity.nServerType == 0 ? VELTRA_QUERY_HOST : VELTRA_QUERY_HOST_TEST) + "/";
}

void PrintFinding(const char* pszSubject, const std::string& strFinding)
{
    printf("%-12s %s\n", pszSubject, Printable(strFinding).c_str());
}

std::string TimeText(time_t tTime)
{
    tm tParts = {};
    std::array<char, 64> arrText{};
    gmtime_r(&tTime, &tParts);
    static_cast<void>(strftime(arrText.data(), arrText.size(), "%Y-%m-%d %H:%M:%S UTC", &tParts));
    return arrText.data();
}

/** @param nError receives the result of getaddrinfo() @return the numeric addresses of a host */
std::string LookUp(const std::string& strHost, int& nError)
{
    addrinfo tHints = {};
    tHints.ai_flags = AI_IDN;
    tHints.ai_socktype = SOCK_STREAM;
    addrinfo* pFirst = nullptr;
    nError = getaddrinfo(strHost.c_str(), nullptr, &tHints, &pFirst);
    std::string strList;
    for (const addrinfo* pAddress = pFirst; nError == 0 && pAddress != nullptr; pAddress = pAddress->ai_next)
    {
        char szAddress[NI_MAXHOST] = "";
        getnameinfo(pAddress->ai_addr, pAddress->ai_addrlen, szAddress, sizeof szAddress, nullptr, 0, NI_NUMERICHOST);
        strList += (strList.empty() ? "" : ", ") + std::string(szAddress);
    }
    if (nError == 0)
    {
        freeaddrinfo(pFirst);
    }
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

/** Replaces curl_getdate(), whose time_t may differ in size on 32-bit systems. @return -1 if the text is no date */
time_t ParseDate(const char* pszDate)
{
    tm tParts = {};
    return strptime(pszDate, " %a, %d %b %Y %H:%M:%S GMT", &tParts) != nullptr ? timegm(&tParts) : -1;
}

/* Each check prints its findings, and returns the exit status. */

int CheckAuthorities(const WQCurl::TRANSFER_SETTINGS_t& tTransfer, const std::string& strUrl)
{
    if (!tTransfer.strCaFolder.empty())
    {
        PrintFinding("authorities", "in " + tTransfer.strCaFolder);
        return 0;
    }
    const char* pszSystem = curl_version_info(CURLVERSION_NOW)->cainfo;
    const std::string strPath = tTransfer.strCaFile.empty() && pszSystem != nullptr ? pszSystem : tTransfer.strCaFile;
    std::ifstream tFile(strPath);
    int nCount = 0;
    for (std::string strLine; std::getline(tFile, strLine);)
    {
        nCount += strLine.compare(0, 27, "-----BEGIN CERTIFICATE-----") == 0 ? 1 : 0;
    }
    PrintFinding("authorities", std::to_string(nCount) + " in " + strPath);
    return nCount > 0 || strUrl.compare(0, 8, "https://") != 0
               ? 0
               : PrintError("authorities",
                            "no certificate can be verified: install the system's bundle or name one (--cacert)");
}

void PrintProxy(const std::string& strProxy)
{
    std::string strFinding = strProxy.empty() ? "none" : WithoutCredentials(strProxy);
    for (const char* pszName : {"http_proxy", "https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"})
    {
        strFinding += g_getenv(pszName) != nullptr ? std::string("; the environment's ") + pszName + " is ignored" : "";
    }
    PrintFinding("proxy", strFinding);
}

int CheckNames(const WQCurl::TRANSFER_SETTINGS_t& tTransfer, const std::string& strUrl)
{
    PrintFinding("resolver", NameServers());
    const std::string strHost = HostOf(strUrl);
    if (strHost.empty())
    {
        return PrintError("url", "it names no host");
    }
    int nError = 0;
    const std::string strAddresses = LookUp(strHost, nError);
    PrintFinding("addresses", nError == 0 ? strAddresses : "none of " + strHost);
    return nError == 0 || !tTransfer.strProxy.empty() || !tTransfer.lstConnectTo.empty()
               ? 0
               : PrintError("addresses", strHost + ": " + gai_strerror(nError));
}

/*
 * A wrong clock makes the verification of the server fail, so this request does without. It must therefore not send the
 * path, the query or a password.
 */
time_t GetServerDate(const WQCurl::TRANSFER_SETTINGS_t& tTransfer, const std::string& strUrl)
{
    const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> pEasy(curl_easy_init(), &curl_easy_cleanup);
    curl_slist* pConnectTo = nullptr;
    for (const std::string& strEntry : tTransfer.lstConnectTo)
    {
        pConnectTo = curl_slist_append(pConnectTo, strEntry.c_str());
    }
    curl_easy_setopt(pEasy.get(), CURLOPT_URL, OriginOf(strUrl).c_str());
    curl_easy_setopt(pEasy.get(), CURLOPT_USERAGENT, tTransfer.strUserAgent.c_str());
    curl_easy_setopt(pEasy.get(), CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(pEasy.get(), CURLOPT_NOBODY, 1L);
    curl_easy_setopt(pEasy.get(), CURLOPT_TIMEOUT, static_cast<long>(tTransfer.nConnectTimeout));
    curl_easy_setopt(pEasy.get(), CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(pEasy.get(), CURLOPT_SSL_VERIFYHOST, 0L);
    curl_easy_setopt(pEasy.get(), CURLOPT_PROXY, tTransfer.strProxy.c_str());
    curl_easy_setopt(pEasy.get(), CURLOPT_NOPROXY, "");
    curl_easy_setopt(pEasy.get(), CURLOPT_CONNECT_TO, pConnectTo);
    curl_easy_perform(pEasy.get());
    curl_slist_free_all(pConnectTo);
    curl_header* ptDate = nullptr;
    const bool bDate = curl_easy_header(pEasy.get(), "Date", 0, CURLH_HEADER, -1, &ptDate) == CURLHE_OK;
    return bDate ? ParseDate(ptDate->value) : -1;
}

int CheckClock(const WQCurl::TRANSFER_SETTINGS_t& tTransfer, const std::string& strUrl)
{
    constexpr time_t TOLERANCE = 300;
    const time_t tServer = GetServerDate(tTransfer, strUrl);
    const time_t tNow = time(nullptr);
    const long long nAhead = tServer < 0 ? 0 : static_cast<long long>(tServer - tNow);
    PrintFinding("clock", TimeText(tNow) + (tServer < 0 ? "" : Format(", the server's %+lld s", nAhead)));
    if (tNow < VELTRA_BUILD_TIME)
    {
        return PrintError("clock", "it is before " + TimeText(VELTRA_BUILD_TIME) + ", when this was built");
    }
    return std::abs(nAhead) <= TOLERANCE
               ? 0
               : PrintError("clock", "it differs from the server's, which says " + TimeText(tServer) +
                                         ": certificates may seem to be expired, or not to be valid yet");
}

int CheckRequest(CSession& tSession, const std::string& strUrl)
{
    _HTTP_REQ_INFO_t tReqInfo;
    tReqInfo.eMethod = HTTP_METHOD_GET;
    tReqInfo.strUrl = strUrl;
    const bool bAnswered = tSession.Engine().Get(&tReqInfo, true);
    const WQCurl::TRANSFER_REPORT_t tReport = CurrentReport();
    PrintFinding("request", tReport.nHttpStatus == 0 ? "no answer"
                                                     : Format("HTTP %d, %lld bytes from %s", tReport.nHttpStatus,
                                                              tReport.nBytes, tReport.strPeer.c_str()));
    PrintFinding("seconds", Format("look-up %.3f, connect %.3f, TLS %.3f, first byte %.3f, total %.3f", tReport.dLookUp,
                                   tReport.dConnect, tReport.dTls, tReport.dFirstByte, tReport.dTotal));
    return bAnswered ? 0 : PrintError("request", Reason(tReport));
}

int RunDoctor(const OPTIONS_t& tOptions, const std::string& strUrl)
{
    CSession tSession(tOptions, false);
    const curl_version_info_data* ptInfo = curl_version_info(CURLVERSION_NOW);
    PrintFinding("url", WithoutCredentials(strUrl));
    PrintFinding("veltra", VELTRA_VERSION);
    PrintFinding("libcurl", ptInfo->version);
    PrintFinding("tls", ptInfo->ssl_version != nullptr ? ptInfo->ssl_version : "none: libcurl was built without");
    int nStatus = CheckAuthorities(tSession.Settings(), strUrl);
    PrintProxy(tOptions.tTransfer.strProxy);
    nStatus |= CheckNames(tOptions.tTransfer, strUrl);
    nStatus |= CheckClock(tOptions.tTransfer, strUrl);
    nStatus |= CheckRequest(tSession, strUrl);
    if (nStatus == 0)
    {
        puts("No fault found on the way to the server.");
    }
    return nStatus;
}

} // namespace

void AddDoctorCommand(const ADD_COMMAND_t& fnAdd)
{
    const auto ptUrl = std::make_shared<std::string>();
    fnAdd("doctor", "Find out why transfers fail",
          [ptUrl](const OPTIONS_t& tOptions)
          { return RunDoctor(tOptions, ptUrl->empty() ? DefaultUrl(tOptions) : *ptUrl); })
        .add_option("URL", *ptUrl, "The URL to try; by default the query service")
        ->check(NotEmpty());
}
