#include "download_target.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <glib.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr char UNCHECKED[] = ".unchecked";
constexpr char TEMPORARY[] = ".bak"; /* the engine's */

/** Whether the engine puts it beside its target, because something is to be done before it may replace that. */
bool IsHeldBack(const DOWNLOAD_t& tDownload)
{
    return tDownload.nSize >= 0 || !tDownload.strSha256.empty() || tDownload.bDurable;
}

/** The kind of file that stands at a path, not followed if that is a link; 0 when there is none. */
mode_t FileKind(const std::string& strPath)
{
    struct stat tStat = {};
    return lstat(strPath.c_str(), &tStat) == 0 ? tStat.st_mode & static_cast<mode_t>(S_IFMT) : 0;
}

std::string KindRefusal(const std::string& strPath)
{
    switch (FileKind(strPath))
    {
    case 0:
    case S_IFREG:
        return "";
    case S_IFDIR:
        return "is a folder";
    case S_IFLNK:
        return "is a symbolic link";
    default:
        return "is no regular file";
    }
}

/** In small letters; empty when the file cannot be read. */
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

std::string CheckFailure(const DOWNLOAD_t& tDownload, const std::string& strPath)
{
    const long long nSize = FileSize(strPath);
    if (tDownload.nSize >= 0 && nSize != tDownload.nSize)
    {
        return "wrong size: " + std::to_string(nSize) + " bytes instead of " + std::to_string(tDownload.nSize);
    }
    const std::string strSum = tDownload.strSha256.empty() ? "" : Sha256(strPath);
    return strSum == tDownload.strSha256 ? "" : "wrong SHA-256: " + strSum;
}

/** Brings the file at a path to storage, if it is to survive a power cut. @return why that failed */
std::string StorageFailure(const DOWNLOAD_t& tDownload, const std::string& strPath)
{
    return !tDownload.bDurable || SyncToStorage(strPath) ? "" : "cannot be brought to storage: " + SystemText(errno);
}

} // namespace

std::string EnginePath(const DOWNLOAD_t& tDownload)
{
    return tDownload.strFile + (IsHeldBack(tDownload) ? UNCHECKED : "");
}

std::string TempPath(const DOWNLOAD_t& tDownload)
{
    return EnginePath(tDownload) + TEMPORARY;
}

std::string FolderOf(const std::string& strPath)
{
    const size_t nSlash = strPath.rfind('/');
    return nSlash == std::string::npos ? "." : strPath.substr(0, nSlash + 1);
}

std::string FolderRefusal(const std::string& strFolder)
{
    struct stat tStat = {};
    if (stat(strFolder.c_str(), &tStat) != 0)
    {
        return SystemText(errno);
    }
    if (!S_ISDIR(tStat.st_mode))
    {
        return SystemText(ENOTDIR);
    }
    return access(strFolder.c_str(), W_OK | X_OK) == 0 ? "" : SystemText(errno);
}

long long FileSize(const std::string& strPath)
{
    struct stat tStat = {};
    return stat(strPath.c_str(), &tStat) == 0 ? static_cast<long long>(tStat.st_size) : -1;
}

std::vector<std::string> SidePaths(const DOWNLOAD_t& tDownload)
{
    std::vector<std::string> vecPath{TempPath(tDownload)};
    if (IsHeldBack(tDownload))
    {
        vecPath.push_back(EnginePath(tDownload));
    }
    return vecPath;
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

std::string CheckAndMove(const DOWNLOAD_t& tDownload, const CHeldFile& tHeld, long long nBytes)
{
    const std::string strLost = "another process has removed or replaced it, or " + TempPath(tDownload);
    const std::string strPath = EnginePath(tDownload);
    if (tHeld.IsAt(TempPath(tDownload)))
    {
        return "cannot be moved into place: it stays in " + TempPath(tDownload);
    }
    if (!tHeld.IsAt(strPath))
    {
        return strLost;
    }
    std::string strFailure = tHeld.Size() == nBytes ? "" : "another process has written to it";
    if (!IsHeldBack(tDownload))
    {
        return strFailure;
    }
    strFailure = strFailure.empty() ? CheckFailure(tDownload, strPath) : strFailure;
    strFailure = strFailure.empty() ? StorageFailure(tDownload, strPath) : strFailure;
    if (strFailure.empty() && rename(strPath.c_str(), tDownload.strFile.c_str()) != 0)
    {
        strFailure = "cannot be moved into place: " + SystemText(errno);
    }
    if (!strFailure.empty())
    {
        static_cast<void>(remove(strPath.c_str()));
        return strFailure;
    }
    strFailure = StorageFailure(tDownload, tDownload.strFile); // its new name
    return strFailure.empty() && !tHeld.IsAt(tDownload.strFile) ? strLost : strFailure;
}
