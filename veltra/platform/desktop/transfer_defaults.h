#pragma once

#include "veltra/platform/desktop/curl_ptr.h"
#include "veltra/platform/wqcurl.h"

namespace WQCurl
{

/** What SetTransferDefaults() was given, with its lists as libcurl takes them. */
struct TRANSFER_SETTINGS_t
{
    TRANSFER_DEFAULTS_t tDefaults;
    SLIST_PTR_t pConnectTo;
};

/** The settings for a transfer that is set up now. It keeps them as long as it uses them. Any thread. */
std::shared_ptr<const TRANSFER_SETTINGS_t> CurrentSettings();

} // namespace WQCurl
