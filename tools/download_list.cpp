#include "download_list.h"

#include <glib.h>
#include <iterator>
#include <memory>
#include <sstream>

#include "options.h"
#include "text.h"

namespace
{

constexpr size_t SHA256_DIGITS = 64;
constexpr char FORM[] = "is not of the form URL FILE [SIZE] [SHA256]";

/** @return the fault of a line "URL FILE [SIZE] [SHA256]"; empty: none */
std::string ParseUrlLine(const std::string& strLine, DOWNLOAD_t& tDownload)
{
    std::istringstream tLine(strLine);
    const std::vector<std::string> vecField{std::istream_iterator<std::string>(tLine), {}};
    if (vecField.size() < 2)
    {
        return FORM;
    }
    tDownload.strUrl = vecField[0];
    tDownload.strFile = vecField[1];
    auto itField = vecField.begin() + 2;
    if (itField != vecField.end() && itField->size() < SHA256_DIGITS)
    {
        tDownload.nSize = ParseSize(*itField);
        if (tDownload.nSize < 0)
        {
            return "'" + *itField + "' is no number of bytes";
        }
        ++itField;
    }
    if (itField != vecField.end())
    {
        tDownload.strSha256 = *itField++;
    }
    const std::string strFault = tDownload.strSha256.empty() ? "" : Sha256Digits()(tDownload.strSha256);
    return itField == vecField.end() ? strFault : FORM;
}

/** @return the fault of a line "SHA256  NAME" or "SHA256 *NAME"; empty: none */
std::string ParseSumLine(const std::string& strLine, const std::string& strBaseUrl, DOWNLOAD_t& tDownload)
{
    constexpr size_t NAME = SHA256_DIGITS + 2;
    tDownload.strSha256 = strLine.substr(0, SHA256_DIGITS);
    const std::string strMark = strLine.substr(std::min(SHA256_DIGITS, strLine.size()), 2);
    if (!Sha256Digits()(tDownload.strSha256).empty() || (strMark != "  " && strMark != " *") || strLine.size() == NAME)
    {
        return "is no line of sha256sum";
    }
    tDownload.strFile = strLine.substr(NAME);
    if (tDownload.strFile.front() == '/' || ("/" + tDownload.strFile + "/").find("/../") != std::string::npos)
    {
        return "names a file that may be outside of the working folder";
    }
    const std::unique_ptr<char, decltype(&g_free)> pszName(g_uri_escape_string(tDownload.strFile.c_str(), "/", FALSE),
                                                           &g_free);
    tDownload.strUrl = strBaseUrl + (strBaseUrl.back() == '/' ? "" : "/") + pszName.get();
    return "";
}

} // namespace

std::string ParseDownloadList(const std::string& strList, const std::string& strBaseUrl,
                              std::vector<DOWNLOAD_t>& vecDownload)
{
    std::istringstream tList(strList);
    std::string strLine;
    for (int nLine = 1; std::getline(tList, strLine); ++nLine)
    {
        strLine.erase(strLine.find_last_not_of('\r') + 1);
        if (strLine.find_first_not_of(" \t") == std::string::npos || strLine.front() == '#')
        {
            continue;
        }
        DOWNLOAD_t& tDownload = vecDownload.emplace_back();
        const std::string strFault =
            strBaseUrl.empty() ? ParseUrlLine(strLine, tDownload) : ParseSumLine(strLine, strBaseUrl, tDownload);
        if (!strFault.empty())
        {
            return "line " + std::to_string(nLine) + ": " + strFault;
        }
    }
    return vecDownload.empty() ? "names no file" : "";
}
