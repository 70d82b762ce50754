#include "veltra/engine/temp_file.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#define VELTRA_LOG_MODULE "WebConnector"
#include "veltra/log.h"

static_assert(sizeof(off_t) == 8, "files over 2 GiB need _FILE_OFFSET_BITS=64");

namespace
{

constexpr char SUFFIX[] = ".bak";

/** Returns the type of the file at a path, without following a link; 0 if there is none. */
mode_t FileType(const std::string& strPath)
{
    struct stat tStat = {};
    return lstat(strPath.c_str(), &tStat) == 0 ? tStat.st_mode & S_IFMT : 0;
}

bool IsSymbolicLink(const std::string& strPath, LOG_PLACE_t tPlace)
{
    const bool bLink = FileType(strPath) == S_IFLNK;
    if (bLink)
    {
        VELTRA_LOG_ERROR_AT(tPlace, "path [%s] is a symb link! there's security risk!", strPath.c_str());
    }
    return bLink;
}

/** Tells whether a target is a device, pipe or socket. A folder is none of them: there the rename fails. */
bool IsSpecialFile(const std::string& strPath, LOG_PLACE_t tPlace)
{
    const mode_t eType = FileType(strPath);
    const bool bSpecial = eType != 0 && eType != S_IFREG && eType != S_IFLNK && eType != S_IFDIR;
    if (bSpecial)
    {
        VELTRA_LOG_ERROR_AT(tPlace, "Path [%s] is no regular file!", strPath.c_str());
    }
    return bSpecial;
}

/**
 * Opens and empties a regular file. Another process may exchange the file meanwhile: links are not followed, and pipes
 * are not waited for.
 */
FILE* TakeOverFile(const char* pszPath)
{
    constexpr mode_t MODE = 0666; // the mode that fopen() gives, if the file has been removed meanwhile
    const int nFile = open(pszPath, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, MODE);
    struct stat tStat = {};
    const bool bRegular = nFile >= 0 && fstat(nFile, &tStat) == 0 && S_ISREG(tStat.st_mode);
    FILE* pFile = bRegular ? fdopen(nFile, "wb") : nullptr;
    if (pFile == nullptr && nFile >= 0)
    {
        close(nFile);
    }
    return pFile;
}

} // namespace

bool IsPath(const std::string& strFilePath)
{
    return !strFilePath.empty() && strFilePath.find('\0') == std::string::npos;
}

std::string TempPath(const std::string& strFilePath)
{
    return strFilePath + SUFFIX;
}

std::string TargetPath(std::string strTempFilePath)
{
    if (!strTempFilePath.empty())
    {
        strTempFilePath.erase(strTempFilePath.size() - (sizeof SUFFIX - 1));
    }
    return strTempFilePath;
}

bool TempFileExists(const std::string& strTempFilePath, LOG_PLACE_t tPlace)
{
    const bool bExists = access(strTempFilePath.c_str(), F_OK) == 0;
    if (bExists)
    {
        VELTRA_LOG_ERROR_AT(tPlace, "File [%s] is already downloading, return!", strTempFilePath.c_str());
    }
    return bExists;
}

FILE_PTR_t OpenTempFile(const std::string& strTempFilePath, bool bTakeOver, LOG_PLACE_t tPlace)
{
    if (IsSpecialFile(TargetPath(strTempFilePath), tPlace))
    {
        return nullptr;
    }
    const char* pszPath = strTempFilePath.c_str();
    FILE_PTR_t pFile(fopen(pszPath, "wbxe"));
    if (pFile == nullptr && errno == EEXIST && bTakeOver)
    {
        pFile.reset(TakeOverFile(pszPath));
    }
    const int nError = errno;
    /* Opening follows no link. A link that is there now has prevented it, or has replaced the new file. */
    if (IsSymbolicLink(strTempFilePath, tPlace))
    {
        return nullptr;
    }
    if (pFile == nullptr && bTakeOver)
    {
        VELTRA_LOG_ERROR_AT(tPlace, "Failed to open file = [%s]", pszPath);
        return nullptr;
    }
    if (pFile == nullptr)
    {
        char szBuffer[256] = "";
        const char* pszText = strerror_r(nError, szBuffer, sizeof szBuffer);
        VELTRA_LOG_ERROR_AT(tPlace, "Failed to create file = [%s], errno[%d], errmsg[%s, %s]", pszPath, nError, pszText,
                            szBuffer);
        return nullptr;
    }
    static_cast<void>(setvbuf(pFile.get(), nullptr, _IONBF, 0)); // a full disk fails the write, not only the close
    return pFile;
}

bool FlushAndClose(FILE_PTR_t pFile)
{
    const bool bFlushed = fflush(pFile.get()) == 0 && (fsync(fileno(pFile.get())) == 0 || errno == EINVAL);
    return fclose(pFile.release()) == 0 && bFlushed;
}
