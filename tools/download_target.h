#pragma once

#include <string>
#include <vector>

#include "download.h"
#include "held_file.h"

/** The path that the engine downloads to: the target, or a file beside it that must be flushed before it is moved. */
std::string EnginePath(const DOWNLOAD_t& tDownload);

/** The path of the temporary file that the engine writes. */
std::string TempPath(const DOWNLOAD_t& tDownload);

/** @return the reason why no file can be created in a folder; empty: none */
std::string FolderRefusal(const std::string& strFolder);

/** @return size and modification time of a file as a text; empty if it does not exist */
std::string FileStamp(const std::string& strPath);

/** @return the reason why a download into its target must not start; empty: none */
std::string TargetRefusal(const DOWNLOAD_t& tDownload, bool bForce);

/**
 * Checks the targets of all downloads and prints each refusal on standard error: a target that is no regular file, a
 * folder that does not exist or cannot be written, a temporary file that exists, a name that two downloads use.
 * @return whether all downloads may start
 */
bool CheckTargets(const std::vector<DOWNLOAD_t>& vecDownload, bool bForce);

/** Removes the temporary files of earlier downloads, except those that a running process holds. */
void RemoveLeftOvers(const DOWNLOAD_t& tDownload);

/**
 * Checks that a download's target is the held file with the length that arrived. Before that, this flushes a durable
 * download to storage and moves it to its target.
 * @return the failure; empty: none
 */
std::string ArrivalFailure(const DOWNLOAD_t& tDownload, const CHeldFile& tHeld);
