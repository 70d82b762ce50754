#include <climits>
#include <glib.h>
#include <iterator>
#include <memory>
#include <sstream>

#include "commands.h"
#include "download_target.h"
#include "file_content.h"
#include "json.h"
#include "messages.h"
#include "options.h"
#include "text.h"
#include "url.h"

namespace
{

struct DOWNLOAD_COMMAND_t
{
    std::vector<std::string> vecUrlAndFile;
    std::string strList;    /**< the path of a list; empty: none */
    std::string strBaseUrl; /**< empty: the list names URLs */
    long long nSize = -1;
    std::string strSha256;
    DOWNLOAD_OPTIONS_t tRun;
};

/** CLI11 does not know positional arguments that come in pairs. */
class CPairFormatter : public CLI::Formatter
{
public:
    std::string make_option_usage(const CLI::Option* /*pOption*/) const override { return "[URL FILE]..."; }
};

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

/**
 * Reads a list of downloads. Blank lines and lines that begin with "#" are skipped.
 * @param strBaseUrl empty: each line is "URL FILE [SIZE] [SHA256]". Otherwise each line is one of sha256sum(1), and the
 * URL of its file is this one with the file's name; a name must not leave the working folder
 * @param vecDownload receives the downloads
 * @return the fault of the list; empty: none
 */
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

/** @return the fault of the arguments; empty: none */
std::string TakeArguments(const DOWNLOAD_COMMAND_t& tCommand, std::vector<DOWNLOAD_t>& vecDownload)
{
    const std::vector<std::string>& vecArgument = tCommand.vecUrlAndFile;
    if (vecArgument.empty())
    {
        return "a URL with its FILE, or -i, is missing";
    }
    if (vecArgument.size() % 2 != 0)
    {
        return "this URL has no FILE: " + WithoutCredentials(vecArgument.back());
    }
    for (size_t nIndex = 0; nIndex < vecArgument.size(); nIndex += 2)
    {
        vecDownload.push_back({vecArgument[nIndex], vecArgument[nIndex + 1], tCommand.nSize, tCommand.strSha256});
    }
    const bool bChecked = tCommand.nSize >= 0 || !tCommand.strSha256.empty();
    return bChecked && vecDownload.size() > 1 ? "--sha256 and --size are for a single file" : "";
}

int RunDownload(const OPTIONS_t& tOptions, const DOWNLOAD_COMMAND_t& tCommand)
{
    const std::string& strPath = tCommand.strList;
    std::string strList;
    if (const int nError = strPath.empty() ? 0 : ReadContent(strPath, strList); nError != 0)
    {
        return PrintError(strPath, SystemText(nError));
    }
    std::vector<DOWNLOAD_t> vecDownload;
    std::string strFault = strPath.empty() ? TakeArguments(tCommand, vecDownload)
                                           : ParseDownloadList(strList, tCommand.strBaseUrl, vecDownload);
    for (DOWNLOAD_t& tDownload : vecDownload)
    {
        tDownload.bDurable = tCommand.tRun.bDurable;
        strFault = tDownload.strFile == "-" ? "-: a download goes into a file, not to standard output" : strFault;
    }
    if (!strFault.empty())
    {
        return PrintUsageError("download: " + (strPath.empty() ? "" : strPath + ": ") + strFault, "download");
    }
    if (!CheckTargets(vecDownload, tCommand.tRun.bForce))
    {
        return 1;
    }
    CSession tSession(tOptions, tCommand.tRun.bFailOnHttpError);
    const int nStatus = RunDownloads(tSession, vecDownload, tCommand.tRun);
    if (tCommand.tRun.bJson)
    {
        PrintResults(vecDownload);
    }
    return nStatus;
}

} // namespace

void AddDownloadCommand(const ADD_COMMAND_t& fnAdd, WQCurl::TRANSFER_SETTINGS_t& tTransfer)
{
    const auto ptCommand = std::make_shared<DOWNLOAD_COMMAND_t>();
    DOWNLOAD_OPTIONS_t& tRun = ptCommand->tRun;
    CLI::App& tApp = fnAdd("download", "Download each URL into the FILE after it",
                           [ptCommand](const OPTIONS_t& tOptions) { return RunDownload(tOptions, *ptCommand); });
    tApp.formatter(std::make_shared<CPairFormatter>());
    CLI::Option* pUrl =
        AddValue(tApp, "URL", ptCommand->vecUrlAndFile, "FILE", NotEmpty(), "A URL and its file; repeatable");
    CLI::Option* pSum = AddValue(tApp, "--sha256", ptCommand->strSha256, "HEX", Sha256Digits(),
                                 "The expected checksum of a single file");
    CLI::Option* pSize = AddValue(tApp, "--size", ptCommand->nSize, "N", CLI::Range(0LL, LLONG_MAX),
                                  "The expected size of a single file in bytes");
    CLI::Option* pList = AddValue(tApp, "-i", ptCommand->strList, "FILE", NotEmpty(),
                                  "A list with lines 'URL FILE [SIZE] [SHA256]'; -: standard input")
                             ->excludes(pUrl)
                             ->excludes(pSum)
                             ->excludes(pSize);
    AddValue(tApp, "--base-url", ptCommand->strBaseUrl, "URL", NotEmpty(),
             "The list is one of sha256sum; the names follow this URL")
        ->needs(pList);
    AddRunOptions(tApp, tRun, tTransfer);
}
