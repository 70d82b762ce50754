#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "commands.h"
#include "download_target.h"
#include "json.h"
#include "query.h"
#include "text.h"
#include "url.h"

namespace
{

/** One line of the table. */
struct ENTRY_t
{
    std::string strId;
    DOWNLOAD_t tDownload;
    std::string strRefusal{}; /**< why it is not downloaded; empty if it may be */
    bool bPresent = false;    /**< it was there before */
    DOWNLOAD_END_t tEnd{};

    bool IsThere() const { return bPresent || tEnd.eState == DOWNLOAD_DONE; }
    bool IsToDownload() const { return strRefusal.empty() && !bPresent; }
    const char* Result() const { return bPresent ? "present" : EndWord(tEnd); }
    std::string Reason() const { return strRefusal.empty() ? tEnd.strReason : strRefusal; }
    /** Of the file where it is there, otherwise of what has come. */
    long long Bytes() const { return bPresent ? tDownload.nSize : tEnd.tReport.nBytes; }
};

bool EndsWith(std::string_view strText, std::string_view strEnd)
{
    return strText.size() >= strEnd.size() && strText.substr(strText.size() - strEnd.size()) == strEnd;
}

/** Whether an identifier, which a server has sent, may be a file's name: it must lead nowhere and hide nothing. */
bool IsFileName(const std::string& strId)
{
    constexpr size_t LONGEST = 200;
    return !strId.empty() && strId.size() <= LONGEST && strId.front() != '.' && strId.find('/') == std::string::npos &&
           strId == Printable(strId) && !EndsWith(strId, ".bak") && !EndsWith(strId, ".unchecked");
}

/** @return -1 for a text that is no number */
long long ParseSize(const std::string& strSize)
{
    constexpr size_t MOST_DIGITS = 18;
    const bool bNumber = !strSize.empty() && strSize.size() <= MOST_DIGITS &&
                         strSize.find_first_not_of("0123456789") == std::string::npos;
    return bNumber ? strtoll(strSize.c_str(), nullptr, 10) : -1;
}

ENTRY_t MakeEntry(const OPTIONS_t& tOptions, const APPBIN_SERVER_INFO_t& tInfo)
{
    ENTRY_t tEntry{tInfo.strId, {tInfo.strUrl, tOptions.strFolder + "/" + tInfo.strId, ParseSize(tInfo.strSize)}};
    tEntry.tDownload.bDurable = tOptions.tDownload.bDurable;
    if (!IsFileName(tInfo.strId))
    {
        tEntry.strRefusal = "its identifier is no file name";
        return tEntry;
    }
    tEntry.strRefusal = TargetRefusal(tEntry.tDownload, tOptions.tDownload.bForce);
    tEntry.bPresent = tEntry.strRefusal.empty() && !tOptions.tDownload.bForce && tEntry.tDownload.nSize >= 0 &&
                      FileSize(tEntry.tDownload.strFile) == tEntry.tDownload.nSize &&
                      (!tEntry.tDownload.bDurable || SyncToStorage(tEntry.tDownload.strFile));
    return tEntry;
}

/**
 * Reads the document of the first server that has one with entries: any XML could be one without. Says on standard
 * error why others have not.
 */
bool FindDocument(CSession& tSession, const OPTIONS_t& tOptions, INFO_MAP_t& mapInfo)
{
    std::vector<std::string> vecUrl;
    if (!GetServers(tSession, tOptions, vecUrl))
    {
        return false;
    }
    for (const std::string& strUrl : vecUrl)
    {
        mapInfo.clear();
        const std::string strReason = GetInfo(tSession, tOptions, strUrl, mapInfo);
        if (!mapInfo.empty())
        {
            return true;
        }
        PrintError(WithoutCredentials(strUrl), strReason.empty() ? "the document has no such entries" : strReason);
    }
    PrintError("cannot fetch",
               vecUrl.empty() ? "the server list is empty" : "no server has a document with the entries");
    return false;
}

/** @return the exit status */
int Download(CSession& tSession, const OPTIONS_t& tOptions, std::vector<ENTRY_t>& vecEntry)
{
    std::vector<DOWNLOAD_t> vecDownload;
    for (const ENTRY_t& tEntry : vecEntry)
    {
        if (tEntry.IsToDownload())
        {
            vecDownload.push_back(tEntry.tDownload);
        }
        else if (!tEntry.bPresent)
        {
            PrintError(tEntry.strId, tEntry.strRefusal);
        }
    }
    std::vector<DOWNLOAD_END_t> vecEnd;
    const int nStatus = RunDownloads(tSession, vecDownload, tOptions.tDownload, vecEnd);
    auto itEnd = vecEnd.begin();
    for (ENTRY_t& tEntry : vecEntry)
    {
        tEntry.tEnd = tEntry.IsToDownload() ? *itEnd++ : DOWNLOAD_END_t{};
    }
    const bool bAll =
        std::all_of(vecEntry.begin(), vecEntry.end(), [](const ENTRY_t& tEntry) { return tEntry.IsThere(); });
    return nStatus == 0 && !bAll ? 1 : nStatus;
}

void PrintTable(const std::vector<ENTRY_t>& vecEntry)
{
    size_t nIdColumns = 5;
    size_t nFileColumns = 4;
    for (const ENTRY_t& tEntry : vecEntry)
    {
        nIdColumns = std::max(nIdColumns, Columns(Printable(tEntry.strId)));
        nFileColumns = std::max(nFileColumns, Columns(Printable(tEntry.tDownload.strFile)));
    }
    const auto fnPad = [](const std::string& strText, size_t nColumns)
    { return strText + std::string(nColumns - std::min(nColumns, Columns(strText)), ' '); };
    printf("%s  %s  %12s  %8s  %s\n", fnPad("Entry", nIdColumns).c_str(), fnPad("File", nFileColumns).c_str(), "Bytes",
           "Seconds", "Result");
    for (const ENTRY_t& tEntry : vecEntry)
    {
        const std::string strReason = tEntry.Reason();
        printf("%s  %s  %12lld  %8.2f  %s%s%s\n", fnPad(Printable(tEntry.strId), nIdColumns).c_str(),
               fnPad(Printable(tEntry.tDownload.strFile), nFileColumns).c_str(), tEntry.Bytes(),
               tEntry.tEnd.tReport.dTotal, tEntry.Result(), strReason.empty() ? "" : ": ",
               Printable(strReason).c_str());
    }
}

void PrintEntries(const std::vector<ENTRY_t>& vecEntry)
{
    JSON_t tJson = JSON_t::array();
    for (const ENTRY_t& tEntry : vecEntry)
    {
        JSON_t tRecord{{"entry", tEntry.strId}, {"url", tEntry.tDownload.strUrl}, {"file", tEntry.tDownload.strFile}};
        AddEnd(tRecord, tEntry.tEnd);
        tRecord["result"] = tEntry.Result();
        tRecord["reason"] = tEntry.Reason();
        tRecord["bytes"] = tEntry.Bytes();
        tJson.push_back(tRecord);
    }
    PrintJson(tJson);
}

} // namespace

int RunFetch(const OPTIONS_t& tOptions)
{
    if (const std::string strRefusal = FolderRefusal(tOptions.strFolder); !strRefusal.empty())
    {
        return PrintError(tOptions.strFolder, strRefusal);
    }
    CSession tSession(tOptions.bVerbose);
    INFO_MAP_t mapInfo;
    if (!FindDocument(tSession, tOptions, mapInfo))
    {
        return 1;
    }
    std::vector<ENTRY_t> vecEntry;
    for (const auto& [strId, tInfo] : mapInfo)
    {
        vecEntry.push_back(MakeEntry(tOptions, tInfo));
    }
    const bool bAllKnown = CheckIds(tOptions, mapInfo);
    const int nStatus = Download(tSession, tOptions, vecEntry);
    if (tOptions.bJson)
    {
        PrintEntries(vecEntry);
    }
    else if (!tOptions.bQuiet)
    {
        PrintTable(vecEntry);
    }
    return nStatus == 0 && !bAllKnown ? 1 : nStatus;
}
