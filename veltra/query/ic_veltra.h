#pragma once

#include <map>
#include <string>
#include <vector>

#include "veltra/export.h"
#include "veltra/query/http_request.h"
#include "veltra/xml/xml_parser.h"

/**
 * Fetches and reads documents: the list of the device's app-binary servers, and the entries that a server offers.
 *
 * Each operation makes one synchronous GET of CWebConnector and blocks its caller until that ends, 30 seconds at most.
 * The engine must be running. Several threads, each with containers of its own, may call the operations at once, but
 * not the engine's worker thread. The result is true if both request and reading succeeded. On failure level-0 records
 * are logged and the containers are untouched.
 */
class VELTRA_API ICVeltra
{
public:
    /** Appends the URLs of the device's servers. The device's identity must have been set. */
    bool GetAppBinaryServerUrl(std::vector<std::string>& vecServerUrl);

    /** Adds the entries whose identifiers vecAppBinaryId lists. An identifier that the map holds keeps its record. */
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
