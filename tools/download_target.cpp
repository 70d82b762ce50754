#include "download_target.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <set>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

#include "messages.h"

namespace
{

constexpr char UNFLUSHED[] = ".unflushed";
constexpr char TEMPORARY[] = ".bak"; /* fixed by the engine */

/** @return the type bits of the file at a path, without following a link; 0 if none exists */
mode_t FileKind(const std::string& strPath)
{
    struct stat tStat = {};
    return lstat(strPath.c_str(), &tStat) == 0 ? tStat.st_mode & static_cast<mode_t>(S_IFMT) : 0;
}

std::string KindRefusal(const std::string& strPath)
{
    const mode_t eKind = FileKind(strPath);
    if (eKind == 0 || eKind == S_IFREG)
    {
        return "";
    }
    return eKind == S_IFDIR ? "is a folder" : eKind == S_IFLNK ? "is a symbolic link" : "is no regular file";
}

/** @return the files beside the target that a download creates and moves away again */
std::vector<std::string> SidePaths(const DOWNLOAD_t& tDownload)
{
    std::vector<std::string> vecPath{TempPath(tDownload)};
    if (tDownload.bDurable)
    {
        vecPath.push_back(EnginePath(tDownload));
    }
    return vecPath;
}

std::string FolderOf(const std::string& strPath)
{
    const size_t nSlash = strPath.rfind('/');
    return nSlash == std::string::npos ? "." : strPath.substr(0, nSlash + 1);
}

/** File names with the device and the inode of their folder. */
typedef std::set<std::tuple<dev_t, ino_t, std::string>> NAME_SET_t;

/** Adds all names of a download. @return false if a name was added before */
bool AddNames(const DOWNLOAD_t& tDownload, NAME_SET_t& setName)
{
    struct stat tFolder = {};
    std::vector<std::string> vecPath = SidePaths(tDownload);
    vecPath.push_back(tDownload.strFile);
    bool bNew = true;
    static_cast<void>(stat(FolderOf(tDownload.strFile).c_str(), &tFolder));
    for (const std::string& strPath : vecPath)
    {
        bNew = setName.emplace(tFolder.st_dev, tFolder.st_ino, strPath.substr(strPath.rfind('/') + 1)).second && bNew;
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

long long FileSize(const std::string& strPath)
{
    struct stat tStat = {};
    return stat(strPath.c_str(), &tStat) == 0 ? static_cast<long long>(tStat.st_size) : -1;
}

std::string TargetRefusal(const DOWNLOAD_t& tDownload, bool bForce)
{
    if (std::string strRefusal = FolderRefusal(FolderOf(tDownload.strFile)); !strRefusal.empty())
    {
        return strRefusal;
    }
    if (std::string strRefusal = KindRefusal(tDownload.strFile); !strRefusal.empty())
    {
        return strRefusal;
    }
    for (const std::string& strPath : SidePaths(tDownload))
    {
        const mode_t eKind = FileKind(strPath);
        if (CHeldFile::IsHeld(strPath))
        {
            return strPath + " exists: another download is writing it";
        }
        if (eKind != 0 && !(bForce && eKind == S_IFREG))
        {
            return strPath + " exists: another download is writing it, or one that was killed left it" +
                   (eKind == S_IFREG ? " (--force takes it over)" : "");
        }
    }
    return "";
}

bool CheckTargets(const std::vector<DOWNLOAD_t>& vecDownload, bool bForce)
{
    bool bAll = true;
    NAME_SET_t setName;
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

std::string StartFailure(const DOWNLOAD_t& tDownload, bool bForce)
{
    if (std::string strRefusal = TargetRefusal(tDownload, bForce); !strRefusal.empty())
    {
        return strRefusal;
    }
    const std::string strPath = TempPath(tDownload);
    const int nFile = open(strPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600); // tells the cause
    if (nFile < 0)
    {
        return strPath + ": " + SystemText(errno);
    }
    close(nFile);
    static_cast<void>(remove(strPath.c_str()));
    return "cannot be started; the library's log (-v) says why";
}

void RemoveLeftOvers(const DOWNLOAD_t& tDownload)
{
    for (const std::string& strPath : SidePaths(tDownload))
    {
        if (!CHeldFile::IsHeld(strPath))
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
    const bool bWhole = tHeld.Size() == tDownload.tEnd.tReport.nBytes;
    const bool bMoved = bWhole && (!tDownload.bDurable || MoveDurably(strPath, tDownload.strFile));
    const int nError = errno;
    if (bWhole && bMoved)
    {
        return tHeld.IsAt(tDownload.strFile) ? "" : "another process has removed or replaced it";
    }
    if (tDownload.bDurable)
    {
        static_cast<void>(remove(strPath.c_str()));
    }
    return bWhole ? "cannot be flushed to storage: " + SystemText(nError) : "another process has written to it";
}
