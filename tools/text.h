#pragma once

#include <string>

/** Replaces the characters that could drive a terminal, each by "?". */
std::string Printable(const std::string& strText);

/** The columns that a printable text takes on a terminal. */
size_t Columns(const std::string& strText);

/** The end of a printable text that fits into so many columns. */
std::string LastColumns(const std::string& strText, size_t nColumns);

/** A number of bytes for people, as "24.0 MB". */
std::string FormatBytes(double dBytes);

/** A printf-like format as a text, for what has no place to be printed yet. */
[[gnu::format(printf, 1, 2)]] std::string Format(const char* pszFormat, ...);
