#pragma once

#include "veltra/log.h"
#include "veltra/platform/wqcurl.h"

/** Sets the option of an enumerator's name, by which a refusal is logged on behalf of the operation that sets it. */
#define SET_OPTION(easy, name, value) SetOption(easy, WQCurl::name, value, "Set WQCurl::" #name " error = [%s]")

/**
 * Sets one option. A refusal is logged on behalf of the calling operation, with pszMessage as the format and the easy
 * handle's last error as its one argument.
 */
template <class VALUE>
bool SetOption(WQCurl::WQCurlEasy& tEasy, WQCurl::WQCURL_OPTION_TYPE eOption, const VALUE& tValue,
               const char* pszMessage, LOG_PLACE_t tPlace = {})
{
    if (tEasy.setOption(eOption, tValue))
    {
        return true;
    }
    VELTRA_LOG_ERROR_AT(tPlace, pszMessage, tEasy.getLastError().c_str());
    return false;
}
