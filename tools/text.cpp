#include "text.h"

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <glib.h>
#include <memory>

namespace
{

typedef std::unique_ptr<char, decltype(&g_free)> TEXT_PTR_t;

bool IsControl(gunichar nCharacter)
{
    const GUnicodeType eType = g_unichar_type(nCharacter);
    return eType == G_UNICODE_CONTROL || eType == G_UNICODE_FORMAT || eType == G_UNICODE_LINE_SEPARATOR ||
           eType == G_UNICODE_PARAGRAPH_SEPARATOR;
}

size_t CharacterColumns(const char* pszCharacter)
{
    const gunichar nCharacter = g_utf8_get_char(pszCharacter);
    const size_t nVisible = g_unichar_iswide(nCharacter) != FALSE ? 2 : 1;
    return g_unichar_iszerowidth(nCharacter) != FALSE ? 0 : nVisible;
}

} // namespace

std::string Printable(const std::string& strText)
{
    const TEXT_PTR_t pszValid(g_utf8_make_valid(strText.data(), static_cast<gssize>(strText.size())), &g_free);
    std::string strResult;
    for (const char* psz = pszValid.get(); *psz != '\0'; psz = g_utf8_find_next_char(psz, nullptr))
    {
        const std::string strCharacter(psz, static_cast<size_t>(g_utf8_find_next_char(psz, nullptr) - psz));
        strResult += IsControl(g_utf8_get_char(psz)) ? "?" : strCharacter;
    }
    return strResult;
}

size_t Columns(const std::string& strText)
{
    size_t nColumns = 0;
    for (const char* psz = strText.c_str(); *psz != '\0'; psz = g_utf8_find_next_char(psz, nullptr))
    {
        nColumns += CharacterColumns(psz);
    }
    return nColumns;
}

std::string LastColumns(const std::string& strText, size_t nColumns)
{
    const char* psz = strText.c_str();
    for (size_t nLeft = Columns(strText); nLeft > nColumns; psz = g_utf8_find_next_char(psz, nullptr))
    {
        nLeft -= CharacterColumns(psz);
    }
    return psz;
}

std::string FormatBytes(double dBytes)
{
    const char* pszUnit = "B";
    for (const char* pszLarger : {"kB", "MB", "GB"})
    {
        if (dBytes < 999.95)
        {
            break;
        }
        dBytes /= 1000.0;
        pszUnit = pszLarger;
    }
    return Format(*pszUnit == 'B' ? "%.0f %s" : "%.1f %s", dBytes, pszUnit);
}

long long ParseSize(const std::string& strSize)
{
    guint64 nSize = 0;
    return g_ascii_string_to_unsigned(strSize.c_str(), 10, 0, LLONG_MAX, &nSize, nullptr) != FALSE
               ? static_cast<long long>(nSize)
               : -1;
}

std::string Format(const char* pszFormat, ...)
{
    va_list tArguments;
    va_start(tArguments, pszFormat);
    const TEXT_PTR_t pszText(g_strdup_vprintf(pszFormat, tArguments), &g_free);
    va_end(tArguments);
    return pszText.get();
}
