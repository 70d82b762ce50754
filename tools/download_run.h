#pragma once

#include <vector>

#include "download.h"
#include "session.h"

/** The options of a run of downloads. */
struct DOWNLOAD_OPTIONS_t
{
    int nJobs = 8;                /**< downloads at the same time */
    long long nBandwidth = -1;    /**< bytes per second of all downloads together; -1: any number */
    bool bForce = false;          /**< takes over existing temporary files */
    bool bDurable = false;        /**< a file that is done survives a power cut */
    bool bTable = false;          /**< the command prints a table of the results */
    bool bQuiet = false;          /**< prints errors only */
    bool bJson = false;           /**< the command prints the results as JSON */
    bool bFailOnHttpError = true; /**< a redirect or a status of 400 and more fails a download */
};

/**
 * Downloads files. A file with an expected size or checksum reaches its target only if it matches. A line on standard
 * output tells the end of each that has not failed, unless the command prints the results. The first signal
 * that asks the process to end cancels all downloads, and so does a broken pipe on standard output. The second signal
 * ends the process at once.
 * @param vecDownload receives the results; those that are final before are left alone
 * @return the exit status: 0 if all results are a success, 128 + the number of a signal that came, otherwise
 * the ExitStatus() of the first failure in the order of vecDownload
 */
int RunDownloads(CSession& tSession, std::vector<DOWNLOAD_t>& vecDownload, const DOWNLOAD_OPTIONS_t& tOptions);
