#include "veltra/xml/xml_parser.h"

#include <algorithm>
#include <pugixml.hpp>
#include <string_view>

#define VELTRA_LOG_MODULE "CXmlParser"
#include "veltra/log.h"

namespace
{

/** Loads a document on behalf of the calling operation, under whose name a failure is logged. */
bool LoadDocument(const std::string& strXml, pugi::xml_document& tDocument, LOG_PLACE_t tPlace = {})
{
    if (strXml.empty())
    {
        VELTRA_LOG_ERROR_AT(tPlace, "Input Xml info is empty!");
        return false;
    }
    if (!tDocument.load_string(strXml.c_str(), pugi::parse_default))
    {
        VELTRA_LOG_ERROR_AT(tPlace, "doc.load strXml.c_str() error!");
        return false;
    }
    return true;
}

APPBIN_SERVER_INFO_t ReadEntry(const pugi::xml_node& tFile)
{
    APPBIN_SERVER_INFO_t tInfo;
    tInfo.strId = tFile.attribute("id").value();
    tInfo.strName = tFile.attribute("name").value();
    tInfo.strVersion = tFile.attribute("version").value();
    tInfo.strUrl = tFile.attribute("url").value();
    tInfo.strSize = tFile.attribute("size").value();
    tInfo.strSignature = tFile.child("signature").child_value();
    tInfo.strType = tFile.attribute("type").value();
    tInfo.strBoot = tFile.attribute("boot").value();
    return tInfo;
}

/**
 * Walks the entries of an information document. Each that fnWanted accepts is read and offered to the map, which keeps
 * an older record of the same identifier; either way fnTaken then learns of the entry's identifier and URL.
 */
template <class WANTED, class TAKEN>
void ReadEntries(const pugi::xml_document& tDocument, std::map<std::string, APPBIN_SERVER_INFO_t>& mapInfo,
                 const WANTED& fnWanted, const TAKEN& fnTaken)
{
    auto itNext = mapInfo.end(); // documents tend to be in order: then each record goes right behind the last one
    for (pugi::xml_node tFile = tDocument.child("emplist").child("file"); !tFile.empty();
         tFile = tFile.next_sibling("file"))
    {
        if (fnWanted(tFile))
        {
            APPBIN_SERVER_INFO_t tInfo = ReadEntry(tFile);
            itNext = std::next(mapInfo.emplace_hint(itNext, tInfo.strId, std::move(tInfo)));
            fnTaken(tFile.attribute("id").value(), tFile.attribute("url").value());
        }
    }
}

} // namespace

bool CXmlParser::ParseAppBinaryServerUrlXml(const std::string& strXml, std::vector<std::string>& vecServerUrl)
{
    pugi::xml_document tDocument;
    if (!LoadDocument(strXml, tDocument))
    {
        return false;
    }
    const pugi::xml_node tRoot = tDocument.child("rsp");
    if (std::string_view(tRoot.attribute("stat").value()) != "ok")
    {
        VELTRA_LOG_ERROR("AppBinary server xml url stat is not ok!");
        return false;
    }
    const pugi::xml_node tNotice = tRoot.child("rm").child("queryinfo").child("notice");
    for (pugi::xml_node tServer = tNotice.first_child(); !tServer.empty(); tServer = tServer.next_sibling())
    {
        vecServerUrl.emplace_back(tServer.attribute("url").value());
    }
    VELTRA_LOG_INFO("AppBinary sever url number = [%d]!", static_cast<int>(vecServerUrl.size()));
    return true;
}

bool CXmlParser::ParseAppBinaryServerInfoXml(const std::string& strXml,
                                             std::map<std::string, APPBIN_SERVER_INFO_t>& mapAppBinaryInfo,
                                             const std::vector<std::string>& vecAppBinaryId)
{
    pugi::xml_document tDocument;
    if (!LoadDocument(strXml, tDocument))
    {
        return false;
    }
    std::vector<std::string_view> vecWanted(vecAppBinaryId.begin(), vecAppBinaryId.end());
    std::sort(vecWanted.begin(), vecWanted.end());
    const auto fnWanted = [&vecWanted](const pugi::xml_node& tFile)
    {
        const std::string_view strId(tFile.attribute("id").value());
        return std::binary_search(vecWanted.begin(), vecWanted.end(), strId);
    };
    const LOG_PLACE_t tPlace;
    const auto fnTaken = [tPlace](const char* pszId, const char* pszUrl)
    { VELTRA_LOG_INFO_AT(tPlace, "Insert mapAppBinaryInfo a item: ID is [%s], URL is [%s]", pszId, pszUrl); };
    ReadEntries(tDocument, mapAppBinaryInfo, fnWanted, fnTaken);
    return true;
}

bool CXmlParser::ParseCERTAppBinaryServerInfoXml(const std::string& strXml,
                                                 std::map<std::string, APPBIN_SERVER_INFO_t>& mapCERTAppBinaryInfo,
                                                 std::vector<std::string>& vecCERTAppBinaryId)
{
    pugi::xml_document tDocument;
    if (!LoadDocument(strXml, tDocument))
    {
        return false;
    }
    const auto fnWanted = [](const pugi::xml_node& tFile)
    {
        constexpr std::string_view PREFIX = "empCERT";
        return std::string_view(tFile.attribute("id").value()).substr(0, PREFIX.size()) == PREFIX;
    };
    const LOG_PLACE_t tPlace;
    const auto fnTaken = [&vecCERTAppBinaryId, tPlace](const char* pszId, const char* pszUrl)
    {
        vecCERTAppBinaryId.emplace_back(pszId);
        VELTRA_LOG_INFO_AT(tPlace, "Insert mapCERTAppBinaryInfo a item: ID is [%s], URL is [%s]", pszId, pszUrl);
    };
    ReadEntries(tDocument, mapCERTAppBinaryInfo, fnWanted, fnTaken);
    return true;
}

bool CXmlParser::ParseDefaultAppBinaryServerInfoXml(const std::string& strXml,
                                                    std::vector<std::string>& vecDefaultAppBinaryId,
                                                    std::map<std::string, APPBIN_SERVER_INFO_t>& mapAppBinaryInfo)
{
    pugi::xml_document tDocument;
    if (!LoadDocument(strXml, tDocument))
    {
        return false;
    }
    vecDefaultAppBinaryId.clear();
    const auto fnWanted = [](const pugi::xml_node& tFile)
    { return std::string_view(tFile.attribute("boot").value()) == "yes"; };
    const LOG_PLACE_t tPlace;
    const auto fnTaken = [&vecDefaultAppBinaryId, tPlace](const char* pszId, const char* pszUrl)
    {
        vecDefaultAppBinaryId.emplace_back(pszId);
        VELTRA_LOG_INFO_AT(tPlace, "Insert mapAppBinaryInfo a default item: ID is [%s], URL is [%s]", pszId, pszUrl);
    };
    ReadEntries(tDocument, mapAppBinaryInfo, fnWanted, fnTaken);
    return true;
}
