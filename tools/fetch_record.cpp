#include "fetch_record.h"

#include <filesystem>
#include <glib.h>
#include <memory>
#include <sstream>
#include <sys/stat.h>

#include "file_content.h"
#include "json.h"

namespace
{

constexpr uintmax_t LARGEST_RECORD = 4000000; /* bytes; a larger file was not written here */

/** Becomes JSON in ASCII, without tabs and line ends. */
std::string Encode(const JSON_t& tJson)
{
    return tJson.dump(-1, ' ', true, JSON_t::error_handler_t::replace);
}

/**
 * The note about an entry and its file. Notes are only compared as text, never parsed: a damaged one is as good as
 * none.
 */
std::string NoteText(const APPBIN_SERVER_INFO_t& tInfo, const std::string& strFile)
{
    struct stat tStat = {};
    static_cast<void>(stat(strFile.c_str(), &tStat));
    return Encode({tInfo.strUrl, tInfo.strVersion, tInfo.strSize, tInfo.strSignature,
                   static_cast<long long>(tStat.st_size), static_cast<long long>(tStat.st_mtim.tv_sec),
                   static_cast<long long>(tStat.st_mtim.tv_nsec)});
}

} // namespace

CFetchRecord::CFetchRecord(const std::string& strFolder) : m_strPath(strFolder + "/.veltra-fetch")
{
    std::error_code tFault;
    std::string strContent;
    if (is_regular_file(std::filesystem::symlink_status(m_strPath, tFault)) &&
        std::filesystem::file_size(m_strPath, tFault) <= LARGEST_RECORD)
    {
        static_cast<void>(ReadContent(m_strPath, strContent));
    }
    std::istringstream tContent(strContent);
    for (std::string strId, strNote; std::getline(tContent, strId, '\t') && std::getline(tContent, strNote);)
    {
        m_mapNote[strId] = strNote;
    }
}

bool CFetchRecord::IsCurrent(const APPBIN_SERVER_INFO_t& tInfo, const std::string& strFile) const
{
    const auto itNote = m_mapNote.find(Encode(tInfo.strId));
    return itNote != m_mapNote.end() && itNote->second == NoteText(tInfo, strFile);
}

void CFetchRecord::Note(const APPBIN_SERVER_INFO_t& tInfo, const std::string& strFile)
{
    m_mapNote[Encode(tInfo.strId)] = NoteText(tInfo, strFile);
}

std::string CFetchRecord::Write() const
{
    std::string strContent;
    for (const auto& [strId, strNote] : m_mapNote)
    {
        strContent += strId + "\t" + strNote + "\n";
    }
    GError* pFault = nullptr;
    /* Writes another file and renames it. */
    g_file_set_contents(m_strPath.c_str(), strContent.data(), static_cast<gssize>(strContent.size()), &pFault);
    const std::unique_ptr<GError, decltype(&g_error_free)> ptFault(pFault, &g_error_free);
    return ptFault == nullptr ? "" : ptFault->message;
}
