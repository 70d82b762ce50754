#pragma once

#include <map>
#include <string>
#include <vector>

#include "veltra/export.h"
#include "veltra/query/http_request.h"
#include "veltra/xml/xml_parser.h"

/**
 * Server queries, each fetched and read: which app-binary servers the device is to use, and what one of them offers.
 *
 * Each operation blocks its caller for one synchronous GET of CWebConnector, which must be running, with its 30-second
 * time-out; none may be called on the engine's worker thread. Any number of threads may call them, each with containers
 * of its own. The result is true when both the request and the reading succeeded; a false one has left level-0 log
 * records and, unless said otherwise, the containers untouched.
 */
class VELTRA_API ICVeltra
{
public:
    /** Appends the URLs of the servers that this device is to use. The device's identity must have been set. */
    bool GetAppBinaryServerUrl(std::vector<std::string>& vecServerUrl);

    /** Adds the entries whose identifiers are listed in vecAppBinaryId; one that the map holds already keeps its
     * record. */
    bool GetServerAppBinaryInfo(const std::string& strServerUrl,
                                std::map<std::string, APPBIN_SERVER_INFO_t>& mapAppBinaryInfo,
                                const std::vector<std::string>& vecAppBinaryId);

    /** Adds the entries whose identifiers begin with "empCERT", and appends those identifiers. */
    bool GetCERTAppBinaryInfo(const std::string& strServerUrl,
                              std::map<std::string, APPBIN_SERVER_INFO_t>& mapCERTAppBinaryInfo,
                              std::vector<std::string>& vecCERTAppBinaryId);

    /** Adds the entries whose boot mark is "yes", and replaces the list's content with their identifiers. */
    bool GetDefaultAppBinaryInfo(const std::string& strServerUrl, std::vector<std::string>& vecDefaultAppBinaryId,
                                 std::map<std::string, APPBIN_SERVER_INFO_t>& mapAppBinaryInfo);

private:
    CHttpRequest m_tHttpRequest;
    CXmlParser m_tXmlParser;
};
