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

/** The kind of file that stands at a path, not followed if that is a link; 0 when there is none. */
mode_t FileKind(const std::string& strPath)
{
    struct stat tStat = {};
    return lstat(strPath.c_str(), &tStat) == 0 ? tStat.st_mode & S_IFMT : 0;
}

bool IsSymbolicLink(const std::string& strPath, LOG_PLACE_t tPlace)
{
    const bool bLink = FileKind(strPath) == S_IFLNK;
    if (bLink)
    {
        VELTRA_LOG_ERROR_AT(tPlace, "path [%s] is a symb link! there's security risk!", strPath.c_str());
    }
    return bLink;
}

/** True for a target that must not be replaced: a device, pipe or socket. A folder cannot be, which shows later. */
bool IsSpecialFile(const std::string& strPath, LOG_PLACE_t tPlace)
{
    const mode_t eKind = FileKind(strPath);
    const bool bSpecial = eKind != 0 && eKind != S_IFREG && eKind != S_IFLNK && eKind != S_IFDIR;
    if (bSpecial)
    {
        VELTRA_LOG_ERROR_AT(tPlace, "Path [%s] is no regular file!", strPath.c_str());
    }
    return bSpecial;
}

/** Opening through a link would create, or empty, the file that it points to. */
bool IsWayFree(const std::string& strTempFilePath, LOG_PLACE_t tPlace)
{
    return !IsSymbolicLink(strTempFilePath, tPlace) && !IsSpecialFile(TargetPath(strTempFilePath), tPlace);
}

/**
 * Opens a regular file for writing, unbuffered: a full disk then fails the write itself and not, unseen, the closing.
 * What another process may put at the path meanwhile costs nothing: a link is not followed and a pipe not waited for.
 * @param bTakeOver true empties and takes a file that is there already, false refuses then
 * @return null with errno when there is none; a file that was made for it is gone again
 */
FILE_PTR_t OpenFile(const std::string& strPath, bool bTakeOver)
{
    constexpr int FLAGS = O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    constexpr mode_t MODE = 0666; // as fopen() gives, less the process's mask
    int nFile = open(strPath.c_str(), FLAGS | O_EXCL, MODE);
    const bool bMade = nFile >= 0;
    if (!bMade && errno == EEXIST && bTakeOver)
    {
        nFile = open(strPath.c_str(), FLAGS | O_TRUNC, MODE);
    }
    struct stat tStat = {};
    const bool bRegular = nFile >= 0 && fstat(nFile, &tStat) == 0 && S_ISREG(tStat.st_mode);
    FILE_PTR_t pFile(bRegular ? fdopen(nFile, "wb") : nullptr);
    if (pFile != nullptr)
    {
        static_cast<void>(setvbuf(pFile.get(), nullptr, _IONBF, 0));
        return pFile;
    }
    const int nError = nFile >= 0 && !bRegular ? EINVAL : errno;
    if (nFile >= 0)
    {
        close(nFile);
    }
    if (bMade)
    {
        static_cast<void>(remove(strPath.c_str()));
    }
    errno = nError;
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

FILE_PTR_t CreateTempFile(const std::string& strTempFilePath, bool& bExists, LOG_PLACE_t tPlace)
{
    const char* pszPath = strTempFilePath.c_str();
    bExists = access(pszPath, F_OK) == 0;
    if (bExists)
    {
        VELTRA_LOG_ERROR_AT(tPlace, "File [%s] is already downloading, return!", pszPath);
        return nullptr;
    }
    if (!IsWayFree(strTempFilePath, tPlace)) // a link to nothing has passed that test
    {
        return nullptr;
    }
    FILE_PTR_t pFile = OpenFile(strTempFilePath, false);
    if (pFile == nullptr)
    {
        const int nError = errno;
        char szBuffer[256] = "";
        const char* pszText = strerror_r(nError, szBuffer, sizeof szBuffer);
        VELTRA_LOG_ERROR_AT(tPlace, "Failed to create file = [%s], errno[%d], errmsg[%s, %s]", pszPath, nError, pszText,
                            szBuffer);
        return nullptr;
    }
    return IsSymbolicLink(strTempFilePath, tPlace) ? nullptr : std::move(pFile);
}

FILE_PTR_t TakeOverTempFile(const std::string& strTempFilePath, LOG_PLACE_t tPlace)
{
    if (!IsWayFree(strTempFilePath, tPlace))
    {
        return nullptr;
    }
    FILE_PTR_t pFile = OpenFile(strTempFilePath, true);
    if (pFile == nullptr)
    {
        VELTRA_LOG_ERROR_AT(tPlace, "Failed to open file = [%s]", strTempFilePath.c_str());
        return nullptr;
    }
    return IsSymbolicLink(strTempFilePath, tPlace) ? nullptr : std::move(pFile);
}

bool FlushAndClose(FILE_PTR_t pFile)
{
    const bool bFlushed = fflush(pFile.get()) == 0 && (fsync(fileno(pFile.get())) == 0 || errno == EINVAL);
    return fclose(pFile.release()) == 0 && bFlushed;
}

void TEMP_FILE_REMOVER_t::operator()(const std::string* pstrTempFilePath) const
{
    const int nResult = remove(pstrTempFilePath->c_str());
    VELTRA_LOG_ERROR_AT(tPlace, "Failed to add download request, rm file %s, ret is [%d]", pstrTempFilePath->c_str(),
                        nResult);
}
