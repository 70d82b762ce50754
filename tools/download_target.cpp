#include "download_target.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <glib.h>
#include <memory>
#include <set>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

#include "messages.h"

namespace
{

constexpr char UNCHECKED[] = ".unchecked";
constexpr char TEMPORARY[] = ".bak"; /* fixed by the engine */

/** Returns whether the file must be checked or flushed before it replaces its target. */
bool IsStaged(const DOWNLOAD_t& tDownload)
{
    return tDownload.nSize >= 0 || !tDownload.strSha256.empty() || tDownload.bDurable;
}

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

/** @return the checksum in small letters; empty if the file cannot be read */
std::string Sha256(const std::string& strPath)
{
    const std::unique_ptr<GChecksum, decltype(&g_checksum_free)> pSum(g_checksum_new(G_CHECKSUM_SHA256),
                                                                      &g_checksum_free);
    const std::unique_ptr<FILE, int (*)(FILE*)> pFile(fopen(strPath.c_str(), "rbe"), &fclose);
    if (pFile == nullptr)
    {
        return "";
    }
    std::array<guchar, 65536> arrData{};
    for (size_t nRead = 0; (nRead = fread(arrData.data(), 1, arrData.size(), pFile.get())) > 0;)
    {
        g_checksum_update(pSum.get(), arrData.data(), static_cast<gssize>(nRead));
    }
    return ferror(pFile.get()) == 0 ? g_checksum_get_string(pSum.get()) : "";
}

/** Flushes a file of a durable download to storage. @return the failure; empty: none */
std::string StorageFailure(const DOWNLOAD_t& tDownload, const std::string& strPath)
{
    return !tDownload.bDurable || SyncToStorage(strPath) ? "" : "cannot be flushed to storage: " + SystemText(errno);
}

/** Checks a file that has arrived, and flushes it. @return the failure; empty: none */
std::string CheckFailure(const DOWNLOAD_t& tDownload, const CHeldFile& tHeld)
{
    const long long nSize = tHeld.Size();
    if (nSize != tDownload.tEnd.tReport.nBytes)
    {
        return "another process has written to it";
    }
    if (tDownload.nSize >= 0 && nSize != tDownload.nSize)
    {
        return "wrong size: " + std::to_string(nSize) + " bytes instead of " + std::to_string(tDownload.nSize);
    }
    const std::string strPath = EnginePath(tDownload);
    const std::string strSum = tDownload.strSha256.empty() ? "" : Sha256(strPath);
    return strSum == tDownload.strSha256 ? StorageFailure(tDownload, strPath) : "wrong SHA-256: " + strSum;
}

/** @return the files beside the target that a download creates and moves away again */
std::vector<std::string> SidePaths(const DOWNLOAD_t& tDownload)
{
    std::vector<std::string> vecPath{TempPath(tDownload)};
    if (IsStaged(tDownload))
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

} // namespace

std::string EnginePath(const DOWNLOAD_t& tDownload)
{
    return tDownload.strFile + (IsStaged(tDownload) ? UNCHECKED : "");
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
    CHeldFile tHeld;
    const int nError = tHeld.Create(TempPath(tDownload));
    RemoveHeld(tDownload, tHeld);
    return nError == 0 ? "cannot be started; the library's log (-v) says why"
                       : TempPath(tDownload) + ": " + SystemText(nError);
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

void RemoveHeld(const DOWNLOAD_t& tDownload, const CHeldFile& tHeld)
{
    for (const std::string& strPath : SidePaths(tDownload))
    {
        if (tHeld.IsAt(strPath))
        {
            static_cast<void>(remove(strPath.c_str()));
        }
    }
}

std::string CheckAndMove(const DOWNLOAD_t& tDownload, const CHeldFile& tHeld)
{
    std::string strLost = "another process has removed or replaced it, or " + TempPath(tDownload);
    const std::string strPath = EnginePath(tDownload);
    if (tHeld.IsAt(TempPath(tDownload)))
    {
        return "cannot be moved into place: it stays in " + TempPath(tDownload);
    }
    if (!tHeld.IsAt(strPath))
    {
        return strLost;
    }
    std::string strFailure = CheckFailure(tDownload, tHeld);
    if (!IsStaged(tDownload))
    {
        return strFailure;
    }
    if (strFailure.empty() && rename(strPath.c_str(), tDownload.strFile.c_str()) != 0)
    {
        strFailure = "cannot be moved into place: " + SystemText(errno);
    }
    if (!strFailure.empty())
    {
        static_cast<void>(remove(strPath.c_str()));
        return strFailure;
    }
    strFailure = StorageFailure(tDownload, tDownload.strFile); // flushes the new name
    return strFailure.empty() && !tHeld.IsAt(tDownload.strFile) ? strLost : strFailure;
}
