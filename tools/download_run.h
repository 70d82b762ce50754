#pragma once

#include <string>
#include <vector>

#include "progress_view.h"
#include "session.h"

/** One file to download. */
struct DOWNLOAD_t
{
    std::string strUrl;
    std::string strFile;
    long long nSize = -1;    /**< bytes that it must have; -1: any number */
    std::string strSha256{}; /**< what it must have, in small letters; empty: any */
    bool bDurable = false;   /**< it is in storage before it replaces its target, and its new name as well in the end */
};

enum DOWNLOAD_STATE_e
{
    DOWNLOAD_WAITING,
    DOWNLOAD_RUNNING,
    DOWNLOAD_ARRIVED, /**< but not checked yet */
    DOWNLOAD_DONE,
    DOWNLOAD_FAILED,
    DOWNLOAD_CANCELLED
};

/** The result of one download. */
struct DOWNLOAD_END_t
{
    DOWNLOAD_STATE_e eState = DOWNLOAD_WAITING;
    std::string strReason;             /**< of a failure */
    WQCurl::TRANSFER_REPORT_t tReport; /**< of its transfer, if there was one */
};

struct DOWNLOAD_OPTIONS_t
{
    int nJobs = 8;                   /**< downloads at the same time */
    bool bForce = false;             /**< takes over temporary files that are there */
    bool bSync = false;              /**< one after the other, flushed to the disk */
    bool bDurable = false;           /**< each survives a power cut once it is done */
    int nTimeoutSeconds = 0;         /**< of each synchronous download as a whole; 0: none */
    int nConnectTimeoutSeconds = 30; /**< of each synchronous download */
    VIEW_e eView = VIEW_BARS;
};

/**
 * Looks at the targets of downloads, and says on standard error which cannot be: a folder, link or device, a folder
 * that does not exist or cannot be written, a temporary file that another may be writing.
 * @return whether all can be
 */
bool CheckTargets(const std::vector<DOWNLOAD_t>& vecDownload, bool bForce);

/**
 * Downloads all files. A file of a wanted size or checksum reaches its target only with that. The first signal
 * that asks the process to end cancels what is under way, and so does a broken pipe on standard output; the second
 * signal ends the process at once.
 * @param vecEnd receives what has become of each
 * @return the exit status: 0 when all files have arrived, 128 and the signal's number when one came, otherwise 1
 */
int RunDownloads(CSession& tSession, const std::vector<DOWNLOAD_t>& vecDownload, const DOWNLOAD_OPTIONS_t& tOptions,
                 std::vector<DOWNLOAD_END_t>& vecEnd);

/** The word for an end, in tables and JSON. */
const char* EndWord(const DOWNLOAD_END_t& tEnd);
