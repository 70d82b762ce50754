#pragma once

#include "veltra/platform/kvr_debug.h"

/*
 * The library's own log records. A .cpp that logs first names its module:
 *
 *     #define VELTRA_LOG_MODULE "WebConnector"
 *
 * Error records are level 0 and framed in colour, information records are level 4 and plain. The few informational
 * records that must reach a default log are written with VELTRA_LOG_ERROR as well.
 */
#define VELTRA_LOG_ERROR(...) VELTRA_LOG_ERROR_AT(__func__, __LINE__, __VA_ARGS__)
#define VELTRA_LOG_INFO(...) VELTRA_LOG_INFO_AT(__func__, __LINE__, __VA_ARGS__)

/* The same on behalf of another operation, for helpers that several operations share. */
#define VELTRA_LOG_ERROR_AT(operation, line, ...)          \
    do                                                     \
    {                                                      \
        LogErrorBegin(VELTRA_LOG_MODULE, operation, line); \
        CKVRDebug::PrintLog(0, __VA_ARGS__);               \
        LogErrorEnd();                                     \
    } while (false)

#define VELTRA_LOG_INFO_AT(operation, line, ...)           \
    do                                                     \
    {                                                      \
        LogHeading(4, VELTRA_LOG_MODULE, operation, line); \
        CKVRDebug::PrintLog(4, __VA_ARGS__);               \
        CKVRDebug::PrintLog(4, "\n");                      \
    } while (false)

/* What all records share, as functions: expanded in each place it would be a sixth of the library's code. */

inline void LogHeading(unsigned int level, const char* pszModule, const char* pszOperation, int nLine)
{
    CKVRDebug::PrintLog(level, "[KVR][%s::%s(%d)] ", pszModule, pszOperation, nLine);
}

inline void LogErrorBegin(const char* pszModule, const char* pszOperation, int nLine)
{
    LogHeading(0, pszModule, pszOperation, nLine);
    CKVRDebug::PrintLog(0, "\033[1;31;42m ");
}

inline void LogErrorEnd()
{
    CKVRDebug::PrintLog(0, "\033[0m ");
    CKVRDebug::PrintLog(0, "\n");
}
