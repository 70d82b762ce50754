#pragma once

#include <string>

#include "veltra/export.h"
#include "veltra/platform/ai_auth.h"

/**
 * The query client: fetches the documents of the query service and of the app-binary servers as text.
 *
 * Each operation makes one synchronous GET of CWebConnector and blocks its caller until that ends, 30 seconds at most.
 * The engine must be running. Several threads may call the operations at once, but not the engine's worker thread.
 * The client neither retries nor examines the HTTP status.
 */
class VELTRA_API CHttpRequest
{
public:
    CHttpRequest();
    ~CHttpRequest() = default;

    /**
     * Asks the query service for the app-binary servers of this device, whose chipset must be known.
     * @param strServerUrlInfo receives the server-list document, which is not empty; untouched on failure
     * @return true if the transfer succeeded with a body
     */
    bool RequestAppBinaryServerUrl(std::string& strServerUrlInfo);

    /**
     * Fetches an app-binary server's information document. The request carries no device identity.
     * @param strServerUrl the document's URL, not empty; used unchanged
     * @param strAppBinaryInfo receives the document, which may be empty; untouched on failure
     * @return true if the transfer succeeded
     */
    bool RequestServerAppBinaryInfo(const std::string& strServerUrl, std::string& strAppBinaryInfo);

private:
    CAIAuth* m_pAuth; /**< the process's device identity; not owned */
};
