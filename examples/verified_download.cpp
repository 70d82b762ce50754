/* Downloads a file that reaches its target only if it is the right one: verified_download URL FILE SIZE SHA256 */

#include <cstdio>
#include <cstdlib>

#include "veltra/veltra.h"

int main(int nArguments, char* arrArguments[])
{
    WQCurl::TRANSFER_SETTINGS_t tSettings;
    tSettings.nExpectedSize = nArguments == 5 ? std::strtoll(arrArguments[3], nullptr, 10) : -1;
    tSettings.strExpectedSha256 = nArguments == 5 ? arrArguments[4] : "";
    const WQCurl::CTransferScope tScope(tSettings);
    if (tSettings.nExpectedSize <= 0 || tSettings.strExpectedSha256.empty() || !tScope.IsValid())
    {
        static_cast<void>(std::fprintf(stderr, "usage: verified_download URL FILE SIZE SHA256\n"));
        return 2;
    }
    const std::string strTarget = arrArguments[2];
    const bool bRight = CSingleton<CWebConnector>::GetInstance()->SyncDownloadFile(arrArguments[1], strTarget, 600, 0);
    WQCurl::TRANSFER_REPORT_t tReport;
    WQCurl::TransferReport(tReport);
    /* A failed synchronous download leaves its ".bak" file, and so does a file that cannot be moved to its target. */
    const bool bStored = std::remove((strTarget + ".bak").c_str()) != 0 && bRight;
    const bool bOther = tReport.nResultCode == WQCurl::RESULT_UNEXPECTED;
    std::printf("%s\n", bStored ? "stored" : bOther ? "not the right file" : bRight ? "not moved" : "not downloaded");
    return bStored ? 0 : 1;
}
