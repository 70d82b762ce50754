#include "veltra/desktop/header_values.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace WQCurl
{

std::optional<long long> Number(const std::string& strText, long long nMost)
{
    if (strText.empty() || strText.find_first_not_of("0123456789") != std::string::npos)
    {
        return std::nullopt;
    }
    return static_cast<long long>(std::min(strtoull(strText.c_str(), nullptr, 10), // the largest number if it is larger
                                           static_cast<unsigned long long>(nMost)));
}

/* libcurl's own function depends on the size of time_t that libcurl was built with. */
std::optional<long long> Date(const std::string& strDate)
{
    constexpr std::string_view MONTHS = "JanFebMarAprMayJunJulAugSepOctNovDec";
    constexpr int FIRST_YEAR = 1900;
    std::tm tDate{};
    char szMonth[4] = "";
    int nLength = 0;
    const int nRead = sscanf(strDate.c_str(), "%*3[A-Za-z], %2d %3[A-Za-z] %4d %2d:%2d:%2d GMT%n", &tDate.tm_mday,
                             szMonth, &tDate.tm_year, &tDate.tm_hour, &tDate.tm_min, &tDate.tm_sec, &nLength);
    const size_t nMonth = MONTHS.find(szMonth);
    if (nRead != 6 || static_cast<size_t>(nLength) != strDate.size() || nMonth >= MONTHS.size() || nMonth % 3 != 0)
    {
        return std::nullopt;
    }
    tDate.tm_mon = static_cast<int>(nMonth / 3);
    tDate.tm_year -= FIRST_YEAR;
    return timegm(&tDate);
}

int RetryAfter(const CHeaderLines& tHeader)
{
    constexpr int LONGEST = std::numeric_limits<int>::max();
    const std::string strValue = tHeader.Value("Retry-After");
    if (const std::optional<long long> optMoment = Date(strValue))
    {
        /* The server's own clock counts: the device's may be wrong. */
        const long long nNow = Date(tHeader.Value("Date")).value_or(static_cast<long long>(time(nullptr)));
        return static_cast<int>(std::clamp<long long>(*optMoment - nNow, 0, LONGEST));
    }
    return static_cast<int>(Number(strValue, LONGEST).value_or(-1));
}

} // namespace WQCurl
