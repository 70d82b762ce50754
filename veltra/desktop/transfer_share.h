#pragma once

#include <curl/curl.h>

namespace WQCurl
{

/**
 * What all transfers share: TLS sessions, which outlive connections. Not connections, which libcurl does not share
 * safely between threads, and not name look-ups, which are forgotten with a network. It lives as long as the process.
 * Any thread.
 */
CURLSH* TransferShare();

} // namespace WQCurl
