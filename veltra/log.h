#pragma once

#include "veltra/platform/kvr_debug.h"

/* What frames an error record's text, for a terminal to colour. */
#define VELTRA_LOG_FRAME_BEGIN "\033[1;31;42m "
#define VELTRA_LOG_FRAME_END "\033[0m "

/*
 * The library's own log records. A .cpp that logs first names its module:
 *
 *     #define VELTRA_LOG_MODULE "WebConnector"
 *
 * Error records are level 0 and framed in colour, information records are level 4 and plain. The few informational
 * records that must reach a default log are written with VELTRA_LOG_ERROR as well.
 */
#define VELTRA_LOG_ERROR(...) VELTRA_LOG_ERROR_AT(LOG_PLACE_t(), __VA_ARGS__)
#define VELTRA_LOG_INFO(...) VELTRA_LOG_INFO_AT(LOG_PLACE_t(), __VA_ARGS__)

/* The same for a helper that logs on behalf of the operation that called it: its last parameter is
 * `LOG_PLACE_t tPlace = {}`. */
#define VELTRA_LOG_ERROR_AT(place, ...)          \
    do                                           \
    {                                            \
        LogErrorBegin(VELTRA_LOG_MODULE, place); \
        CKVRDebug::PrintLog(0, __VA_ARGS__);     \
        LogErrorEnd();                           \
    } while (false)

#define VELTRA_LOG_INFO_AT(place, ...)           \
    do                                           \
    {                                            \
        LogHeading(4, VELTRA_LOG_MODULE, place); \
        CKVRDebug::PrintLog(4, __VA_ARGS__);     \
        CKVRDebug::PrintLog(4, "\n");            \
    } while (false)

/** Which operation a record belongs to: the one that makes this object, or that calls what has it as a default. */
struct LOG_PLACE_t
{
    LOG_PLACE_t(const char* pszItsOperation = __builtin_FUNCTION(), int nItsLine = __builtin_LINE())
        : pszOperation(pszItsOperation), nLine(nItsLine)
    {
    }

    const char* pszOperation;
    int nLine;
};

/* What all records share, as functions: expanded in each place it would be a sixth of the library's code. */

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
