#include "veltra/query/http_request.h"

#include "veltra/engine/web_connector.h"

#define VELTRA_LOG_MODULE "CHttpRequest"
#include "veltra/log.h"

namespace
{

constexpr char QUERY_URL[] = "https://" VELTRA_QUERY_HOST "/openapi/device/auth/query";
constexpr char QUERY_URL_TEST[] = "https://" VELTRA_QUERY_HOST_TEST "/openapi/device/auth/query";

} // namespace

CHttpRequest::CHttpRequest() : m_pAuth(CSingleton<CAIAuth>::GetInstance()) {}

bool CHttpRequest::RequestAppBinaryServerUrl(std::string& strServerUrlInfo)
{
    CWebConnector* pConnector = CSingleton<CWebConnector>::GetInstance();
    const std::string strChipset = m_pAuth->GetChipset();
    if (strChipset.empty())
    {
        VELTRA_LOG_ERROR("pAuth->GetChipset() is \"\"");
        return false;
    }
    VELTRA_LOG_INFO("strChipSet is %s", strChipset.c_str());

    /* The query service expects these names, this order and no blank after the colons. */
    const std::string strDUID = "DUID:" + m_pAuth->GetDUID();
    const std::string strMAC = "MACAddr:" + m_pAuth->GetMAC();
    const std::string strCategory = "Category:EMP";
    const std::string strCountryCode = "CountryCode:" + m_pAuth->GetCountryCode();
    const std::string strModelId = "ModelId:" + m_pAuth->GetModelID();
    const std::string strParam = "Param:" + strChipset + ",5.100";

    _HTTP_REQ_INFO_t tReqInfo{HTTP_METHOD_GET,
                              m_pAuth->GetiOstralSerType() != 0 ? QUERY_URL_TEST : QUERY_URL,
                              {strDUID, strMAC, strCategory, strCountryCode, strModelId, strParam}};
    VELTRA_LOG_INFO("RequestHeaderList is: \n%s, \n%s, \n%s, \n%s, \n%s, \n%s, \nurl IS %s", strDUID.c_str(),
                    strMAC.c_str(), strCategory.c_str(), strCountryCode.c_str(), strModelId.c_str(), strParam.c_str(),
                    tReqInfo.strUrl.c_str());
    if (pConnector->Get(&tReqInfo, true) && !tReqInfo.strResponse.empty())
    {
        strServerUrlInfo = tReqInfo.strResponse;
        VELTRA_LOG_INFO(" Server Url info: %s", strServerUrlInfo.c_str());
        return true;
    }
    VELTRA_LOG_ERROR("Request Server Url xml error!!!");
    return false;
}

bool CHttpRequest::RequestServerAppBinaryInfo(const std::string& strServerUrl, std::string& strAppBinaryInfo)
{
    if (strServerUrl.empty())
    {
        VELTRA_LOG_ERROR("strServerUrl is empty.");
        return false;
    }
    CWebConnector* pConnector = CSingleton<CWebConnector>::GetInstance();
    _HTTP_REQ_INFO_t tReqInfo{HTTP_METHOD_GET, strServerUrl};
    VELTRA_LOG_INFO("appbinary info url is %s", strServerUrl.c_str());
    if (pConnector->Get(&tReqInfo, true))
    {
        strAppBinaryInfo = tReqInfo.strResponse;
        return true;
    }
    VELTRA_LOG_INFO("Get appbinary info error from  server url [%s]", strServerUrl.c_str());
    return false;
}
