#pragma once

#include <curl/curl.h>

namespace WQCurl
{

/** A failure that the wrapper finds and libcurl does not. */
struct FAULT_t
{
    explicit operator bool() const { return pszText != nullptr; }

    CURLcode eCode = CURLE_OK;
    const char* pszText = nullptr; /**< null: no failure */
};

} // namespace WQCurl
