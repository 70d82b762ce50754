#pragma once

#include <curl/curl.h>

namespace WQCurl
{

/**
 * Returns the handle by which all transfers share TLS sessions. They do not share connections, for which libcurl is not
 * thread-safe, nor name look-ups, which end with a network. It lives as long as the process. Any thread.
 */
CURLSH* TransferShare();

} // namespace WQCurl
