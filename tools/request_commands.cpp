#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "commands.h"
#include "messages.h"
#include "option_values.h"
#include "session.h"
#include "shared_options.h"
#include "text.h"
#include "url.h"

namespace
{

struct REQUEST_OPTIONS_t
{
    std::string strUrl;
    std::string strData;   /**< the body, or "@" and the file that holds it */
    std::string strOutput; /**< the file that receives the answer; empty: standard output */
    bool bHeadings = false;
    bool bFailOnHttpError = false;
};

void PrintHeadings(const WQCurl::TRANSFER_REPORT_t& tReport)
{
    const std::string strLength = tReport.nContentLength < 0 ? "" : std::to_string(tReport.nContentLength);
    printf("HTTP/%s %d\n", tReport.strHttpVersion.c_str(), tReport.nHttpStatus);
    for (const auto& [pszName, strValue] : {std::pair("Content-Type", tReport.strContentType),
                                            {"Content-Length", strLength},
                                            {"Location", WithoutCredentials(tReport.strRedirectUrl)}})
    {
        if (!strValue.empty())
        {
            printf("%s: %s\n", pszName, Printable(strValue).c_str());
        }
    }
    if (tReport.strFinalUrl != tReport.strUrl)
    {
        printf("URL: %s\n", Printable(WithoutCredentials(tReport.strFinalUrl)).c_str());
    }
    printf("Bytes: %lld\n", tReport.nBytes);
    printf("Peer: %s%s\n", tReport.strPeer.c_str(), tReport.bReused ? ", connected before" : "");
    printf("Seconds: %s\n\n", PhasesText(tReport).c_str());
}

int WriteAnswer(const std::string& strAnswer, const std::string& strPath)
{
    if (strPath.empty())
    {
        static_cast<void>(fwrite(strAnswer.data(), 1, strAnswer.size(), stdout));
        return 0; /* main() checks standard output at the end */
    }
    FILE* pFile = fopen(strPath.c_str(), "wbe");
    const bool bWritten = pFile != nullptr && fwrite(strAnswer.data(), 1, strAnswer.size(), pFile) == strAnswer.size();
    if (pFile != nullptr && fclose(pFile) == 0 && bWritten)
    {
        return 0;
    }
    const int nError = errno;
    std::error_code tUnused;
    if (pFile != nullptr && is_regular_file(std::filesystem::symlink_status(strPath, tUnused)))
    {
        static_cast<void>(remove(strPath.c_str())); /* an incomplete answer must not be used */
    }
    return PrintError(strPath, SystemText(nError));
}

/** @return errno of a failure; 0 for none */
int ReadFile(const std::string& strPath, std::string& strContent)
{
    const std::unique_ptr<FILE, int (*)(FILE*)> pFile(fopen(strPath.c_str(), "rbe"), &fclose);
    if (pFile == nullptr)
    {
        return errno;
    }
    std::array<char, 65536> arrData{};
    for (size_t nRead = 0; (nRead = fread(arrData.data(), 1, arrData.size(), pFile.get())) > 0;)
    {
        strContent.append(arrData.data(), nRead);
    }
    return ferror(pFile.get()) != 0 ? errno : 0;
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
        if (const int nError = ReadFile(strPath, tReqInfo.strPostData); nError != 0)
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
    if (bAnswered)
    {
        return WriteAnswer(tReqInfo.strResponse, tRequest.strOutput);
    }
    PrintError(WithoutCredentials(tRequest.strUrl),
               tReport.nResultCode != 0 ? Reason(tReport) : tReqInfo.strErrorReason);
    return ExitStatus(tReport);
}

void AddRequestOptions(CLI::App& tCommand, REQUEST_OPTIONS_t& tRequest, WQCurl::TRANSFER_SETTINGS_t& tTransfer)
{
    AddValue(tCommand, "URL", tRequest.strUrl, "TEXT", NotEmpty(), "http or https; without either http")->required();
    AddHeaderOption(tCommand, tTransfer);
    tCommand.add_option("-o", tRequest.strOutput, "Write the answer into this file")->type_name("FILE");
    tCommand.add_flag("-i", tRequest.bHeadings, "Print status, type, length, peer and times before the answer");
    AddFailFlag(tCommand, tRequest.bFailOnHttpError);
}

} // namespace

void AddRequestCommands(const ADD_COMMAND_t& fnAdd, WQCurl::TRANSFER_SETTINGS_t& tTransfer)
{
    const auto ptRequest = std::make_shared<REQUEST_OPTIONS_t>();
    const auto fnCommand = [ptRequest](HTTP_METHOD_e eMethod)
    { return [ptRequest, eMethod](const OPTIONS_t& tOptions) { return RunRequest(tOptions, eMethod, *ptRequest); }; };
    CLI::App& tGet = fnAdd("get", "Print the answer to a GET, within 30 seconds", fnCommand(HTTP_METHOD_GET));
    CLI::App& tPost = fnAdd("post", "Print the answer to a POST, within 30 seconds", fnCommand(HTTP_METHOD_POST));
    tPost.add_option("--data", ptRequest->strData, "The body")->type_name("TEXT|@FILE")->required();
    AddRequestOptions(tGet, *ptRequest, tTransfer);
    AddLocationFlag(tGet, tTransfer);
    AddRequestOptions(tPost, *ptRequest, tTransfer);
}
