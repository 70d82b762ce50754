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
     * Sends the records to pfnSink with pUserData, which the caller keeps valid; null restores the default,
     * WriteToStandardError(). Once it returns, the sink before it is not called any more.
     */
    static void SetSink(LOG_SINK_t pfnSink, void* pUserData);

    /**
     * @name Ready sinks
     * Desktop platform only. pUserData is unused where nothing is said of it.
     * @{
     */
    /** Writes records to standard error; the colours of error records only where that is a terminal. */
    static void WriteToStandardError(unsigned int level, const char* record, void* pUserData);

    /**
     * Hands records to syslog, and so to journald: errors as LOG_ERR, the milestones among the records of level 0 as
     * LOG_NOTICE, information as LOG_INFO.
     */
    static void WriteToSyslog(unsigned int level, const char* record, void* pUserData);

    /** The state of FoldRepeats(). The caller owns it and keeps it as long as that is the sink. */
    struct FOLDING_t
    {
        LOG_SINK_t pfnSink = &WriteToStandardError; /**< where records go */
        void* pSinkUserData = nullptr;              /**< handed to it */
        std::string strLast{};                      /**< the record that was passed on last */
        unsigned int nLevel = 0;                    /**< its level */
        unsigned long nRepeats = 0;                 /**< how often it has come since */
    };

    /**
     * Passes records on, but only the first of several equal ones in a row. Before the next different record it passes
     * on a record like "… 128 more like this", with the level of those that it counts.
     * @param level the record's
     * @param record the record
     * @param pFolding a FOLDING_t
     */
    static void FoldRepeats(unsigned int level, const char* record, void* pFolding);
    /** @} */
};
