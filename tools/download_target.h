#pragma once

#include <string>
#include <vector>

#include "download_run.h"
#include "held_file.h"

/** Where the engine is told to put a download: the target, or a file beside it for one that cannot go there yet. */
std::string EnginePath(const DOWNLOAD_t& tDownload);

/** Where the engine writes it meanwhile. */
std::string TempPath(const DOWNLOAD_t& tDownload);

/** The files beside the target that a download makes and moves away again. */
std::vector<std::string> SidePaths(const DOWNLOAD_t& tDownload);

/** The folder that a path is in. */
std::string FolderOf(const std::string& strPath);

/** Why nothing can be put into a folder; empty when it can. */
std::string FolderRefusal(const std::string& strFolder);

/** The size of a file; -1 when there is none. */
long long FileSize(const std::string& strPath);

/** Why a download into that target must not start; empty when it may. */
std::string TargetRefusal(const DOWNLOAD_t& tDownload, bool bForce);

/** The reason why the engine did not start a download. */
std::string StartFailure(const DOWNLOAD_t& tDownload, bool bForce);

/** Removes the files that earlier downloads left beside the target, but none that a living one holds. */
void RemoveLeftOvers(const DOWNLOAD_t& tDownload);

/** Removes the file of a download that has failed from beside the target, and no other file. */
void RemoveHeld(const DOWNLOAD_t& tDownload, const CHeldFile& tHeld);

/**
 * Checks a file that has arrived, brings it to storage and moves it into place, as far as the engine has not done that.
 * Removes a file with a wrong size or checksum. In the end the held file stands at the target.
 * @param nBytes its size, as the transfer reports it
 * @return the failure; empty when all is done
 */
std::string CheckAndMove(const DOWNLOAD_t& tDownload, const CHeldFile& tHeld, long long nBytes);
