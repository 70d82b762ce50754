#pragma once

#include <map>
#include <string>
#include <vector>

#include "veltra/export.h"
#include "veltra/xml/appbin_server_info.h"

/**
 * Readers of the query service's and the app-binary servers' documents.
 *
 * The readers keep no state: any thread may call them, on one object or several, as long as the containers that it
 * passes are its own. Each reads zero-terminated UTF-8, so what follows a zero character is not seen, and writes a
 * level-0 record when it returns false. An allocation failure passes as std::bad_alloc; what was added before it stays.
 *
 * Time grows linearly with the entries and the identifiers wanted (and with the logarithm of the map's size).
 */
class VELTRA_API CXmlParser
{
public:
    /**
     * Appends the URL of each server of a server-list document to vecServerUrl, in document order, unchanged and
     * unchecked; an entry without one adds an empty text.
     * @return false, with vecServerUrl untouched, when strXml is empty, does not parse or its status is not "ok"
     */
    bool ParseAppBinaryServerUrlXml(const std::string& strXml, std::vector<std::string>& vecServerUrl);

    /**
     * Adds the entries of an information document whose identifiers are listed in vecAppBinaryId to mapAppBinaryInfo,
     * where an identifier that is present already keeps its record.
     * @return false, with the map untouched, when strXml is empty or does not parse
     */
    bool ParseAppBinaryServerInfoXml(const std::string& strXml,
                                     std::map<std::string, APPBIN_SERVER_INFO_t>& mapAppBinaryInfo,
                                     const std::vector<std::string>& vecAppBinaryId);

    /**
     * Adds the entries whose identifiers begin with "empCERT" to mapCERTAppBinaryInfo, as above, and appends the
     * identifier of each to vecCERTAppBinaryId, in document order, also where the map kept an older record.
     * @return false, with both untouched, when strXml is empty or does not parse
     */
    bool ParseCERTAppBinaryServerInfoXml(const std::string& strXml,
                                         std::map<std::string, APPBIN_SERVER_INFO_t>& mapCERTAppBinaryInfo,
                                         std::vector<std::string>& vecCERTAppBinaryId);

    /**
     * Adds the entries whose boot mark is "yes" to mapAppBinaryInfo, as above, and replaces the content of
     * vecDefaultAppBinaryId with their identifiers, in document order.
     * @return false, with both untouched, when strXml is empty or does not parse
     */
    bool ParseDefaultAppBinaryServerInfoXml(const std::string& strXml, std::vector<std::string>& vecDefaultAppBinaryId,
                                            std::map<std::string, APPBIN_SERVER_INFO_t>& mapAppBinaryInfo);
};
