#pragma once

#include <string>

/** Replaces each control character and each invisible formatting character by "?". */
std::string Printable(const std::string& strText);

/** @return the width of a printable text on a terminal */
size_t Columns(const std::string& strText);

/** @return the longest end of a printable text that fits into the columns */
std::string LastColumns(const std::string& strText, size_t nColumns);

/** Formats a number of bytes with a unit, such as "24.0 MB". */
std::string FormatBytes(double dBytes);

/** Reads a number of bytes. @return -1 for another text */
long long ParseSize(const std::string& strSize);

/** Formats like printf. */
[[gnu::format(printf, 1, 2)]] std::string Format(const char* pszFormat, ...);
