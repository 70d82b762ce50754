#include "fetch_notes.h"

#include <filesystem>
#include <glib.h>
#include <memory>
#include <sstream>

#include "file_content.h"
#include "json.h"

namespace
{

constexpr uintmax_t LARGEST_FILE = 4000000; /* bytes; a larger file was not written here */

} // namespace

std::string NoteKey(const std::string& strId)
{
    return JsonText(strId, -1);
}

std::string NoteText(const APPBIN_SERVER_INFO_t& tInfo, const std::string& strStamp)
{
    return JsonText({tInfo.strUrl, tInfo.strVersion, tInfo.strSize, tInfo.strSignature, strStamp}, -1);
}

FETCH_NOTES_t ReadNotes(const std::string& strPath)
{
    std::error_code tFault;
    std::string strContent;
    if (is_regular_file(std::filesystem::symlink_status(strPath, tFault)) &&
        std::filesystem::file_size(strPath, tFault) <= LARGEST_FILE)
    {
        static_cast<void>(ReadContent(strPath, strContent));
    }
    FETCH_NOTES_t mapNote;
    std::istringstream tContent(strContent);
    for (std::string strKey, strNote; std::getline(tContent, strKey, '\t') && std::getline(tContent, strNote);)
    {
        mapNote[strKey] = strNote;
    }
    return mapNote;
}

std::string WriteNotes(const std::string& strPath, const FETCH_NOTES_t& mapNote)
{
    std::string strContent;
    for (const auto& [strKey, strNote] : mapNote)
    {
        strContent.append(strKey).append("\t").append(strNote).append("\n");
    }
    GError* pFault = nullptr;
    /* Writes another file and renames it. */
    g_file_set_contents(strPath.c_str(), strContent.data(), static_cast<gssize>(strContent.size()), &pFault);
    const std::unique_ptr<GError, decltype(&g_error_free)> ptFault(pFault, &g_error_free);
    return ptFault == nullptr ? "" : ptFault->message;
}
