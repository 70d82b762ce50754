#include "veltra/query/ic_veltra.h"

#define VELTRA_LOG_MODULE "WebInterface"
#include "veltra/log.h"

namespace
{

/**
 * Requests an information document and reads it with fnRead. The request and every failure are logged on behalf of the
 * calling operation, a failure of fnRead as pszParseError.
 */
template <class READ>
bool GetInfo(CHttpRequest& tHttpRequest, const std::string& strServerUrl, const READ& fnRead, const char* pszParseError,
             LOG_PLACE_t tPlace = {})
{
    std::string strXml;
    VELTRA_LOG_INFO_AT(tPlace, "Server AppBinary url = [%s]", strServerUrl.c_str());
    const bool bReceived = tHttpRequest.RequestServerAppBinaryInfo(strServerUrl, strXml);
    VELTRA_LOG_INFO_AT(tPlace, "request AppBinary info is %s", strXml.c_str());
    if (!bReceived || !fnRead(strXml))
    {
        VELTRA_LOG_ERROR_AT(tPlace, "%s", bReceived ? pszParseError : "Request AppBinary Server info Error!");
        return false;
    }
    return true;
}

} // namespace

bool ICVeltra::GetAppBinaryServerUrl(std::vector<std::string>& vecServerUrl)
{
    std::string strXml;
    const bool bReceived = m_tHttpRequest.RequestAppBinaryServerUrl(strXml);
    if (!bReceived || !m_tXmlParser.ParseAppBinaryServerUrlXml(strXml, vecServerUrl))
    {
        VELTRA_LOG_ERROR(bReceived ? "Parse Server Url xml Error!" : "Request Server Url Error!");
        return false;
    }
    return true;
}

bool ICVeltra::GetServerAppBinaryInfo(const std::string& strServerUrl,
                                      std::map<std::string, APPBIN_SERVER_INFO_t>& mapAppBinaryInfo,
                                      const std::vector<std::string>& vecAppBinaryId)
{
    const auto fnRead = [&](const std::string& strXml)
    { return m_tXmlParser.ParseAppBinaryServerInfoXml(strXml, mapAppBinaryInfo, vecAppBinaryId); };
    return GetInfo(m_tHttpRequest, strServerUrl, fnRead, "Parse AppBinary Server info Error!");
}

bool ICVeltra::GetCERTAppBinaryInfo(const std::string& strServerUrl,
                                    std::map<std::string, APPBIN_SERVER_INFO_t>& mapCERTAppBinaryInfo,
                                    std::vector<std::string>& vecCERTAppBinaryId)
{
    const auto fnRead = [&](const std::string& strXml)
    { return m_tXmlParser.ParseCERTAppBinaryServerInfoXml(strXml, mapCERTAppBinaryInfo, vecCERTAppBinaryId); };
    return GetInfo(m_tHttpRequest, strServerUrl, fnRead, "Parse CERT AppBinary Server info Error!");
}

bool ICVeltra::GetDefaultAppBinaryInfo(const std::string& strServerUrl, std::vector<std::string>& vecDefaultAppBinaryId,
                                       std::map<std::string, APPBIN_SERVER_INFO_t>& mapAppBinaryInfo)
{
    const auto fnRead = [&](const std::string& strXml)
    { return m_tXmlParser.ParseDefaultAppBinaryServerInfoXml(strXml, vecDefaultAppBinaryId, mapAppBinaryInfo); };
    return GetInfo(m_tHttpRequest, strServerUrl, fnRead, "Parse Default AppBinary Server info Error!");
}
