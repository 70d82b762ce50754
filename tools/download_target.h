#pragma once

#include <string>

#include "download_run.h"

/** Where the engine is told to put a download: the target, or a file beside it for one that cannot go there yet. */
std::string EnginePath(const DOWNLOAD_t& tDownload);

/** Where the engine writes it meanwhile. */
std::string TempPath(const DOWNLOAD_t& tDownload);

/** The folder that a path is in. */
std::string FolderOf(const std::string& strPath);

/** Why nothing can be put into a folder; empty when it can. */
std::string FolderRefusal(const std::string& strFolder);

/** The size of a file; -1 when there is none. */
long long FileSize(const std::string& strPath);

/** Why a download into that target must not start; empty when it may. */
std::string TargetRefusal(const DOWNLOAD_t& tDownload, bool bForce);

/** Removes what an earlier download left beside the target. */
void RemoveLeftOvers(const DOWNLOAD_t& tDownload);

/**
 * Checks what has arrived, brings it to storage and moves it into place, as far as the engine has not done that.
 * Removes what is not the file.
 * @return what failed; empty when all is done
 */
std::string CheckAndMove(const DOWNLOAD_t& tDownload);
