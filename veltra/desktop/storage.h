#pragma once

#include <string>

#include "veltra/export.h"

/**
 * @file
 * Desktop platform only: a device maker's platform need not offer it.
 */

/**
 * Writes a file to storage: its data, and its entry in the folder that the path names. Once it has returned true, both
 * survive a power cut. To replace a file so that it is whole at any moment, write the new one under another name in the
 * same folder, call this, rename it, and call this for the new name.
 *
 * Any thread may call, but not in a callback of the engine, whose transfers would wait. It takes as long as the storage
 * needs for the unwritten data of the file: milliseconds or seconds.
 * @param strPath path of a regular file or a folder; a symbolic link is followed to the file, but not to its folder
 * @return false if a step has failed, with its errno; the file may be in storage or not, and another call does not
 * tell. True on a file system without such an operation
 */
VELTRA_API bool SyncToStorage(const std::string& strPath);
