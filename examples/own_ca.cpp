/* Makes an https request to a server with a certificate of one's own authority: own_ca CA-FILE URL */

#include <cstdio>
#include <unistd.h>

#include "veltra/veltra.h"

int main(int nArguments, char* arrArguments[])
{
    if (nArguments != 3)
    {
        static_cast<void>(std::fprintf(stderr, "usage: own_ca CA-FILE URL\n"));
        return 2;
    }
    WQCurl::TRANSFER_SETTINGS_t tSettings;
    tSettings.strCaFile = arrArguments[1]; // trusted alone
    /* Without this file each https request would fail. */
    if (access(arrArguments[1], R_OK) != 0)
    {
        std::perror(arrArguments[1]);
        return 1;
    }
    /* A transfer keeps the settings that hold when it begins. */
    if (!WQCurl::SetTransferDefaults(tSettings))
    {
        return 1;
    }
    CWebConnector* ptEngine = CSingleton<CWebConnector>::GetInstance();
    ptEngine->Create();
    _HTTP_REQ_INFO_t tRequest;
    tRequest.eMethod = HTTP_METHOD_GET;
    tRequest.strUrl = arrArguments[2];
    const bool bAnswered = ptEngine->Get(&tRequest, true);
    std::printf("%s\n", bAnswered ? tRequest.strResponse.c_str() : tRequest.strErrorReason.c_str());
    ptEngine->Destroy();
    return bAnswered ? 0 : 1;
}
