#pragma once

#include <string>
#include <utility>
#include <vector>

struct DOWNLOAD_OPTIONS_t
{
    std::vector<std::pair<std::string, std::string>> vecUrlAndFile;
    bool bSync = false;
    int nTimeoutSeconds = 0;         /**< of each synchronous download as a whole; 0: none */
    int nConnectTimeoutSeconds = 30; /**< of each synchronous download; 0: none */
};

/**
 * Downloads all files, at once or with bSync one after the other. The first signal that asks the process to end cancels
 * what is under way, the second ends the process at once.
 * @return the exit status: 0 when all files have arrived, 128 and the signal's number when one came
 */
int RunDownloads(const DOWNLOAD_OPTIONS_t& tOptions, bool bVerbose);
