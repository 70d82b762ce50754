#pragma once

#include <string>

namespace WQCurl
{

/** A proxy as libcurl takes it. User and password are apart from the URL, which error texts may contain. */
struct PROXY_t
{
    std::string strUrl; /**< scheme, host and port; empty: no proxy */
    /**
     * "USER:PASSWORD", percent-encoded, for CURLOPT_PROXYUSERPWD; empty: none. Before 8.8.0, libcurl decodes the values
     * of CURLOPT_PROXYUSERNAME and CURLOPT_PROXYPASSWORD as well, later releases do not.
     */
    std::string strUserPassword;
};

/**
 * Reads TRANSFER_SETTINGS_t::strProxy. libcurl itself does not refuse every text that it cannot read: it ignores some
 * and connects directly.
 * @return false for a text that names no usable proxy
 * @throw std::bad_alloc without memory
 */
bool ParseProxy(const std::string& strText, PROXY_t& tProxy);

} // namespace WQCurl
