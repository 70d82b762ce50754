#pragma once

#include <limits>
#include <optional>
#include <string>

#include "veltra/desktop/header_lines.h"

namespace WQCurl
{

/** Reads a decimal number without a sign, limited to nMost. @return none for any other text */
std::optional<long long> Number(const std::string& strText, long long nMost = std::numeric_limits<long long>::max());

/** Returns the moment of a date in seconds since 1970; none for any other text. */
std::optional<long long> Date(const std::string& strDate);

/** Returns the seconds that an answer asks to wait before the next attempt; -1 if it does not. */
int RetryAfter(const CHeaderLines& tHeader);

} // namespace WQCurl
