#pragma once

#include <string>

#include "veltra/export.h"
#include "veltra/platform/ai_auth.h"

/**
 * The query client: fetches the query service's and the app-binary servers' documents as text, unread.
 *
 * Each operation blocks its caller for one synchronous GET of CWebConnector, which must be running, with its 30-second
 * time-out; none may be called on the engine's worker thread. Any number of threads may call them at once. Neither
 * retries nor looks at the HTTP status.
 */
class VELTRA_API CHttpRequest
{
public:
    CHttpRequest();
    ~CHttpRequest() = default;

    /**
     * Asks the query service which app-binary servers this device is to use. The device's chipset must be known.
     * @param strServerUrlInfo on success replaced by the server-list document, which is not empty; otherwise untouched
     * @return true when the transfer succeeded with a body
     */
    bool RequestAppBinaryServerUrl(std::string& strServerUrlInfo);

    /**
     * Fetches an app-binary server's information document. No device identity is sent.
     * @param strServerUrl the document's URL, used as it is; not empty
     * @param strAppBinaryInfo on success replaced by the document, which may be empty; otherwise untouched
     * @return true when the transfer succeeded
     */
    bool RequestServerAppBinaryInfo(const std::string& strServerUrl, std::string& strAppBinaryInfo);

private:
    CAIAuth* m_pAuth; /**< the process's device identity; not owned */
};
