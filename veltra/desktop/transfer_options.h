#pragma once

#include "veltra/desktop/prepared_settings.h"

namespace WQCurl
{

/** Sets the libcurl options that the settings ask for on a new handle. @return the first refusal */
CURLcode ApplySettings(CURL* pEasy, const PREPARED_SETTINGS_t& tPrepared);

/** Sets whether a server may ask for the client certificate of the settings, if they have one. @return a refusal */
CURLcode SetOwnCertificate(CURL* pEasy, const TRANSFER_SETTINGS_t& tSettings, bool bOffer);

} // namespace WQCurl
