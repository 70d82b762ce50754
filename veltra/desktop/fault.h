#pragma once

namespace WQCurl
{

/** A failure that the wrapper finds and libcurl does not. */
struct FAULT_t
{
    explicit operator bool() const { return pszText != nullptr; }

    int nCode = 0;                 /**< libcurl's result code, or RESULT_UNEXPECTED */
    const char* pszText = nullptr; /**< null: no failure */
};

} // namespace WQCurl
