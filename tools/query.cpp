#include "query.h"

namespace
{

/** Why a document could not be read: its transfer failed, or else what it is not. */
std::string DocumentReason(const TRANSFER_END_t& tEnd, const char* pszDocument)
{
    if (!tEnd.has_value() || tEnd->nResultCode != 0)
    {
        return Reason(tEnd);
    }
    return tEnd->nBytes == 0 ? "the answer is empty" : std::string("the answer is no ") + pszDocument;
}

} // namespace

bool GetServers(CSession& tSession, const OPTIONS_t& tOptions, std::vector<std::string>& vecUrl)
{
    constexpr char WHAT[] = "cannot get the server list";
    if (tOptions.tIdentity.strChipset.empty())
    {
        PrintError(WHAT, "the device has no chipset name (--chipset)");
        return false;
    }
    if (!ICVeltra().GetAppBinaryServerUrl(vecUrl))
    {
        PrintError(WHAT, DocumentReason(tSession.TakeEnd(), "server list whose status is \"ok\""));
        return false;
    }
    return true;
}

std::string GetInfo(CSession& tSession, const OPTIONS_t& tOptions, const std::string& strUrl, INFO_MAP_t& mapInfo)
{
    ICVeltra tQuery;
    std::vector<std::string> vecFoundId;
    bool bRead = false;
    if (tOptions.bCert)
    {
        bRead = tQuery.GetCERTAppBinaryInfo(strUrl, mapInfo, vecFoundId);
    }
    else if (tOptions.bDefault)
    {
        bRead = tQuery.GetDefaultAppBinaryInfo(strUrl, vecFoundId, mapInfo);
    }
    else
    {
        bRead = tQuery.GetServerAppBinaryInfo(strUrl, mapInfo, tOptions.vecId);
    }
    const TRANSFER_END_t tEnd = tSession.TakeEnd();
    return bRead ? "" : DocumentReason(tEnd, "well-formed XML document");
}

bool CheckIds(const OPTIONS_t& tOptions, const INFO_MAP_t& mapInfo)
{
    bool bAll = true;
    for (const std::string& strId : tOptions.vecId)
    {
        if (mapInfo.count(strId) == 0)
        {
            PrintError(strId, "the document has no such entry");
            bAll = false;
        }
    }
    return bAll;
}
