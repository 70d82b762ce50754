#pragma once

#include <string>

/**
 * The file that the engine writes for one download. It is held open, so that it can be told from any other file by
 * device and inode, and locked, so that --force of another process leaves it alone.
 */
class CHeldFile
{
public:
    CHeldFile() = default;
    ~CHeldFile() { Close(); }
    CHeldFile(const CHeldFile&) = delete;
    CHeldFile& operator=(const CHeldFile&) = delete;

    /** Creates the file, for the engine to take over. @return errno of a failure, EEXIST if one is there; 0 for none */
    int Create(const std::string& strPath);

    /**
     * Opens the file that the engine writes at a path, while the engine has it open.
     * @return errno of a failure, EBUSY if another process has put its own file there; 0 for none
     */
    int Take(const std::string& strPath);

    void Close();

    /** @return whether the file stands at a path; false for a link to it */
    bool IsAt(const std::string& strPath) const;

    /** In bytes; -1 when none is held. */
    long long Size() const;

    /** Tries to write beyond the end of the file. @return errno of a failure; 0 for none */
    int WriteError() const;

    /** @return whether a living download holds the file at a path */
    static bool IsHeld(const std::string& strPath);

private:
    bool m_IsWrittenHere() const;
    int m_Lock();

    int m_nFile = -1;
};
