#pragma once

#include "veltra/desktop/prepared_settings.h"

namespace WQCurl
{

/** Sets the libcurl options that the settings ask for on a new handle. @return the first refusal */
CURLcode ApplySettings(CURL* pEasy, const PREPARED_SETTINGS_t& tSettings);

} // namespace WQCurl
