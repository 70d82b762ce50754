/* One download over a link that breaks; see scripts/soak.sh: broken_download async|sync URL FILE */

#include <cstring>
#include <future>

#include "veltra/veltra.h"

namespace
{

void Report(const WQCurl::TRANSFER_REPORT_t& tReport, void* /*pUserData*/)
{
    printf("%lld bytes by %d attempts in %.1f s from %s, status %d%s%s\n", tReport.nBytes, tReport.nAttempts,
           tReport.dTotal, tReport.strPeer.c_str(), tReport.nHttpStatus, tReport.strErrorMsg.empty() ? "" : ": ",
           tReport.strErrorMsg.c_str());
}

void OnEvent(int /*nId*/, DOWNLOAD_TYPE_e eType, int /*nPercent*/, double /*dSpeed*/, void* pSuccess)
{
    if (eType != DOWNLOAD_TYPE_PROGRESS)
    {
        static_cast<std::promise<bool>*>(pSuccess)->set_value(eType == DOWNLOAD_TYPE_SUCCESS);
    }
}

} // namespace

int main(int nArguments, char* arrArguments[])
{
    if (nArguments != 4)
    {
        fprintf(stderr, "usage: %s async|sync URL FILE\n", arrArguments[0]);
        return 2;
    }
    WQCurl::TRANSFER_SETTINGS_t tSettings;
    tSettings.nRetries = 5;
    WQCurl::SetTransferDefaults(tSettings);
    WQCurl::SetTransferObserver(&Report, nullptr);
    CWebConnector& tEngine = *CSingleton<CWebConnector>::GetInstance();
    tEngine.Create();
    bool bSuccess = false;
    if (strcmp(arrArguments[1], "sync") == 0)
    {
        bSuccess = tEngine.SyncDownloadFile(arrArguments[2], arrArguments[3], 0, 0);
    }
    else
    {
        std::promise<bool> tSuccess;
        bSuccess = tEngine.StartDownload(tEngine.CreateDownloadId(), arrArguments[2], arrArguments[3], &OnEvent,
                                         &tSuccess) == 1 &&
                   tSuccess.get_future().get();
    }
    tEngine.Destroy();
    return bSuccess ? 0 : 1;
}
