#include "commands.h"
#include "json.h"

namespace
{

std::vector<DOWNLOAD_t> Downloads(const OPTIONS_t& tOptions)
{
    std::vector<DOWNLOAD_t> vecDownload;
    for (size_t nIndex = 0; nIndex + 1 < tOptions.vecUrlAndFile.size(); nIndex += 2)
    {
        vecDownload.push_back({tOptions.vecUrlAndFile[nIndex], tOptions.vecUrlAndFile[nIndex + 1], tOptions.nSize,
                               tOptions.strSha256, tOptions.tDownload.bDurable});
    }
    return vecDownload;
}

} // namespace

int RunDownload(const OPTIONS_t& tOptions)
{
    const std::vector<DOWNLOAD_t> vecDownload = Downloads(tOptions);
    if (!CheckTargets(vecDownload, tOptions.tDownload.bForce))
    {
        return 1;
    }
    CSession tSession(tOptions.bVerbose);
    std::vector<DOWNLOAD_END_t> vecEnd;
    const int nStatus = RunDownloads(tSession, vecDownload, tOptions.tDownload, vecEnd);
    if (tOptions.bJson)
    {
        JSON_t tJson = JSON_t::array();
        for (size_t nIndex = 0; nIndex < vecEnd.size(); ++nIndex)
        {
            JSON_t tRecord{{"url", vecDownload[nIndex].strUrl}, {"file", vecDownload[nIndex].strFile}};
            AddEnd(tRecord, vecEnd[nIndex]);
            tJson.push_back(tRecord);
        }
        PrintJson(tJson);
    }
    return nStatus;
}
