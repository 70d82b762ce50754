#pragma once

#include <string>

#include "veltra/export.h"

/**
 * The log. A record is written as a run of PrintLog() calls of one thread and one level: its heading, its text, and
 * last a call whose format ends in "\n", which completes the record.
 *
 * All operations may be called from any thread.
 */
class VELTRA_API CKVRDebug
{
public:
    /**
     * Receives each whole record, from its heading to its "\n", zero-terminated and valid only during the call. Runs on
     * the thread that logs; calls never overlap. It must not throw and not call SetSink() or any
     * operation of the engine, which may be logging under its locks; what it logs itself is dropped.
     */
    typedef void (*LOG_SINK_t)(unsigned int level, const char* record, void* pUserData);

    /** Adds printf-style text to the calling thread's current record. Never throws: without memory, text is lost. */
    static void PrintLog(unsigned int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

    /**
     * Drops records of a higher level than this before they are formatted, from the next that is begun on. 0 (errors)
     * at start; 4 adds information.
     */
    static void SetLevel(unsigned int level);

    /**
     * Sends the records to pfnSink with pUserData, which the caller keeps valid; null restores the default, standard
     * error. Once it returns, the sink before it is not called any more.
     */
    static void SetSink(LOG_SINK_t pfnSink, void* pUserData);
};
