#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <iterator>
#include <new>
#include <string_view>
#include <syslog.h>
#include <unistd.h>

#include "veltra/desktop/log_sinks.h"
#include "veltra/desktop/signal_guard.h"
#include "veltra/log.h"

namespace
{

/** Returns a record without the sequences for colours. */
std::string WithoutFrame(const char* record)
{
    std::string strText = record;
    for (const std::string_view strMark : {VELTRA_LOG_FRAME_BEGIN, VELTRA_LOG_FRAME_END})
    {
        const size_t nFound = strText.find(strMark);
        if (nFound != std::string::npos)
        {
            strText.erase(nFound, strMark.size());
        }
    }
    return strText;
}

/** Writes to standard error, which may be a pipe without a reader or a file that has reached its size limit. */
void Write(std::string_view strText)
{
    const CSignalGuard tGuard;
    while (!strText.empty())
    {
        const ssize_t nWritten = write(STDERR_FILENO, strText.data(), strText.size());
        if (nWritten > 0)
        {
            strText.remove_prefix(static_cast<size_t>(nWritten));
        }
        else if (nWritten == 0 || errno != EINTR)
        {
            return;
        }
    }
}

/** Returns whether a record of level 0 is no error: the engine writes some milestones at level 0. */
bool IsMilestone(std::string_view strRecord)
{
    constexpr std::string_view TEXTS[] = {"Start http/https Request!",
                                          "Left running handles = [",
                                          "Start to download file[",
                                          "] successfully",
                                          "] is canceled.",
                                          "Download request type does not match"};
    return std::any_of(std::begin(TEXTS), std::end(TEXTS),
                       [strRecord](std::string_view strText)
                       { return strRecord.find(strText) != std::string_view::npos; });
}

} // namespace

void CLogSinks::WriteToStandardError(unsigned int /*level*/, const char* record, void* /*pUserData*/)
{
    try
    {
        Write(isatty(STDERR_FILENO) == 1 ? record : WithoutFrame(record));
    }
    catch (const std::bad_alloc&)
    {
        Write(record);
    }
}

void CLogSinks::WriteToSyslog(unsigned int level, const char* record, void* /*pUserData*/)
{
    const int nPriority = level > 0 ? LOG_INFO : IsMilestone(record) ? LOG_NOTICE : LOG_ERR;
    try
    {
        syslog(nPriority, "%s", WithoutFrame(record).c_str());
    }
    catch (const std::bad_alloc&)
    {
        syslog(nPriority, "%s", record);
    }
}

void CLogSinks::FoldRepeats(unsigned int level, const char* record, void* pFolding)
{
    FOLDING_t& tFolding = *static_cast<FOLDING_t*>(pFolding);
    if (tFolding.nLevel == level && tFolding.strLast == record)
    {
        ++tFolding.nRepeats;
        return;
    }
    if (tFolding.nRepeats > 0)
    {
        char szText[64];
        static_cast<void>(snprintf(szText, sizeof szText, "… %lu more like this\n", tFolding.nRepeats));
        tFolding.pfnSink(tFolding.nLevel, szText, tFolding.pSinkUserData);
    }
    tFolding.nLevel = level;
    tFolding.nRepeats = 0;
    try
    {
        tFolding.strLast = record;
    }
    catch (const std::bad_alloc&)
    {
        tFolding.strLast.clear();
    }
    tFolding.pfnSink(level, record, tFolding.pSinkUserData);
}
