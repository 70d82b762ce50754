#pragma once

#include "veltra/log.h"
#include "veltra/platform/wqcurl.h"

/** Sets the option WQCurl::name with an EASY_OPTION_SETTER_t. */
#define SET_OPTION(setter, name, value) (setter).Set(WQCurl::name, value, "Set WQCurl::" #name " error = [%s]")

/** Sets the options of one easy handle. */
struct EASY_OPTION_SETTER_t
{
    /**
     * Sets one option. A refusal is logged on behalf of the calling operation, with pszMessage as the format and the
     * easy handle's last error as its argument.
     */
    template <class VALUE>
    bool Set(WQCurl::WQCURL_OPTION_TYPE eOption, const VALUE& tValue, const char* pszMessage, LOG_PLACE_t tPlace = {})
    {
        if (tEasy.setOption(eOption, tValue))
        {
            return true;
        }
        strLastError = tEasy.getLastError();
        VELTRA_LOG_ERROR_AT(tPlace, pszMessage, strLastError.c_str());
        return false;
    }

    WQCurl::WQCurlEasy& tEasy;
    std::string strLastError{}; /**< the text of a refusal; a wrapper may give it only once */
};
