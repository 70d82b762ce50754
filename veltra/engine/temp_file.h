#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include "veltra/log.h"

/*
 * The temporary file of a download, which stands beside the target until it is renamed to that. What goes wrong is
 * logged on behalf of the calling operation.
 */

struct FILE_CLOSER_t
{
    // cppcheck-suppress doubleFree ; it takes the calls of unique_ptr for calls on one file
    void operator()(FILE* pFile) const { static_cast<void>(fclose(pFile)); }
};
typedef std::unique_ptr<FILE, FILE_CLOSER_t> FILE_PTR_t;

/** A path is none when it is empty, or when a zero character would cut off what tells the two files apart. */
bool IsPath(const std::string& strFilePath);

/** The path of a target's temporary file. */
std::string TempPath(const std::string& strFilePath);

/** The way back; the empty path stays empty. */
std::string TargetPath(std::string strTempFilePath);

/**
 * Creates a temporary file, which must not exist, opened for writing without a buffer.
 * @param bExists set to whether that is why there is none
 * @return null when there is none, or when the target must not be replaced
 */
FILE_PTR_t CreateTempFile(const std::string& strTempFilePath, bool& bExists, LOG_PLACE_t tPlace = {});

/** The same for one that may exist: it is emptied then. */
FILE_PTR_t TakeOverTempFile(const std::string& strTempFilePath, LOG_PLACE_t tPlace = {});

/** Brings a file to storage and closes it. @return false when some of it did not get there */
bool FlushAndClose(FILE_PTR_t pFile);

/** For a std::unique_ptr: removes the temporary file, at the path it is given, of a download that does not start. */
struct TEMP_FILE_REMOVER_t
{
    void operator()(const std::string* pstrTempFilePath) const;

    LOG_PLACE_t tPlace;
};
