#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <glib.h>

#include "commands.h"
#include "download_target.h"
#include "file_content.h"
#include "json.h"
#include "messages.h"
#include "options.h"
#include "text.h"
#include "url.h"

namespace
{

struct FETCH_OPTIONS_t
{
    std::string strFolder;
    ENTRY_CHOICE_t tChoice;
    bool bCheck = false; /**< downloads also what is present */
    DOWNLOAD_OPTIONS_t tRun;
};

/**
 * The notes about the files of one folder: for each identifier the fields of its document's entry, and the size and
 * modification time of its file. They are only compared: a damaged note is as good as none.
 */
typedef nlohmann::json NOTES_t;

NOTES_t Note(const APPBIN_SERVER_INFO_t& tInfo, const std::string& strStamp)
{
    return {tInfo.strUrl, tInfo.strVersion, tInfo.strSize, tInfo.strSignature, strStamp};
}

/** Without a readable file there are no notes. */
NOTES_t ReadNotes(const std::string& strPath)
{
    constexpr uintmax_t LARGEST_FILE = 4000000; /* bytes; a larger file was not written here */
    std::error_code tFault;
    std::string strContent;
    if (is_regular_file(std::filesystem::symlink_status(strPath, tFault)) &&
        std::filesystem::file_size(strPath, tFault) <= LARGEST_FILE)
    {
        static_cast<void>(ReadContent(strPath, strContent));
    }
    /* A damaged file may nest more deeply than a recursive function can follow. */
    const auto fnIsShallow = [](int nDepth, NOTES_t::parse_event_t /*eEvent*/, const NOTES_t& /*tPart*/)
    { return nDepth <= 2; };
    NOTES_t tNotes = NOTES_t::parse(strContent, fnIsShallow, false);
    return tNotes.is_object() ? tNotes : NOTES_t::object();
}

/** Replaces the notes. @return the failure; empty: none */
std::string WriteNotes(const std::string& strPath, const NOTES_t& tNotes)
{
    const std::string strContent = JsonText(tNotes);
    GError* pFault = nullptr;
    /* Writes another file and renames it. */
    g_file_set_contents(strPath.c_str(), strContent.data(), static_cast<gssize>(strContent.size()), &pFault);
    const std::unique_ptr<GError, decltype(&g_error_free)> ptFault(pFault, &g_error_free);
    return ptFault == nullptr ? "" : ptFault->message;
}

/**
 * Returns whether a server's identifier is a safe file name: it must not leave the folder, be hidden, drive a terminal
 * or be the name of a temporary file.
 */
bool IsFileName(const std::string& strId)
{
    constexpr size_t LONGEST = 200;
    return !strId.empty() && strId.size() <= LONGEST && strId.front() != '.' && strId.find('/') == std::string::npos &&
           strId == Printable(strId) && g_str_has_suffix(strId.c_str(), ".bak") == FALSE &&
           g_str_has_suffix(strId.c_str(), ".unflushed") == FALSE;
}

DOWNLOAD_t MakeDownload(const FETCH_OPTIONS_t& tFetch, const NOTES_t& tNotes, const APPBIN_SERVER_INFO_t& tInfo)
{
    DOWNLOAD_t tDownload{tInfo.strUrl, tFetch.strFolder + "/" + tInfo.strId, ParseSize(tInfo.strSize)};
    const std::string strStamp = FileStamp(tDownload.strFile);
    const auto itNote = tNotes.find(tInfo.strId);
    tDownload.strEntry = tInfo.strId;
    tDownload.bDurable = tFetch.tRun.bDurable;
    tDownload.strReason =
        IsFileName(tInfo.strId) ? TargetRefusal(tDownload, tFetch.tRun.bForce) : "its identifier is no file name";
    if (!tDownload.strReason.empty())
    {
        tDownload.eState = DOWNLOAD_FAILED;
        PrintError(tInfo.strId, tDownload.strReason);
    }
    else if (!tFetch.bCheck && !strStamp.empty() && itNote != tNotes.end() &&
             JsonText(*itNote) == JsonText(Note(tInfo, strStamp)) &&
             (!tDownload.bDurable || SyncToStorage(tDownload.strFile)))
    {
        tDownload.eState = DOWNLOAD_PRESENT;
        tDownload.tReport.nBytes = std::stoll(strStamp); // which begins with the size
    }
    return tDownload;
}

/**
 * Reads the document of the first server that has one with chosen entries: a document without any may be unrelated XML.
 * Prints the failures of the servers before it on standard error.
 */
bool FindDocument(CSession& tSession, const ENTRY_CHOICE_t& tChoice, INFO_MAP_t& mapInfo)
{
    std::vector<std::string> vecUrl;
    if (!GetServers(tSession, vecUrl))
    {
        return false;
    }
    for (const std::string& strUrl : vecUrl)
    {
        mapInfo.clear();
        const std::string strReason = GetInfo(tChoice, strUrl, mapInfo);
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

void PrintTable(const std::vector<DOWNLOAD_t>& vecDownload)
{
    size_t nIdColumns = 5;
    size_t nFileColumns = 4;
    for (const DOWNLOAD_t& tDownload : vecDownload)
    {
        nIdColumns = std::max(nIdColumns, Columns(Printable(tDownload.strEntry)));
        nFileColumns = std::max(nFileColumns, Columns(Printable(tDownload.strFile)));
    }
    const auto fnPad = [](const std::string& strText, size_t nColumns)
    { return strText + std::string(nColumns - std::min(nColumns, Columns(strText)), ' '); };
    printf("%s  %s  %12s  %8s  %s\n", fnPad("Entry", nIdColumns).c_str(), fnPad("File", nFileColumns).c_str(), "Bytes",
           "Seconds", "Result");
    for (const DOWNLOAD_t& tDownload : vecDownload)
    {
        printf("%s  %s  %12lld  %8.2f  %s%s%s\n", fnPad(Printable(tDownload.strEntry), nIdColumns).c_str(),
               fnPad(Printable(tDownload.strFile), nFileColumns).c_str(), tDownload.tReport.nBytes,
               tDownload.tReport.dTotal, ResultName(tDownload).c_str(), tDownload.strReason.empty() ? "" : ": ",
               Printable(tDownload.strReason).c_str());
    }
}

int RunFetch(const OPTIONS_t& tOptions, const FETCH_OPTIONS_t& tFetch)
{
    if (const std::string strRefusal = FolderRefusal(tFetch.strFolder); !strRefusal.empty())
    {
        return PrintError(tFetch.strFolder, strRefusal);
    }
    CSession tSession(tOptions, tFetch.tRun.bFailOnHttpError);
    INFO_MAP_t mapInfo;
    if (!FindDocument(tSession, tFetch.tChoice, mapInfo))
    {
        return ExitStatus(CurrentReport());
    }
    const std::string strNotes = tFetch.strFolder + "/.veltra-fetch";
    NOTES_t tNotes = ReadNotes(strNotes);
    std::vector<DOWNLOAD_t> vecDownload;
    for (const auto& [strId, tInfo] : mapInfo)
    {
        vecDownload.push_back(MakeDownload(tFetch, tNotes, tInfo));
    }
    const bool bAllKnown = CheckIds(tFetch.tChoice, mapInfo);
    const int nStatus = RunDownloads(tSession, vecDownload, tFetch.tRun);
    for (const DOWNLOAD_t& tDownload : vecDownload)
    {
        if (tDownload.eState == DOWNLOAD_DONE)
        {
            tNotes[tDownload.strEntry] = Note(mapInfo.at(tDownload.strEntry), tDownload.strStamp);
        }
    }
    const std::string strFailure = WriteNotes(strNotes, tNotes);
    if (tFetch.tRun.bJson)
    {
        PrintResults(vecDownload);
    }
    else if (!tFetch.tRun.bQuiet)
    {
        PrintTable(vecDownload);
    }
    if (!strFailure.empty())
    {
        PrintError(strNotes, strFailure);
    }
    return nStatus == 0 && !(bAllKnown && strFailure.empty()) ? 1 : nStatus;
}

} // namespace

void AddFetchCommand(const ADD_COMMAND_t& fnAdd, WQCurl::TRANSFER_SETTINGS_t& tTransfer)
{
    const auto ptFetch = std::make_shared<FETCH_OPTIONS_t>();
    ptFetch->tRun.bTable = true;
    CLI::App& tCommand = fnAdd("fetch", "The main job: get the servers, read a document and download its entries",
                               [ptFetch](const OPTIONS_t& tOptions) { return RunFetch(tOptions, *ptFetch); });
    tCommand.add_option("DIR", ptFetch->strFolder, "The folder for the files, which are named after the entries")
        ->required();
    AddEntryOptions(tCommand, ptFetch->tChoice);
    tCommand.add_flag("--check", ptFetch->bCheck, "Download also what is present");
    AddRunOptions(tCommand, ptFetch->tRun, tTransfer);
}
