#include "query.h"

#include "messages.h"

namespace
{

/** The reason why a document could not be read: its transfer failed, or its text is not of the expected kind. */
std::string DocumentReason(const WQCurl::TRANSFER_REPORT_t& tReport, const char* pszKind)
{
    if (tReport.nHttpStatus == 0 || tReport.nResultCode != 0)
    {
        return Reason(tReport);
    }
    return tReport.nBytes == 0 ? "the answer is empty" : std::string("the answer is no ") + pszKind;
}

bool ReadEntries(const ENTRY_CHOICE_t& tChoice, const std::string& strUrl, INFO_MAP_t& mapInfo)
{
    ICVeltra tQuery;
    std::vector<std::string> vecFoundId;
    return tChoice.bCert      ? tQuery.GetCERTAppBinaryInfo(strUrl, mapInfo, vecFoundId)
           : tChoice.bDefault ? tQuery.GetDefaultAppBinaryInfo(strUrl, vecFoundId, mapInfo)
                              : tQuery.GetServerAppBinaryInfo(strUrl, mapInfo, tChoice.vecId);
}

} // namespace

bool GetServers(const CSession& tSession, std::vector<std::string>& vecUrl)
{
    constexpr char SUBJECT[] = "cannot get the server list";
    if (tSession.Options().tIdentity.strChipset.empty())
    {
        PrintError(SUBJECT, "the device has no chipset name (--chipset)");
        return false;
    }
    /* The service must not receive the header lines of -H: a token is for the servers that it names. */
    WQCurl::TRANSFER_SETTINGS_t tSettings = tSession.Settings();
    tSettings.lstHeader.clear();
    const WQCurl::CTransferScope tScope(tSettings);
    if (!ICVeltra().GetAppBinaryServerUrl(vecUrl))
    {
        PrintError(SUBJECT, DocumentReason(CurrentReport(), "server list whose status is \"ok\""));
        return false;
    }
    return true;
}

std::string GetInfo(const ENTRY_CHOICE_t& tChoice, const std::string& strUrl, INFO_MAP_t& mapInfo)
{
    if (strUrl.empty())
    {
        return "the URL is empty";
    }
    return ReadEntries(tChoice, strUrl, mapInfo) ? "" : DocumentReason(CurrentReport(), "well-formed XML document");
}

bool CheckIds(const ENTRY_CHOICE_t& tChoice, const INFO_MAP_t& mapInfo)
{
    bool bAll = true;
    for (const std::string& strId : tChoice.vecId)
    {
        if (mapInfo.count(strId) == 0)
        {
            PrintError(strId, "the document has no such entry");
            bAll = false;
        }
    }
    return bAll;
}
