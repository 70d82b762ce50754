#pragma once

#include "veltra/platform/kvr_debug.h"

/* An error record's text stands between these two, which a terminal shows in colour. */
#define VELTRA_LOG_FRAME_BEGIN "\033[1;31;42m "
#define VELTRA_LOG_FRAME_END "\033[0m "

/*
 * These macros write the library's own log records: errors at level 0 in a frame, information at level 4 without one.
 * The few informational records that a default log must show are written as errors. A .cpp defines VELTRA_LOG_MODULE,
 * the name of its module, before it includes this header.
 */
#define VELTRA_LOG_ERROR(...) VELTRA_LOG_ERROR_AT(LOG_PLACE_t(), __VA_ARGS__)
#define VELTRA_LOG_INFO(...) VELTRA_LOG_INFO_AT(LOG_PLACE_t(), __VA_ARGS__)

/* A helper logs on behalf of the operation that called it: its last parameter is `LOG_PLACE_t tPlace = {}`. */
#define VELTRA_LOG_ERROR_AT(place, ...) \
    (LogErrorBegin(VELTRA_LOG_MODULE, place), CKVRDebug::PrintLog(0, __VA_ARGS__), LogErrorEnd())
#define VELTRA_LOG_INFO_AT(place, ...) \
    (LogHeading(4, VELTRA_LOG_MODULE, place), CKVRDebug::PrintLog(4, __VA_ARGS__), CKVRDebug::PrintLog(4, "\n"))

/** Names the operation and the line that a record's heading shows: those of the code that makes this object. */
struct LOG_PLACE_t
{
    LOG_PLACE_t(const char* pszItsOperation = __builtin_FUNCTION(), int nItsLine = __builtin_LINE())
        : pszOperation(pszItsOperation), nLine(nItsLine)
    {
    }

    const char* pszOperation;
    int nLine;
};

/* These are functions, because their code at every record would make a sixth of the library. */

inline void LogHeading(unsigned int level, const char* pszModule, LOG_PLACE_t tPlace)
{
    CKVRDebug::PrintLog(level, "[KVR][%s::%s(%d)] ", pszModule, tPlace.pszOperation, tPlace.nLine);
}

inline void LogErrorBegin(const char* pszModule, LOG_PLACE_t tPlace)
{
    LogHeading(0, pszModule, tPlace);
    CKVRDebug::PrintLog(0, VELTRA_LOG_FRAME_BEGIN);
}

inline void LogErrorEnd()
{
    CKVRDebug::PrintLog(0, VELTRA_LOG_FRAME_END);
    CKVRDebug::PrintLog(0, "\n");
}
