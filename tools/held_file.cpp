#include "held_file.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace
{

/* Do not follow a link, and do not wait for the other end of a pipe. */
constexpr int SAFELY = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;

/** An exclusive lock on the whole file. */
struct flock WholeFileLock()
{
    struct flock tLock = {};
    tLock.l_type = F_WRLCK;
    tLock.l_whence = SEEK_SET;
    return tLock;
}

bool IsSameFile(const struct stat& tOne, const struct stat& tOther)
{
    return tOne.st_dev == tOther.st_dev && tOne.st_ino == tOther.st_ino;
}

} // namespace

int CHeldFile::Take(const std::string& strPath)
{
    Close();
    m_nFile = open(strPath.c_str(), O_RDWR | SAFELY); // an exclusive lock needs a file open for writing
    if (m_nFile < 0)
    {
        return errno;
    }
    /* Do not lock a file of another process. */
    const int nError = m_IsWrittenHere() ? m_Lock() : EBUSY;
    return nError == 0 && !IsAt(strPath) ? EBUSY : nError;
}

void CHeldFile::Close()
{
    if (m_nFile >= 0)
    {
        close(m_nFile);
        m_nFile = -1;
    }
}

bool CHeldFile::IsAt(const std::string& strPath) const
{
    struct stat tHeld = {};
    struct stat tThere = {};
    return fstat(m_nFile, &tHeld) == 0 && lstat(strPath.c_str(), &tThere) == 0 && IsSameFile(tHeld, tThere);
}

long long CHeldFile::Size() const
{
    struct stat tHeld = {};
    return fstat(m_nFile, &tHeld) == 0 ? static_cast<long long>(tHeld.st_size) : -1;
}

int CHeldFile::WriteError() const
{
    return pwrite(m_nFile, "", 1, static_cast<off_t>(Size())) == 1 ? 0 : errno;
}

bool CHeldFile::IsHeld(const std::string& strPath)
{
    const int nFile = open(strPath.c_str(), O_RDONLY | SAFELY);
    struct flock tLock = WholeFileLock();
    const bool bHeld = nFile >= 0 && fcntl(nFile, F_OFD_GETLK, &tLock) == 0 && tLock.l_type != F_UNLCK;
    if (nFile >= 0)
    {
        close(nFile);
    }
    return bHeld;
}

/** @return whether the engine has the same file open; true if /proc cannot be read */
bool CHeldFile::m_IsWrittenHere() const
{
    struct stat tHeld = {};
    std::error_code tFault;
    const std::filesystem::directory_iterator itFirst("/proc/self/fd", tFault);
    const auto fnIsOther = [&](const std::filesystem::path& tPath)
    {
        struct stat tOther = {};
        const int nOther = std::stoi(tPath.filename());
        /* The path in /proc takes longer. ThreadSanitizer takes fstat() of the engine's descriptor for a race. */
        return nOther != m_nFile && fstatat(nOther, "", &tOther, AT_EMPTY_PATH) == 0 && IsSameFile(tHeld, tOther);
    };
    return tFault || (fstat(m_nFile, &tHeld) == 0 && std::any_of(begin(itFirst), end(itFirst), fnIsOther));
}

/** @return EBUSY if another download holds the file; otherwise 0, also on a file system without locks */
int CHeldFile::m_Lock() const
{
    struct flock tLock = WholeFileLock();
    const bool bHeld = fcntl(m_nFile, F_OFD_SETLK, &tLock) != 0 && (errno == EAGAIN || errno == EACCES);
    return bHeld ? EBUSY : 0;
}
