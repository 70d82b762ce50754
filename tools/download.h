#pragma once

#include <string>

#include "veltra/veltra.h"

/** One file to download. */
struct DOWNLOAD_t
{
    std::string strUrl;
    std::string strFile;
    long long nSize = -1;    /**< the expected size in bytes; -1: any */
    std::string strSha256{}; /**< the expected checksum in small letters; empty: any */
    bool bDurable = false;   /**< the data are in storage before the target is replaced; the result includes the name */
};

enum DOWNLOAD_STATE_e
{
    DOWNLOAD_WAITING,
    DOWNLOAD_RUNNING,
    DOWNLOAD_ARRIVED, /**< received, but not checked yet */
    DOWNLOAD_DONE,
    DOWNLOAD_PRESENT, /**< the file existed before, and no transfer was started */
    DOWNLOAD_FAILED,
    DOWNLOAD_CANCELLED
};

/** The result of one download. */
struct DOWNLOAD_END_t
{
    DOWNLOAD_STATE_e eState = DOWNLOAD_WAITING;
    std::string strReason;             /**< of a failure */
    WQCurl::TRANSFER_REPORT_t tReport; /**< of the transfer; empty if none was started */
};

inline bool IsFinal(DOWNLOAD_STATE_e eState)
{
    return eState >= DOWNLOAD_DONE;
}

/** The word for a final state, in tables and JSON. */
inline const char* StateName(DOWNLOAD_STATE_e eState)
{
    switch (eState)
    {
    case DOWNLOAD_DONE:
        return "done";
    case DOWNLOAD_PRESENT:
        return "present";
    case DOWNLOAD_CANCELLED:
        return "cancelled";
    default:
        return "failed";
    }
}
