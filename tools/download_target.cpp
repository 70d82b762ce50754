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

std::string TargetRefusal(const DOWNLOAD_t& tDownload, bool bForce)
{
    if (tDownload.strFile.empty())
    {
        return "a download needs a file's name";
    }
    if (std::string strRefusal = FolderRefusal(FolderOf(tDownload.strFile)); !strRefusal.empty())
    {
        return strRefusal;
    }
    if (std::string strRefusal = KindRefusal(tDownload.strFile); !strRefusal.empty())
    {
        return strRefusal;
    }
    for (const std::string& strPath : {TempPath(tDownload), EnginePath(tDownload)})
    {
        const bool bInTheWay = strPath != tDownload.strFile && FileKind(strPath) != 0;
        if (bInTheWay && !(bForce && FileKind(strPath) == S_IFREG))
        {
            return strPath + " exists: another download is writing it, or one that was killed left it" +
                   (FileKind(strPath) == S_IFREG ? " (--force takes it over)" : "");
        }
    }
    return "";
}

void RemoveLeftOvers(const DOWNLOAD_t& tDownload)
{
    static_cast<void>(remove(TempPath(tDownload).c_str()));
    if (IsHeldBack(tDownload))
    {
        static_cast<void>(remove(EnginePath(tDownload).c_str()));
    }
}

std::string CheckAndMove(const DOWNLOAD_t& tDownload)
{
    if (FileKind(TempPath(tDownload)) != 0)
    {
        return "cannot be moved into place: it stays in " + TempPath(tDownload);
    }
    if (!IsHeldBack(tDownload))
    {
        return "";
    }
    const std::string strPath = EnginePath(tDownload);
    std::string strFailure = CheckFailure(tDownload, strPath);
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
    return StorageFailure(tDownload, tDownload.strFile); // its new name
}
