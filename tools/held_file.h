#pragma once

#include <string>

/**
 * The file that the engine writes for one download. This keeps it open, so that its device and inode identify it. This
 * also locks it, so that --force of another process does not remove it.
 */
class CHeldFile
{
public:
    CHeldFile() = default;
    ~CHeldFile() { Close(); }
    CHeldFile(const CHeldFile&) = delete;
    CHeldFile& operator=(const CHeldFile&) = delete;

    /**
     * Opens the file that the engine has open at a path.
     * @return errno of a failure, EBUSY if another process has replaced the file; 0: none
     */
    int Take(const std::string& strPath);

    void Close();

    /** @return whether a path names the file itself; false for a symbolic link to it */
    bool IsAt(const std::string& strPath) const;

    /** @return the size in bytes; -1 if no file is held */
    long long Size() const;

    /** Tries to append a byte. @return errno of a failure; 0: none */
    int WriteError() const;

    /** @return whether a running download holds the file at a path */
    static bool IsHeld(const std::string& strPath);

private:
    bool m_IsWrittenHere() const;
    int m_Lock() const;

    int m_nFile = -1;
};
