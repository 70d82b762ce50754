#include "download_target.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

#include "messages.h"
#include "text.h"

namespace
{

constexpr char UNFLUSHED[] = ".unflushed";
constexpr char TEMPORARY[] = ".bak"; /* fixed by the engine */

std::string KindRefusal(const std::string& strPath)
{
    typedef std::filesystem::file_type TYPE_t;
    std::error_code tFault;
    const TYPE_t eType = std::filesystem::symlink_status(strPath, tFault).type();
    if (eType == TYPE_t::none)
    {
        return tFault.message();
    }
    const bool bGood = eType == TYPE_t::not_found || eType == TYPE_t::regular;
    return bGood ? "" : eType == TYPE_t::symlink ? "is a symbolic link" : "is no regular file";
}

/** @return the files that a download creates: those that it moves away again, and the target at the end */
std::vector<std::string> Paths(const DOWNLOAD_t& tDownload)
{
    std::vector<std::string> vecPath{TempPath(tDownload), tDownload.strFile};
    if (tDownload.bDurable)
    {
        vecPath.insert(vecPath.begin(), EnginePath(tDownload));
    }
    return vecPath;
}

std::string FolderOf(const std::string& strPath)
{
    const size_t nSlash = strPath.rfind('/');
    return nSlash == std::string::npos ? "." : strPath.substr(0, nSlash + 1);
}

/** Adds all names of a download. @return false if a name was added before */
bool AddNames(const DOWNLOAD_t& tDownload, std::set<std::string>& setName)
{
    std::error_code tFault;
    const std::string strFolder = canonical(std::filesystem::path(FolderOf(tDownload.strFile)), tFault);
    bool bNew = true;
    for (const std::string& strPath : Paths(tDownload))
    {
        bNew = setName.insert(strFolder + "/" + strPath.substr(strPath.rfind('/') + 1)).second && bNew;
    }
    return bNew;
}

/** Moves a file so that its target is whole at any moment, also after a power cut. @return false, with errno */
bool MoveDurably(const std::string& strPath, const std::string& strTarget)
{
    return SyncToStorage(strPath) && rename(strPath.c_str(), strTarget.c_str()) == 0 && SyncToStorage(strTarget);
}

} // namespace

std::string EnginePath(const DOWNLOAD_t& tDownload)
{
    return tDownload.strFile + (tDownload.bDurable ? UNFLUSHED : "");
}

std::string TempPath(const DOWNLOAD_t& tDownload)
{
    return EnginePath(tDownload) + TEMPORARY;
}

std::string FolderRefusal(const std::string& strFolder)
{
    /* "/." makes this fail for a path that is no folder. */
    return access((strFolder + "/.").c_str(), W_OK | X_OK) == 0 ? "" : SystemText(errno);
}

std::string FileStamp(const std::string& strPath)
{
    struct stat tStat = {};
    return stat(strPath.c_str(), &tStat) != 0
               ? ""
               : Format("%lld %lld.%09ld", static_cast<long long>(tStat.st_size),
                        static_cast<long long>(tStat.st_mtim.tv_sec), static_cast<long>(tStat.st_mtim.tv_nsec));
}

std::string TargetRefusal(const DOWNLOAD_t& tDownload, bool bForce)
{
    if (std::string strRefusal = FolderRefusal(FolderOf(tDownload.strFile)); !strRefusal.empty())
    {
        return strRefusal;
    }
    for (const std::string& strPath : Paths(tDownload))
    {
        const bool bTarget = strPath == tDownload.strFile;
        if (const std::string strKind = KindRefusal(strPath); !strKind.empty())
        {
            return bTarget ? strKind : Format("%s: %s", strPath.c_str(), strKind.c_str());
        }
        if (!bTarget && CHeldFile::IsHeld(strPath))
        {
            return strPath + " exists: another download is writing it";
        }
        if (!bTarget && !bForce && access(strPath.c_str(), F_OK) == 0)
        {
            return strPath +
                   " exists: another download is writing it, or one that was killed left it (--force takes it over)";
        }
    }
    return "";
}

bool CheckTargets(const std::vector<DOWNLOAD_t>& vecDownload, bool bForce)
{
    bool bAll = true;
    std::set<std::string> setName;
    for (const DOWNLOAD_t& tDownload : vecDownload)
    {
        std::string strRefusal = TargetRefusal(tDownload, bForce);
        if (strRefusal.empty() && !AddNames(tDownload, setName))
        {
            strRefusal = "is named twice, counting the names of temporary files";
        }
        if (!strRefusal.empty())
        {
            PrintError(tDownload.strFile, strRefusal);
            bAll = false;
        }
    }
    return bAll;
}

void RemoveLeftOvers(const DOWNLOAD_t& tDownload)
{
    for (const std::string& strPath : Paths(tDownload))
    {
        if (strPath != tDownload.strFile && !CHeldFile::IsHeld(strPath))
        {
            static_cast<void>(remove(strPath.c_str()));
        }
    }
}

std::string ArrivalFailure(const DOWNLOAD_t& tDownload, const CHeldFile& tHeld)
{
    const std::string strPath = EnginePath(tDownload);
    if (tHeld.IsAt(TempPath(tDownload)))
    {
        return "cannot be moved into place: it stays in " + TempPath(tDownload);
    }
    if (!tHeld.IsAt(strPath))
    {
        return "another process has removed or replaced it, or " + TempPath(tDownload);
    }
    std::string strFailure;
    if (tHeld.Size() != tDownload.tReport.nBytes)
    {
        strFailure = "another process has written to it";
    }
    else if (tDownload.bDurable && !MoveDurably(strPath, tDownload.strFile))
    {
        strFailure = "cannot be flushed to storage: " + SystemText(errno);
    }
    else
    {
        return tHeld.IsAt(tDownload.strFile) ? "" : "another process has removed or replaced it";
    }
    if (tDownload.bDurable)
    {
        static_cast<void>(remove(strPath.c_str()));
    }
    return strFailure;
}
