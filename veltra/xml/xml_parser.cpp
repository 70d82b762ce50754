#include "veltra/xml/xml_parser.h"

#include <algorithm>
#include <pugixml.hpp>
#include <string_view>

#define VELTRA_LOG_MODULE "CXmlParser"
#include "veltra/log.h"

namespace
{

/** Loads a document. A failure is logged on behalf of the calling operation. */
bool LoadDocument(const std::string& strXml, pugi::xml_document& tDocument, LOG_PLACE_t tPlace = {})
{
    if (!tDocument.load_string(strXml.c_str(), pugi::parse_default))
    {
        VELTRA_LOG_ERROR_AT(tPlace, strXml.empty() ? "Input Xml info is empty!" : "doc.load strXml.c_str() error!");
        return false;
    }
    return true;
}

std::string_view Attribute(const pugi::xml_node& tNode, const char* pszName)
{
    return tNode.attribute(pszName).value();
}

APPBIN_SERVER_INFO_t ReadEntry(const pugi::xml_node& tFile)
{
    const auto fnText = [&tFile](const char* pszName) { return tFile.attribute(pszName).value(); };
    const char* pszSignature = tFile.child("signature").child_value();
    return {fnText("id"),   fnText("name"), fnText("version"), fnText("url"),
            fnText("size"), pszSignature,   fnText("type"),    fnText("boot")};
}

/** The containers of a reader's caller. */
struct OUTPUT_t
{
    std::map<std::string, APPBIN_SERVER_INFO_t>& mapInfo; /**< an identifier in it keeps its record */
    std::vector<std::string>* pvecId = nullptr;           /**< receives the identifiers in document order */
    bool bEmptyList = false;                              /**< pvecId is emptied once the document has been loaded */
};

/**
 * Loads an information document and adds each entry that fnWanted accepts to the output. Each is logged on behalf of
 * the calling operation, with pszInserted as the format and the entry's identifier and URL as its arguments.
 */
template <class WANTED>
bool ReadEntries(const std::string& strXml, const OUTPUT_t& tOutput, const WANTED& fnWanted, const char* pszInserted,
                 LOG_PLACE_t tPlace = {})
{
    pugi::xml_document tDocument;
    if (!LoadDocument(strXml, tDocument, tPlace))
    {
        return false;
    }
    if (tOutput.bEmptyList)
    {
        tOutput.pvecId->clear();
    }
    auto itNext = tOutput.mapInfo.end(); // most documents are sorted: each record goes right behind the one before
    for (pugi::xml_node tFile = tDocument.child("emplist").child("file"); !tFile.empty();
         tFile = tFile.next_sibling("file"))
    {
        if (fnWanted(tFile))
        {
            APPBIN_SERVER_INFO_t tInfo = ReadEntry(tFile);
            itNext = std::next(tOutput.mapInfo.emplace_hint(itNext, tInfo.strId, std::move(tInfo)));
            const char* pszId = tFile.attribute("id").value();
            if (tOutput.pvecId != nullptr)
            {
                tOutput.pvecId->emplace_back(pszId);
            }
            VELTRA_LOG_INFO_AT(tPlace, pszInserted, pszId, tFile.attribute("url").value());
        }
    }
    return true;
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
    if (Attribute(tRoot, "stat") != "ok")
    {
        VELTRA_LOG_ERROR("AppBinary server xml url stat is not ok!");
        return false;
    }
    const pugi::xml_node tNotice = tRoot.child("rm").child("queryinfo").child("notice");
    for (pugi::xml_node tServer = tNotice.first_child(); !tServer.empty(); tServer = tServer.next_sibling())
    {
        vecServerUrl.emplace_back(Attribute(tServer, "url"));
    }
    VELTRA_LOG_INFO("AppBinary sever url number = [%d]!", static_cast<int>(vecServerUrl.size()));
    return true;
}

bool CXmlParser::ParseAppBinaryServerInfoXml(const std::string& strXml,
                                             std::map<std::string, APPBIN_SERVER_INFO_t>& mapAppBinaryInfo,
                                             const std::vector<std::string>& vecAppBinaryId)
{
    std::vector<std::string_view> vecWanted(vecAppBinaryId.begin(), vecAppBinaryId.end());
    std::make_heap(vecWanted.begin(), vecWanted.end());
    std::sort_heap(vecWanted.begin(), vecWanted.end()); // std::sort() would take three times as much code
    const auto fnWanted = [&vecWanted](const pugi::xml_node& tFile)
    { return std::binary_search(vecWanted.begin(), vecWanted.end(), Attribute(tFile, "id")); };
    return ReadEntries(strXml, {mapAppBinaryInfo}, fnWanted, "Insert mapAppBinaryInfo a item: ID is [%s], URL is [%s]");
}

bool CXmlParser::ParseCERTAppBinaryServerInfoXml(const std::string& strXml,
                                                 std::map<std::string, APPBIN_SERVER_INFO_t>& mapCERTAppBinaryInfo,
                                                 std::vector<std::string>& vecCERTAppBinaryId)
{
    constexpr std::string_view PREFIX = "empCERT";
    const auto fnWanted = [PREFIX](const pugi::xml_node& tFile)
    { return Attribute(tFile, "id").substr(0, PREFIX.size()) == PREFIX; };
    return ReadEntries(strXml, {mapCERTAppBinaryInfo, &vecCERTAppBinaryId}, fnWanted,
                       "Insert mapCERTAppBinaryInfo a item: ID is [%s], URL is [%s]");
}

bool CXmlParser::ParseDefaultAppBinaryServerInfoXml(const std::string& strXml,
                                                    std::vector<std::string>& vecDefaultAppBinaryId,
                                                    std::map<std::string, APPBIN_SERVER_INFO_t>& mapAppBinaryInfo)
{
    const auto fnWanted = [](const pugi::xml_node& tFile) { return Attribute(tFile, "boot") == "yes"; };
    return ReadEntries(strXml, {mapAppBinaryInfo, &vecDefaultAppBinaryId, true}, fnWanted,
                       "Insert mapAppBinaryInfo a default item: ID is [%s], URL is [%s]");
}
