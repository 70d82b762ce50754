#pragma once

#include <string>

/** A URL as libcurl reads it. */
struct SCRIPTED_URL_t
{
    SCRIPTED_URL_t() = default;
    explicit SCRIPTED_URL_t(const std::string& strGiven);

    bool IsHttp() const { return strScheme == "http" || strScheme == "https"; }

    std::string strUrl;    /**< with scheme and path; as given if it is none */
    std::string strKey;    /**< the same without the fragment, which is not requested */
    std::string strScheme; /**< in lower case; empty if it is no URL */
    std::string strHost;
};

/** Returns the whole URL of a reference in an answer of another URL; empty if it is none. */
std::string ResolveReference(const std::string& strUrl, const std::string& strReference);
