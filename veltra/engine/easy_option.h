#pragma once

#include "veltra/log.h"
#include "veltra/platform/wqcurl.h"

/**
 * Sets one option. A refusal is logged on behalf of the calling operation, with pszMessage as the format and the easy
 * handle's last error as its one argument.
 */
template <class VALUE>
bool SetOption(WQCurl::WQCurlEasy& tEasy, WQCurl::WQCURL_OPTION_TYPE eOption, const VALUE& tValue,
               const char* pszMessage, const char* pszOperation = __builtin_FUNCTION(), int nLine = __builtin_LINE())
{
    if (tEasy.setOption(eOption, tValue))
    {
        return true;
    }
    VELTRA_LOG_ERROR_AT(pszOperation, nLine, pszMessage, tEasy.getLastError().c_str());
    return false;
}
