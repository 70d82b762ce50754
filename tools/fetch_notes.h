#pragma once

#include <map>
#include <string>

#include "veltra/veltra.h"

/**
 * The notes of fetch about the files of one folder: for each identifier, as JSON, the fields of its document's entry,
 * and size and modification time of its file. They are only compared, never parsed: a damaged note is as good as none.
 */
typedef std::map<std::string, std::string> FETCH_NOTES_t;

/** The key of an entry's note. */
std::string NoteKey(const std::string& strId);

/** The note of an entry and its file. @param strStamp the FileStamp() */
std::string NoteText(const APPBIN_SERVER_INFO_t& tInfo, const std::string& strStamp);

/** Reads the notes of a folder. Without a readable file there are none. */
FETCH_NOTES_t ReadNotes(const std::string& strPath);

/** Replaces the notes of a folder. @return the failure; empty: none */
std::string WriteNotes(const std::string& strPath, const FETCH_NOTES_t& mapNote);
