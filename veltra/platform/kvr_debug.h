#pragma once

#include <string>

#include "veltra/export.h"

/**
 * The log. A record is a series of PrintLog() calls of one thread with one level. A call whose format ends in "\n"
 * completes the record. Any thread may call any operation.
 */
class VELTRA_API CKVRDebug
{
public:
    /**
     * Receives each whole record, from its heading to its "\n". The text is zero-terminated and valid only during the
     * call. The sink runs on the thread that logs; calls never overlap. It must not throw. It must call neither
     * SetSink() nor an operation of the engine, which may hold its locks. Records that it logs itself are dropped.
     */
    typedef void (*LOG_SINK_t)(unsigned int level, const char* record, void* pUserData);

    /** Appends printf-style text to the calling thread's record. Never throws: if memory runs out, text is lost. */
    static void PrintLog(unsigned int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

    /**
     * Drops records of a higher level before they are formatted, beginning with each thread's next record. The level is
     * 0 (errors) at start; 4 adds information.
     */
    static void SetLevel(unsigned int level);

    /**
     * Sends the records to pfnSink, which receives pUserData; not owned. Null restores the default, standard error.
     * After the call has returned, the previous sink is not called any more.
     */
    static void SetSink(LOG_SINK_t pfnSink, void* pUserData);
};
