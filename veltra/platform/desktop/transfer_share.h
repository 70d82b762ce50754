#pragma once

#include <curl/curl.h>

namespace WQCurl
{

/**
 * What all transfers share: name look-ups and TLS sessions, which libcurl would otherwise keep for each handle; not
 * connections, which it does not share safely between threads. It lives as long as the process. Any thread.
 */
CURLSH* TransferShare();

} // namespace WQCurl
