#include "veltra/desktop/header_values.h"

#include <algorithm>
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
    constexpr std::string_view FORM = "Wed, 01 Jan 2020 10:00:00 GMT";
    constexpr std::string_view MONTHS = "JanFebMarAprMayJunJulAugSepOctNovDec";
    constexpr int FIRST_YEAR = 1900;
    if (strDate.size() != FORM.size() || strDate.compare(25, 4, FORM.substr(25)) != 0)
    {
        return std::nullopt;
    }
    bool bNumbers = true;
    const auto fnNumber = [&](size_t nFirst, size_t nDigits)
    {
        const std::optional<long long> optNumber = Number(strDate.substr(nFirst, nDigits));
        bNumbers = bNumbers && optNumber.has_value();
        return static_cast<int>(optNumber.value_or(0));
    };
    const size_t nMonth = MONTHS.find(strDate.substr(8, 3));
    std::tm tDate{};
    tDate.tm_mday = fnNumber(5, 2);
    tDate.tm_mon = static_cast<int>(nMonth / 3);
    tDate.tm_year = fnNumber(12, 4) - FIRST_YEAR;
    tDate.tm_hour = fnNumber(17, 2);
    tDate.tm_min = fnNumber(20, 2);
    tDate.tm_sec = fnNumber(23, 2);
    const bool bDate = bNumbers && nMonth < MONTHS.size() && nMonth % 3 == 0;
    return bDate ? std::optional<long long>(timegm(&tDate)) : std::nullopt;
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
