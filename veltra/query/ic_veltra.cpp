#include "veltra/query/ic_veltra.h"

#define VELTRA_LOG_MODULE "WebInterface"
#include "veltra/log.h"

namespace
{

/**
 * Requests an information document and reads it with fnRead, which logs its failure itself. All records are those of
 * the calling operation.
 */
template <class READ>
bool GetInfo(CHttpRequest& tHttpRequest, const std::string& strServerUrl, const READ& fnRead, LOG_PLACE_t tPlace = {})
{
    std::string strXml;
    VELTRA_LOG_INFO_AT(tPlace, "Server AppBinary url = [%s]", strServerUrl.c_str());
    const bool bReceived = tHttpRequest.RequestServerAppBinaryInfo(strServerUrl, strXml);
    VELTRA_LOG_INFO_AT(tPlace, "request AppBinary info is %s", strXml.c_str());
    if (!bReceived)
    {
        VELTRA_LOG_ERROR_AT(tPlace, "Request AppBinary Server info Error!");
        return false;
    }
    return fnRead(strXml, tPlace);
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
    const auto fnRead = [&](const std::string& strXml, const LOG_PLACE_t& tPlace)
    {
        return m_tXmlParser.ParseAppBinaryServerInfoXml(strXml, mapAppBinaryInfo, vecAppBinaryId) ||
               (VELTRA_LOG_ERROR_AT(tPlace, "Parse AppBinary Server info Error!"), false);
    };
    return GetInfo(m_tHttpRequest, strServerUrl, fnRead);
}

bool ICVeltra::GetCERTAppBinaryInfo(const std::string& strServerUrl,
                                    std::map<std::string, APPBIN_SERVER_INFO_t>& mapCERTAppBinaryInfo,
                                    std::vector<std::string>& vecCERTAppBinaryId)
{
    const auto fnRead = [&](const std::string& strXml, const LOG_PLACE_t& tPlace)
    {
        return m_tXmlParser.ParseCERTAppBinaryServerInfoXml(strXml, mapCERTAppBinaryInfo, vecCERTAppBinaryId) ||
               (VELTRA_LOG_ERROR_AT(tPlace, "Parse CERT AppBinary Server info Error!"), false);
    };
    return GetInfo(m_tHttpRequest, strServerUrl, fnRead);
}

bool ICVeltra::GetDefaultAppBinaryInfo(const std::string& strServerUrl, std::vector<std::string>& vecDefaultAppBinaryId,
                                       std::map<std::string, APPBIN_SERVER_INFO_t>& mapAppBinaryInfo)
{
    const auto fnRead = [&](const std::string& strXml, const LOG_PLACE_t& tPlace)
    {
        return m_tXmlParser.ParseDefaultAppBinaryServerInfoXml(strXml, vecDefaultAppBinaryId, mapAppBinaryInfo) ||
               (VELTRA_LOG_ERROR_AT(tPlace, "Parse Default AppBinary Server info Error!"), false);
    };
    return GetInfo(m_tHttpRequest, strServerUrl, fnRead);
}
