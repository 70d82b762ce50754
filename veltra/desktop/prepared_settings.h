#pragma once

#include <limits>
#include <memory>

#include "veltra/desktop/curl_ptr.h"
#include "veltra/desktop/proxy.h"
#include "veltra/desktop/transfer_settings.h"

namespace WQCurl
{

/** The longest time-out in seconds: libcurl counts milliseconds in an int, and refuses more. */
constexpr int LONGEST_TIMEOUT = std::numeric_limits<int>::max() / 1000;

/** The record given to SetTransferDefaults(), with the parts that libcurl takes in another form. */
struct PREPARED_SETTINGS_t
{
    TRANSFER_SETTINGS_t tDefaults;
    SLIST_PTR_t pConnectTo;
    PROXY_t tProxy;
};

/** Returns the settings for a transfer that is set up now, which keeps them as long as it uses them. Any thread. */
std::shared_ptr<const PREPARED_SETTINGS_t> CurrentSettings();

} // namespace WQCurl
