#pragma once

#include <string>

#include "veltra/veltra.h"

enum DOWNLOAD_STATE_e
{
    DOWNLOAD_WAITING,
    DOWNLOAD_RUNNING,
    DOWNLOAD_DONE,
    DOWNLOAD_PRESENT, /**< not needed: the file existed before */
    DOWNLOAD_FAILED,
    DOWNLOAD_CANCELLED
};

inline bool IsFinal(DOWNLOAD_STATE_e eState)
{
    return eState >= DOWNLOAD_DONE;
}

/** One file to download, and its result. */
struct DOWNLOAD_t
{
    std::string strUrl;
    std::string strFile;
    long long nSize = -1;    /**< the expected size in bytes; -1: any */
    std::string strSha256{}; /**< the expected checksum; empty: any */
    bool bDurable = false;   /**< the data are in storage before the target is replaced, the name before it is done */
    std::string strEntry{};  /**< the identifier of the document's entry; empty: none */
    DOWNLOAD_STATE_e eState = DOWNLOAD_WAITING;
    std::string strReason{};             /**< of a failure */
    std::string strStamp{};              /**< the FileStamp() of a file that is done */
    WQCurl::TRANSFER_REPORT_t tReport{}; /**< of the transfer; empty if none was started */
};

/** The word for the result of a download, in tables and JSON. */
inline std::string ResultName(const DOWNLOAD_t& tDownload)
{
    const DOWNLOAD_STATE_e eState = tDownload.eState;
    const std::string strUnchecked = !tDownload.strEntry.empty() && tDownload.nSize < 0 ? ", unchecked" : "";
    return eState == DOWNLOAD_DONE        ? "done" + strUnchecked
           : eState == DOWNLOAD_PRESENT   ? "present" + strUnchecked
           : eState == DOWNLOAD_CANCELLED ? "cancelled"
                                          : "failed";
}
