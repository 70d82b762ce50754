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

/** A valid record of settings, with the parts that libcurl takes in another form. */
struct PREPARED_SETTINGS_t
{
    TRANSFER_SETTINGS_t tRecord;
    SLIST_PTR_t pConnectTo;
    PROXY_t tProxy;
};

typedef std::shared_ptr<const PREPARED_SETTINGS_t> SETTINGS_PTR_t;

/**
 * Returns the settings of a transfer that this thread sets up now: those of the innermost CTransferScope, otherwise the
 * process-wide ones. Null if the scope's are invalid.
 */
SETTINGS_PTR_t CurrentSettings();

/** Returns the process-wide settings. Any thread. */
SETTINGS_PTR_t ProcessSettings();

} // namespace WQCurl
