#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "commands.h"
#include "session.h"
#include "text.h"
#include "url.h"

namespace
{

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
    printf("Bytes: %lld\n", tReport.nBytes);
    printf("Peer: %s%s\n", tReport.strPeer.c_str(), tReport.bReused ? ", connected before" : "");
    printf("Seconds: look-up %.3f, connect %.3f, TLS %.3f, first byte %.3f, total %.3f\n\n", tReport.dLookUp,
           tReport.dConnect, tReport.dTls, tReport.dFirstByte, tReport.dTotal);
}

int WriteAnswer(const std::string& strAnswer, const std::string& strPath)
{
    if (strPath.empty())
    {
        static_cast<void>(fwrite(strAnswer.data(), 1, strAnswer.size(), stdout));
        return 0; /* what is wrong with standard output shows at the end */
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
        static_cast<void>(remove(strPath.c_str())); /* part of an answer is none */
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

int RunRequest(const OPTIONS_t& tOptions, HTTP_METHOD_e eMethod, const std::string& strBody)
{
    CSession tSession(tOptions.bVerbose);
    _HTTP_REQ_INFO_t tReqInfo;
    tReqInfo.eMethod = eMethod;
    tReqInfo.strUrl = tOptions.strUrl;
    tReqInfo.lstHeader = tOptions.lstHeader;
    tReqInfo.strPostData = strBody;
    CWebConnector& tEngine = tSession.Engine();
    const bool bAnswered = eMethod == HTTP_METHOD_POST ? tEngine.Post(&tReqInfo, true) : tEngine.Get(&tReqInfo, true);
    const TRANSFER_END_t tEnd = tSession.TakeEnd();
    if (tOptions.bHeadings && tEnd.has_value() && tEnd->nHttpStatus != 0)
    {
        PrintHeadings(*tEnd);
    }
    return bAnswered ? WriteAnswer(tReqInfo.strResponse, tOptions.strOutput)
                     : PrintError(WithoutCredentials(tOptions.strUrl),
                                  tEnd.has_value() ? Reason(tEnd) : tReqInfo.strErrorReason);
}

} // namespace

int RunGet(const OPTIONS_t& tOptions)
{
    return RunRequest(tOptions, HTTP_METHOD_GET, "");
}

int RunPost(const OPTIONS_t& tOptions)
{
    if (tOptions.strData.empty() || tOptions.strData.front() != '@')
    {
        return RunRequest(tOptions, HTTP_METHOD_POST, tOptions.strData);
    }
    const std::string strPath = tOptions.strData.substr(1);
    std::string strBody;
    const int nError = ReadFile(strPath, strBody);
    return nError == 0 ? RunRequest(tOptions, HTTP_METHOD_POST, strBody) : PrintError(strPath, SystemText(nError));
}
