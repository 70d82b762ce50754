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

bool IsSymbolicLink(mode_t eKind, const std::string& strPath, LOG_PLACE_t tPlace)
{
    const bool bLink = eKind == S_IFLNK;
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
bool IsWayFree(mode_t eKind, const std::string& strTempFilePath, LOG_PLACE_t tPlace)
{
    return !IsSymbolicLink(eKind, strTempFilePath, tPlace) && !IsSpecialFile(TargetPath(strTempFilePath), tPlace);
}

/**
 * Opens a file that is there, and empties it. What another process may put at the path meanwhile costs nothing: a link
 * is not followed and a pipe not waited for.
 */
FILE* TakeFile(const std::string& strPath)
{
    constexpr mode_t MODE = 0666; // as fopen() gives, less the process's mask, should the file be gone again
    const int nFile = open(strPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, MODE);
    struct stat tStat = {};
    const bool bRegular = nFile >= 0 && fstat(nFile, &tStat) == 0 && S_ISREG(tStat.st_mode);
    FILE* pFile = bRegular ? fdopen(nFile, "wb") : nullptr;
    if (pFile == nullptr && nFile >= 0)
    {
        close(nFile);
    }
    return pFile;
}

/**
 * Makes a file for writing, unbuffered: a full disk then fails the write itself and not, unseen, the closing.
 * @param bTakeOver true empties and takes one that is there already, false refuses then, be it a link to nothing
 * @return null with errno when there is none
 */
FILE_PTR_t OpenFile(const std::string& strPath, bool bTakeOver)
{
    FILE_PTR_t pFile(fopen(strPath.c_str(), "wbxe"));
    if (pFile == nullptr && errno == EEXIST && bTakeOver)
    {
        pFile.reset(TakeFile(strPath));
    }
    if (pFile != nullptr)
    {
        static_cast<void>(setvbuf(pFile.get(), nullptr, _IONBF, 0));
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

FILE_PTR_t CreateTempFile(const std::string& strTempFilePath, bool& bExists, LOG_PLACE_t tPlace)
{
    const char* pszPath = strTempFilePath.c_str();
    const mode_t eKind = FileKind(strTempFilePath);
    bExists = eKind != 0 && access(pszPath, F_OK) == 0; // which a link to nothing does not
    if (bExists)
    {
        VELTRA_LOG_ERROR_AT(tPlace, "File [%s] is already downloading, return!", pszPath);
        return nullptr;
    }
    if (!IsWayFree(eKind, strTempFilePath, tPlace))
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
    return IsSymbolicLink(FileKind(strTempFilePath), strTempFilePath, tPlace) ? nullptr : std::move(pFile);
}

FILE_PTR_t TakeOverTempFile(const std::string& strTempFilePath, LOG_PLACE_t tPlace)
{
    if (!IsWayFree(FileKind(strTempFilePath), strTempFilePath, tPlace))
    {
        return nullptr;
    }
    FILE_PTR_t pFile = OpenFile(strTempFilePath, true);
    if (pFile == nullptr)
    {
        VELTRA_LOG_ERROR_AT(tPlace, "Failed to open file = [%s]", strTempFilePath.c_str());
        return nullptr;
    }
    return IsSymbolicLink(FileKind(strTempFilePath), strTempFilePath, tPlace) ? nullptr : std::move(pFile);
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
