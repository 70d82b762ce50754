/* Makes a request with a token, and once again with a new one if the server refuses it: token URL
 * The lines of standard input stand for the tokens that a log-in returns. */

#include <cstdio>
#include <iostream>

#include "veltra/veltra.h"

namespace
{

/** Makes a GET with the application's settings and a token. @return the status; 0: no answer came */
int Get(const std::string& strUrl, WQCurl::TRANSFER_SETTINGS_t tSettings, const std::string& strToken)
{
    tSettings.lstHeader.push_back("Authorization: Bearer " + strToken);
    const WQCurl::CTransferScope tScope(tSettings); // an invalid one refuses the request
    _HTTP_REQ_INFO_t tRequest;
    tRequest.eMethod = HTTP_METHOD_GET;
    tRequest.strUrl = strUrl;
    const bool bAnswered = CSingleton<CWebConnector>::GetInstance()->Get(&tRequest, true);
    WQCurl::TRANSFER_REPORT_t tReport;
    WQCurl::TransferReport(tReport);
    std::printf("status %d, %zu bytes %s\n", tReport.nHttpStatus, tRequest.strResponse.size(),
                tRequest.strErrorReason.c_str());
    return bAnswered ? tReport.nHttpStatus : 0;
}

} // namespace

int main(int nArguments, char* arrArguments[])
{
    constexpr int UNAUTHORIZED = 401;
    std::string strToken;
    if (nArguments != 2 || !std::getline(std::cin, strToken))
    {
        static_cast<void>(std::fprintf(stderr, "usage: token URL <TOKENS\n"));
        return 2;
    }
    WQCurl::TRANSFER_SETTINGS_t tSettings; // those that the application uses anyway
    tSettings.nLargestAnswer = 1048576;
    CSingleton<CWebConnector>::GetInstance()->Create();
    int nStatus = Get(arrArguments[1], tSettings, strToken);
    if (nStatus == UNAUTHORIZED && std::getline(std::cin, strToken)) // once: a new token is not refused for its age
    {
        nStatus = Get(arrArguments[1], tSettings, strToken);
    }
    CSingleton<CWebConnector>::GetInstance()->Destroy();
    return nStatus == 200 ? 0 : 1;
}
