#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include "veltra/log.h"

/*
 * The temporary file of a download stands beside the target until it is renamed to it. Failures are logged on behalf of
 * the calling operation.
 */

struct FILE_CLOSER_t
{
    // cppcheck-suppress doubleFree ; cppcheck assumes that all calls close the same file
    void operator()(FILE* pFile) const { static_cast<void>(fclose(pFile)); }
};
typedef std::unique_ptr<FILE, FILE_CLOSER_t> FILE_PTR_t;

/** Returns whether a text can be a target's path: not empty, and without a zero character, which would end it early. */
bool IsPath(const std::string& strFilePath);

/** Returns the path of a target's temporary file. */
std::string TempPath(const std::string& strFilePath);

/** Returns the target's path of a temporary file; empty for an empty one. */
std::string TargetPath(std::string strTempFilePath);

/** Returns whether something stands at a temporary file's path, which is then logged. */
bool TempFileExists(const std::string& strTempFilePath, LOG_PLACE_t tPlace = {});

/**
 * Opens a temporary file for writing, without a buffer.
 * @param bTakeOver true: an existing regular file is emptied. false: an existing file is a failure
 * @return null on failure, or if the target is a device, pipe or socket
 */
FILE_PTR_t OpenTempFile(const std::string& strTempFilePath, bool bTakeOver, LOG_PLACE_t tPlace = {});

/** Flushes a file to storage and closes it. @return false if some data may not be in storage */
bool FlushAndClose(FILE_PTR_t pFile);
