#pragma once

#include <string>

#include "veltra/desktop/curl_ptr.h"
#include "veltra/desktop/fault.h"
#include "veltra/desktop/header_lines.h"

namespace WQCurl
{

/**
 * Decides which answers of a transfer redirect it, and where. libcurl's own redirecting would send the application's
 * header lines to every host, and would lead from https to http. Belongs to the driving thread.
 */
class CRedirects
{
public:
    /** Begins with another transfer. @param nMost the most redirects that it follows */
    void Begin(int nMost);

    /** Returns whether an answer with this status is followed, or else fails the transfer. */
    bool IsRedirect(long lStatus) const;

    /** Takes a redirect's URL from its header lines. @return why it is not followed */
    FAULT_t Take(CURL* pEasy, const CHeaderLines& tHeader);

    /** Directs an attempt to that URL. @return a refusal */
    CURLcode Follow(CURL* pEasy);

    /** Directs an attempt to the given URL again. @return a refusal */
    CURLcode Restart(CURL* pEasy);

    /** Returns whether the current URL has the scheme, host and port of the given one. */
    bool IsAtFirstServer() const { return m_bAtFirstServer; }

    /** Returns the URL of the last redirect, followed or not; empty if it has no usable one. */
    const std::string& NextUrl() const { return m_strNextUrl; }

    /** Returns the given URL; empty if no redirect has come. */
    const std::string& FirstUrl() const { return m_strFirstUrl; }

private:
    int m_nMost = 0;
    int m_nFollowed = 0;
    bool m_bAtFirstServer = true;
    std::string m_strFirstUrl;
    std::string m_strNextUrl;
    bool m_bNextAtFirstServer = true;
};

} // namespace WQCurl
