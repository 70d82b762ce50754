#pragma once

#include <list>
#include <string>
#include <vector>

#include "download_run.h"
#include "veltra/veltra.h"

/** What the command line says. */
struct OPTIONS_t
{
    DEVICE_IDENTITY_t tIdentity;
    WQCurl::TRANSFER_DEFAULTS_t tTransfer;
    DOWNLOAD_OPTIONS_t tDownload;
    std::string strQueryHost; /**< "HOST[:PORT]" that stands for the query service's; empty: itself */
    bool bVerbose = false;
    bool bJson = false;
    bool bQuiet = false;
    bool bHeadings = false; /**< the status and what else is known of an answer before it */
    int nFail = 0;          /**< 1: an HTTP error fails, -1: it does not; 0: as the command has it */
    std::string strUrl;
    std::list<std::string> lstHeader;
    std::string strData;
    std::string strOutput; /**< where an answer goes; empty: standard output */
    std::vector<std::string> vecId;
    bool bCert = false;
    bool bDefault = false;
    std::vector<std::string> vecUrlAndFile;
    long long nSize = -1;
    std::string strSha256;
    std::string strFolder;
};

/** A command: does what the options say. @return the exit status */
typedef int (*COMMAND_t)(const OPTIONS_t&);
