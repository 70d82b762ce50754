#include <cerrno>
#include <cstdio>
#include <filesystem>

#include "commands.h"
#include "file_content.h"
#include "json.h"
#include "messages.h"
#include "options.h"
#include "session.h"
#include "text.h"
#include "url.h"

namespace
{

struct REQUEST_OPTIONS_t
{
    std::string strUrl;
    std::string strData;   /**< the body, or "@" and the file that holds it, "@-" for standard input */
    std::string strOutput; /**< the file that receives the answer; empty: standard output */
    bool bHeadings = false;
    bool bJson = false; /**< prints the report instead of the answer */
    bool bFailOnHttpError = false;
};

/** Prints the essentials of an answer before it. */
void PrintHeadings(const WQCurl::TRANSFER_REPORT_t& tReport)
{
    const std::string strLength = tReport.nContentLength < 0 ? "" : std::to_string(tReport.nContentLength);
    printf("HTTP/%s %d\n", tReport.strHttpVersion.c_str(), tReport.nHttpStatus);
    for (const auto& [pszName, strValue] : {std::pair("Content-Type", tReport.strContentType),
                                            {"Content-Length", strLength},
                                            {"Location", WithoutCredentials(tReport.strRedirectUrl)},
                                            {"URL", WithoutCredentials(tReport.strFinalUrl)}})
    {
        if (!strValue.empty())
        {
            printf("%s: %s\n", pszName, Printable(strValue).c_str());
        }
    }
    puts("");
}

/** Prints the report instead of the answer. */
void PrintReport(const WQCurl::TRANSFER_REPORT_t& tReport, const std::string& strFailure)
{
    JSON_t tResult;
    tResult["url"] = tReport.strUrl;
    tResult["result"] = strFailure.empty() ? "done" : "failed";
    tResult["reason"] = strFailure;
    AddReport(tResult, tReport);
    tResult["header"] = tReport.lstHeader;
    PrintJson(tResult);
}

/** @return the failure; empty: none */
std::string WriteAnswer(const std::string& strAnswer, const std::string& strPath)
{
    if (strPath.empty())
    {
        static_cast<void>(fwrite(strAnswer.data(), 1, strAnswer.size(), stdout));
        return ""; /* main() checks standard output at the end */
    }
    FILE* pFile = fopen(strPath.c_str(), "wbe");
    const bool bWritten = pFile != nullptr && fwrite(strAnswer.data(), 1, strAnswer.size(), pFile) == strAnswer.size();
    if (pFile != nullptr && fclose(pFile) == 0 && bWritten)
    {
        return "";
    }
    const int nError = errno;
    std::error_code tUnused;
    if (pFile != nullptr && is_regular_file(std::filesystem::symlink_status(strPath, tUnused)))
    {
        static_cast<void>(remove(strPath.c_str())); /* an incomplete answer must not be used */
    }
    return SystemText(nError);
}

int RunRequest(const OPTIONS_t& tOptions, HTTP_METHOD_e eMethod, const REQUEST_OPTIONS_t& tRequest)
{
    _HTTP_REQ_INFO_t tReqInfo;
    tReqInfo.eMethod = eMethod;
    tReqInfo.strUrl = tRequest.strUrl;
    tReqInfo.strPostData = tRequest.strData;
    if (!tRequest.strData.empty() && tRequest.strData.front() == '@')
    {
        const std::string strPath = tRequest.strData.substr(1);
        tReqInfo.strPostData.clear();
        if (const int nError = ReadContent(strPath, tReqInfo.strPostData); nError != 0)
        {
            return PrintError(strPath, SystemText(nError));
        }
    }
    CSession tSession(tOptions, tRequest.bFailOnHttpError);
    CWebConnector& tEngine = tSession.Engine();
    const bool bAnswered = eMethod == HTTP_METHOD_POST ? tEngine.Post(&tReqInfo, true) : tEngine.Get(&tReqInfo, true);
    const WQCurl::TRANSFER_REPORT_t tReport = CurrentReport();
    if (tRequest.bHeadings && tReport.nHttpStatus != 0)
    {
        PrintHeadings(tReport);
    }
    std::string strFailure;
    if (!bAnswered)
    {
        strFailure = tReport.nResultCode != 0 ? Reason(tReport) : tReqInfo.strErrorReason;
    }
    else if (!tRequest.bJson || !tRequest.strOutput.empty())
    {
        strFailure = WriteAnswer(tReqInfo.strResponse, tRequest.strOutput);
    }
    if (tRequest.bJson)
    {
        PrintReport(tReport, strFailure);
    }
    if (strFailure.empty())
    {
        return 0;
    }
    PrintError(bAnswered ? tRequest.strOutput : WithoutCredentials(tRequest.strUrl), strFailure);
    return bAnswered ? 1 : ExitStatus(tReport);
}

void AddRequestOptions(CLI::App& tCommand, REQUEST_OPTIONS_t& tRequest, WQCurl::TRANSFER_SETTINGS_t& tTransfer)
{
    AddValue(tCommand, "URL", tRequest.strUrl, "TEXT", NotEmpty(), "http or https; without either http")->required();
    AddHeaderOption(tCommand, tTransfer);
    tCommand.add_option("-o", tRequest.strOutput, "Write the answer into this file")->type_name("FILE");
    CLI::Option* pHeadings =
        tCommand.add_flag("-i", tRequest.bHeadings, "Print status, type, length, redirect and URL before the answer");
    tCommand.add_flag("--json", tRequest.bJson, "Print the report as JSON; the answer only goes to -o")
        ->excludes(pHeadings);
    tCommand.add_flag("--fail", tRequest.bFailOnHttpError, "Fail with a redirect or a status of 400 and more");
}

} // namespace

void AddRequestCommands(const ADD_COMMAND_t& fnAdd, WQCurl::TRANSFER_SETTINGS_t& tTransfer)
{
    const auto ptRequest = std::make_shared<REQUEST_OPTIONS_t>();
    const auto fnCommand = [ptRequest](HTTP_METHOD_e eMethod)
    { return [ptRequest, eMethod](const OPTIONS_t& tOptions) { return RunRequest(tOptions, eMethod, *ptRequest); }; };
    CLI::App& tGet = fnAdd("get", "Print the answer to a GET, within 30 seconds", fnCommand(HTTP_METHOD_GET));
    CLI::App& tPost = fnAdd("post", "Print the answer to a POST, within 30 seconds", fnCommand(HTTP_METHOD_POST));
    tPost.add_option("--data", ptRequest->strData, "The body")->type_name("TEXT|@FILE|@-")->required();
    AddRequestOptions(tGet, *ptRequest, tTransfer);
    AddLocationFlag(tGet, tTransfer);
    AddRequestOptions(tPost, *ptRequest, tTransfer);
}
