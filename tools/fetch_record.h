#pragma once

#include <map>
#include <string>

#include "veltra/veltra.h"

/**
 * The notes of fetch about the files of one folder, in a file of that folder with a line for each entry: the fields of
 * its document, and size and modification time of its file.
 */
class CFetchRecord
{
public:
    /** Reads the notes. Without a readable file there are none. */
    explicit CFetchRecord(const std::string& strFolder);

    /** @return whether the document's entry and the file at the path are those that were noted */
    bool IsCurrent(const APPBIN_SERVER_INFO_t& tInfo, const std::string& strFile) const;

    /** Notes an entry and its file. */
    void Note(const APPBIN_SERVER_INFO_t& tInfo, const std::string& strFile);

    /** Replaces the notes in the folder. @return the failure; empty: none */
    std::string Write() const;

    const std::string& Path() const { return m_strPath; }

private:
    const std::string m_strPath;
    std::map<std::string, std::string> m_mapNote; /**< by identifier; both as JSON */
};
