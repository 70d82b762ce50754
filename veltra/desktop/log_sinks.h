#pragma once

/**
 * @file
 * Desktop platform only: a device maker's platform need not offer it.
 */

#include <string>

#include "veltra/platform/kvr_debug.h"

/** Ready-made sinks for CKVRDebug::SetSink(). pUserData is unused unless an operation names it. */
class VELTRA_API CLogSinks
{
public:
    /** Writes records to standard error, the default; the colours of error records only where that is a terminal. */
    static void WriteToStandardError(unsigned int level, const char* record, void* pUserData);

    /**
     * Hands records to syslog, and so to journald: errors as LOG_ERR, the milestones among the records of level 0 as
     * LOG_NOTICE, information as LOG_INFO.
     */
    static void WriteToSyslog(unsigned int level, const char* record, void* pUserData);

    /** The state of FoldRepeats(). The caller owns it and keeps it as long as that is the sink. */
    struct FOLDING_t
    {
        CKVRDebug::LOG_SINK_t pfnSink = &WriteToStandardError; /**< where records go */
        void* pSinkUserData = nullptr;                         /**< handed to it */
        std::string strLast{};                                 /**< the record that was passed on last */
        unsigned int nLevel = 0;                               /**< its level */
        unsigned long nRepeats = 0;                            /**< how often it has come since */
    };

    /**
     * Passes records on, but only the first of several equal ones in a row. Before the next different record it passes
     * on a record like "… 128 more like this", with the level of those that it counts.
     * @param level the record's
     * @param record the record
     * @param pFolding a FOLDING_t
     */
    static void FoldRepeats(unsigned int level, const char* record, void* pFolding);
};
