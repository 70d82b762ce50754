#include "option_values.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <glib.h>
#include <limits>
#include <unistd.h>

#include "session.h"

namespace
{

bool ParseNumber(const std::string& strText, long long& nNumber)
{
    size_t nEnd = 0;
    try
    {
        nNumber = std::stoll(strText, &nEnd);
    }
    catch (const std::logic_error&)
    {
        return false;
    }
    return nEnd == strText.size() && std::isspace(static_cast<unsigned char>(strText.front())) == 0;
}

/** Texts that a pattern matches from end to end; any bytes may stand in them. */
CLI::Validator Matching(const char* pszPattern, const std::string& strFault)
{
    return {[strPattern = "(?:" + std::string(pszPattern) + ")\\z", strFault](const std::string& strText)
            {
                const bool bMatch = g_regex_match_simple(strPattern.c_str(), strText.c_str(), G_REGEX_RAW,
                                                         G_REGEX_MATCH_ANCHORED) != FALSE;
                return bMatch ? "" : "'" + strText + "' " + strFault;
            },
            ""};
}

} // namespace

CLI::Validator Number(long long nLeast, long long nMost)
{
    return {[nLeast, nMost](const std::string& strText) -> std::string
            {
                long long nNumber = 0;
                const bool bGood = ParseNumber(strText, nNumber) && nNumber >= nLeast && nNumber <= nMost;
                return bGood ? ""
                             : "'" + strText + "' is no whole number from " + std::to_string(nLeast) + " to " +
                                   std::to_string(nMost);
            },
            ""};
}

CLI::Validator Bytes(long long nLeast)
{
    return {[nLeast](std::string& strText) -> std::string
            {
                constexpr std::string_view UNITS = "kMG";
                std::string strDigits = strText;
                long long nUnit = 1;
                const size_t nUnitIndex = strText.empty() ? std::string_view::npos : UNITS.find(strText.back());
                for (size_t nIndex = 0; nUnitIndex != std::string_view::npos && nIndex <= nUnitIndex; ++nIndex)
                {
                    nUnit *= 1000;
                }
                strDigits.resize(strDigits.size() - (nUnit > 1 ? 1 : 0));
                long long nNumber = 0;
                const bool bNumber = ParseNumber(strDigits, nNumber) && nNumber >= 0 &&
                                     nNumber <= std::numeric_limits<long long>::max() / nUnit;
                if (!bNumber || nNumber * nUnit < nLeast)
                {
                    return "'" + strText + "' is no number of bytes, at least " + std::to_string(nLeast) +
                           ", such as 64k, 20M or 1G";
                }
                strText = std::to_string(nNumber * nUnit);
                return "";
            },
            ""};
}

CLI::Validator ConnectTo()
{
    return Matching(R"((\[[^\]]*\]|[^:\[\]]*):\d{0,5}:(\[[^\]]*\]|[^:\[\]]*):\d{0,5})",
                    "is not of the form HOST:PORT:CONNECT-HOST:CONNECT-PORT");
}

CLI::Validator HeaderLine()
{
    return Matching(R"([^:;\s\x01-\x1f]+(:[^\r\n]*|;))", "is no header line such as 'NAME: VALUE'");
}

CLI::Validator Line()
{
    return Matching(R"([^\x00-\x1f\x7f]*)", "holds a control character");
}

CLI::Validator NotEmpty()
{
    return {[](const std::string& strText) -> std::string { return strText.empty() ? "is empty" : ""; }, ""};
}

CLI::Validator Proxy()
{
    return {[](const std::string& strText) -> std::string
            {
                /* The library decides. The settings of all options replace these later. */
                WQCurl::TRANSFER_DEFAULTS_t tSettings;
                tSettings.strProxy = strText;
                return WQCurl::SetTransferDefaults(tSettings) ? "" : "is no [SCHEME://][USER:PASSWORD@]HOST[:PORT]";
            },
            ""};
}

CLI::Validator Sha256Digits()
{
    return {[](std::string& strText) -> std::string
            {
                const bool bGood =
                    strText.size() == 64 && strText.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
                std::transform(strText.begin(), strText.end(), strText.begin(),
                               [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
                return bGood ? "" : "'" + strText + "' is no SHA-256 of 64 hexadecimal digits";
            },
            ""};
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
