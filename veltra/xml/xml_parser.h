#pragma once

#include <map>
#include <string>
#include <vector>

#include "veltra/export.h"
#include "veltra/xml/appbin_server_info.h"

/**
 * Reads the documents of the query service and of the app-binary servers.
 *
 * The readers keep no state: several threads, each with containers of its own, may call them at once, on one object or
 * on several. A document is zero-terminated UTF-8: text after a zero character is ignored. A reader that returns false
 * has logged a level-0 record and left its containers untouched. If memory runs out, a reader passes std::bad_alloc;
 * entries added before stay. The time grows linearly with the entries and the wanted identifiers, and with the
 * logarithm of the map's size.
 */
class VELTRA_API CXmlParser
{
public:
    /**
     * Appends the URL of each server of a server-list document to vecServerUrl, in document order and unchecked. A
     * server without a URL adds an empty text.
     * @return false if strXml is empty, does not parse or has a status other than "ok"
     */
    bool ParseAppBinaryServerUrlXml(const std::string& strXml, std::vector<std::string>& vecServerUrl);

    /**
     * Adds the entries of an information document whose identifiers vecAppBinaryId lists to mapAppBinaryInfo. An
     * identifier that the map holds already keeps its record.
     * @return false if strXml is empty or does not parse
     */
    bool ParseAppBinaryServerInfoXml(const std::string& strXml,
                                     std::map<std::string, APPBIN_SERVER_INFO_t>& mapAppBinaryInfo,
                                     const std::vector<std::string>& vecAppBinaryId);

    /**
     * Adds the entries whose identifiers begin with "empCERT" to mapCERTAppBinaryInfo, as above, and appends each of
     * these identifiers to vecCERTAppBinaryId, in document order, even if the map keeps an older record.
     * @return false if strXml is empty or does not parse
     */
    bool ParseCERTAppBinaryServerInfoXml(const std::string& strXml,
                                         std::map<std::string, APPBIN_SERVER_INFO_t>& mapCERTAppBinaryInfo,
                                         std::vector<std::string>& vecCERTAppBinaryId);

    /**
     * Adds the entries whose boot mark is "yes" to mapAppBinaryInfo, as above, and replaces the content of
     * vecDefaultAppBinaryId with their identifiers, in document order.
     * @return false if strXml is empty or does not parse
     */
    bool ParseDefaultAppBinaryServerInfoXml(const std::string& strXml, std::vector<std::string>& vecDefaultAppBinaryId,
                                            std::map<std::string, APPBIN_SERVER_INFO_t>& mapAppBinaryInfo);
};
