#pragma once

#include <string>

#include "veltra/export.h"

/**
 * @file
 * Desktop platform only: a device maker's platform need not offer it.
 */

/**
 * Brings a file to storage: its data, and its entry in the folder that the path names it in. Once it has returned true,
 * a power cut costs neither. What is to replace a file and be there whole, whenever the power goes, is written under
 * another name in the same folder, brought to storage, renamed, and brought to storage under its new name.
 *
 * Any thread may call, but not in a callback of the engine, which would wait with all its transfers: it takes as long
 * as storage takes for all that it has not written of the file yet, milliseconds or seconds.
 * @param strPath of a regular file, or of a folder; a symbolic link is followed to the file, but not to its folder
 * @return false when some of it did not get there, with errno of what failed; then the file may be in storage or not,
 * and trying again does not tell. A file system that knows no such operation has nothing to bring: true
 */
VELTRA_API bool SyncToStorage(const std::string& strPath);
