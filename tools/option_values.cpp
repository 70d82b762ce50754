#include "option_values.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <functional>
#include <glib.h>
#include <unistd.h>

#include "messages.h"
#include "veltra/veltra.h"

namespace
{

/**
 * Accepts texts for which the function returns true; the function may replace the text.
 * @param bSecret the text must not be repeated
 */
CLI::Validator Accepting(const std::function<bool(std::string&)>& fnAccept, const std::string& strFault,
                         bool bSecret = false)
{
    return {[fnAccept, strFault, bSecret](std::string& strText)
            {
                const std::string strGiven = bSecret ? "" : "'" + strText + "' ";
                return fnAccept(strText) ? "" : strGiven + strFault;
            },
            ""};
}

/** Returns whether a text, which may hold any bytes, matches a pattern from end to end. */
bool Matches(const std::string& strText, const std::string& strPattern)
{
    return g_regex_match_simple(("(?:" + strPattern + ")\\z").c_str(), strText.c_str(), G_REGEX_RAW,
                                G_REGEX_MATCH_ANCHORED) != FALSE;
}

CLI::Validator Matching(const char* pszPattern, const std::string& strFault, bool bSecret = false)
{
    const auto fnAccept = [pszPattern](const std::string& strText) { return Matches(strText, pszPattern); };
    return Accepting(fnAccept, strFault, bSecret);
}

} // namespace

CLI::Validator Number(long long nLeast, long long nMost)
{
    const auto fnAccept = [nLeast, nMost](const std::string& strText)
    { return g_ascii_string_to_signed(strText.c_str(), 10, nLeast, nMost, nullptr, nullptr) != FALSE; };
    return Accepting(fnAccept, "is no whole number from " + std::to_string(nLeast) + " to " + std::to_string(nMost));
}

CLI::Validator Bytes(long long nLeast)
{
    const auto fnAccept = [nLeast](std::string& strText)
    {
        std::string strDigits = strText;
        long long nUnit = 1;
        for (const auto& [cUnit, nValue] : {std::pair('k', 1000), {'M', 1000000}, {'G', 1000000000}})
        {
            if (!strText.empty() && strText.back() == cUnit)
            {
                strDigits.pop_back();
                nUnit = nValue;
            }
        }
        gint64 nNumber = 0;
        const bool bGood =
            g_ascii_string_to_signed(strDigits.c_str(), 10, 0, LLONG_MAX / nUnit, &nNumber, nullptr) != FALSE;
        strText = std::to_string(nNumber * nUnit);
        return bGood && nNumber * nUnit >= nLeast;
    };
    return Accepting(fnAccept,
                     "is no number of bytes, at least " + std::to_string(nLeast) + ", such as 64k, 20M or 1G");
}

CLI::Validator ConnectTo()
{
    return Matching(R"((\[[^\]]*\]|[^:\[\]]*):\d{0,5}:(\[[^\]]*\]|[^:\[\]]*):\d{0,5})",
                    "is not of the form HOST:PORT:CONNECT-HOST:CONNECT-PORT");
}

CLI::Validator HeaderLine()
{
    return Matching(R"([^:;\s\x00-\x1f\x7f]+:[^\x00-\x1f\x7f]*)",
                    "is no header line such as 'NAME: VALUE', or holds a control character", true);
}

CLI::Validator Line()
{
    return Matching(R"([^\x00-\x1f\x7f]*)", "holds a control character");
}

CLI::Validator NotEmpty()
{
    return Accepting([](const std::string& strText) { return !strText.empty(); }, "is empty", true);
}

CLI::Validator Proxy()
{
    const auto fnAccept = [](const std::string& strText)
    {
        /* The library decides. The settings of all options replace these later. */
        WQCurl::TRANSFER_SETTINGS_t tSettings;
        tSettings.strProxy = strText;
        return WQCurl::SetTransferDefaults(tSettings);
    };
    return Accepting(fnAccept, "is no [SCHEME://][USER:PASSWORD@]HOST[:PORT]", true);
}

CLI::Validator Sha256Digits()
{
    const auto fnAccept = [](std::string& strText)
    {
        std::transform(strText.begin(), strText.end(), strText.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        return strText.size() == 64 && strText.find_first_not_of("0123456789abcdef") == std::string::npos;
    };
    return Accepting(fnAccept, "is no SHA-256 of 64 hexadecimal digits");
}

CLI::Validator ReadableFile()
{
    return {[](const std::string& strText) -> std::string
            { return access(strText.c_str(), R_OK) == 0 ? "" : strText + ": " + SystemText(errno); },
            ""};
}

CLI::Validator HostAndPort()
{
    return Matching(R"((\[[^\]]+\]|[^:\[\]/\s]+)(:\d{1,5})?)", "is no HOST or HOST:PORT");
}
