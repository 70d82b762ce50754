#include "veltra/query/ic_veltra.h"

#define VELTRA_LOG_MODULE "WebInterface"
#include "veltra/log.h"

namespace
{

/** What the three information operations share: the request, logged on behalf of the calling operation. */
bool RequestInfo(CHttpRequest& tHttpRequest, const std::string& strServerUrl, std::string& strInfo,
                 LOG_PLACE_t tPlace = {})
{
    VELTRA_LOG_INFO_AT(tPlace, "Server AppBinary url = [%s]", strServerUrl.c_str());
    const bool bResult = tHttpRequest.RequestServerAppBinaryInfo(strServerUrl, strInfo);
    VELTRA_LOG_INFO_AT(tPlace, "request AppBinary info is %s", strInfo.c_str());
    if (!bResult)
    {
        VELTRA_LOG_ERROR_AT(tPlace, "Request AppBinary Server info Error!");
    }
    return bResult;
}

} // namespace

bool ICVeltra::GetAppBinaryServerUrl(std::vector<std::string>& vecServerUrl)
{
    std::string strXml;
    if (!m_tHttpRequest.RequestAppBinaryServerUrl(strXml))
    {
        VELTRA_LOG_ERROR("Request Server Url Error!");
        return false;
    }
    if (!m_tXmlParser.ParseAppBinaryServerUrlXml(strXml, vecServerUrl))
    {
        VELTRA_LOG_ERROR("Parse Server Url xml Error!");
        return false;
    }
    return true;
}

bool ICVeltra::GetServerAppBinaryInfo(const std::string& strServerUrl,
                                      std::map<std::string, APPBIN_SERVER_INFO_t>& mapAppBinaryInfo,
                                      const std::vector<std::string>& vecAppBinaryId)
{
    std::string strXml;
    if (!RequestInfo(m_tHttpRequest, strServerUrl, strXml))
    {
        return false;
    }
    if (!m_tXmlParser.ParseAppBinaryServerInfoXml(strXml, mapAppBinaryInfo, vecAppBinaryId))
    {
        VELTRA_LOG_ERROR("Parse AppBinary Server info Error!");
        return false;
    }
    return true;
}

bool ICVeltra::GetCERTAppBinaryInfo(const std::string& strServerUrl,
                                    std::map<std::string, APPBIN_SERVER_INFO_t>& mapCERTAppBinaryInfo,
                                    std::vector<std::string>& vecCERTAppBinaryId)
{
    std::string strXml;
    if (!RequestInfo(m_tHttpRequest, strServerUrl, strXml))
    {
        return false;
    }
    if (!m_tXmlParser.ParseCERTAppBinaryServerInfoXml(strXml, mapCERTAppBinaryInfo, vecCERTAppBinaryId))
    {
        VELTRA_LOG_ERROR("Parse CERT AppBinary Server info Error!");
        return false;
    }
    return true;
}

bool ICVeltra::GetDefaultAppBinaryInfo(const std::string& strServerUrl, std::vector<std::string>& vecDefaultAppBinaryId,
                                       std::map<std::string, APPBIN_SERVER_INFO_t>& mapAppBinaryInfo)
{
    std::string strXml;
    if (!RequestInfo(m_tHttpRequest, strServerUrl, strXml))
    {
        return false;
    }
    if (!m_tXmlParser.ParseDefaultAppBinaryServerInfoXml(strXml, vecDefaultAppBinaryId, mapAppBinaryInfo))
    {
        VELTRA_LOG_ERROR("Parse Default AppBinary Server info Error!");
        return false;
    }
    return true;
}
