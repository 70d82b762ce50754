#include "veltra/platform/kvr_debug.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <pthread.h>
#include <string>

#include "veltra/desktop/log_sinks.h"

namespace
{

std::atomic<unsigned int> g_nLevel{0};

std::mutex g_tSinkLock;
CKVRDebug::LOG_SINK_t g_pfnSink = &CLogSinks::WriteToStandardError;
void* g_pSinkUserData = nullptr;

/**
 * The record that a thread has begun and not ended. Whether it is written was decided when it began. It has no
 * destructor, because static objects of the application may log while the process ends.
 */
struct RECORD_t
{
    enum STATE_e
    {
        STATE_NONE,
        STATE_DROPPED,
        STATE_WRITTEN
    } eState = STATE_NONE;
    unsigned int nLevel = 0;
    bool bInSink = false;         /**< the sink runs on this thread: its own records would wait for it */
    std::string* pText = nullptr; /**< made by the first record that is written; freed when the thread ends */
};

/* Each call looks the record up once: most records are dropped, and that must cost little. */
thread_local RECORD_t t_tRecord;

void FreeText(void* pText)
{
    delete static_cast<std::string*>(pText);
    t_tRecord.pText = nullptr;
}

/**
 * Has the text freed when the calling thread ends, after the destructors of all thread_local objects, which may log
 * too. exit() does not end the main thread in this sense: its text lives as long as the process.
 * @return false if the system refuses it
 */
bool FreeAtThreadEnd(std::string* pText)
{
    static const pthread_key_t s_tKey = []
    {
        pthread_key_t tKey = PTHREAD_KEYS_MAX; // no key: pthread_setspecific() refuses it
        pthread_key_create(&tKey, &FreeText);
        return tKey;
    }();
    return pthread_setspecific(s_tKey, pText) == 0;
}

/** The text of the thread's record. @throw std::bad_alloc without memory */
std::string& Text(RECORD_t& tRecord)
{
    if (tRecord.pText == nullptr)
    {
        auto ptText = std::make_unique<std::string>();
        if (!FreeAtThreadEnd(ptText.get()))
        {
            throw std::bad_alloc();
        }
        tRecord.pText = ptText.release();
    }
    return *tRecord.pText;
}

/** @return whether a call's text belongs to a record that is written, after beginning one if need be */
bool BeginOrGoOn(RECORD_t& tRecord, unsigned int level)
{
    if (tRecord.eState != RECORD_t::STATE_NONE && tRecord.nLevel == level)
    {
        return tRecord.eState == RECORD_t::STATE_WRITTEN;
    }
    const bool bWanted = level <= g_nLevel.load(std::memory_order_relaxed);
    if (tRecord.eState != RECORD_t::STATE_WRITTEN)
    {
        tRecord.nLevel = level;
        tRecord.eState = bWanted ? RECORD_t::STATE_WRITTEN : RECORD_t::STATE_DROPPED;
    }
    return bWanted;
}

void AppendFormatted(std::string& strText, const char* format, va_list tArguments)
{
    if (strchr(format, '%') == nullptr)
    {
        strText += format;
        return;
    }
    constexpr size_t USUAL_LENGTH = 128; // most texts are formatted once, longer ones again
    const size_t nOld = strText.size();
    strText.resize(nOld + USUAL_LENGTH);
    va_list tCopy;
    va_copy(tCopy, tArguments);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the analyzer loses track of the caller's va_start
    const int nLength = vsnprintf(&strText[nOld], USUAL_LENGTH, format, tArguments);
    strText.resize(nOld + static_cast<size_t>(std::clamp(nLength, 0, static_cast<int>(USUAL_LENGTH) - 1)));
    if (nLength >= static_cast<int>(USUAL_LENGTH))
    {
        strText.resize(nOld + static_cast<size_t>(nLength) + 1);
        static_cast<void>(vsnprintf(&strText[nOld], static_cast<size_t>(nLength) + 1, format, tCopy));
        strText.pop_back();
    }
    va_end(tCopy);
}

void DeliverRecord(RECORD_t& tRecord)
{
    {
        const std::lock_guard<std::mutex> tGuard(g_tSinkLock);
        tRecord.bInSink = true;
        g_pfnSink(tRecord.nLevel, tRecord.pText != nullptr ? tRecord.pText->c_str() : "", g_pSinkUserData);
        tRecord.bInSink = false;
    }
    if (tRecord.pText != nullptr)
    {
        tRecord.pText->clear();
    }
    tRecord.eState = RECORD_t::STATE_NONE;
}

} // namespace

void CKVRDebug::PrintLog(unsigned int level, const char* format, ...)
{
    RECORD_t& tRecord = t_tRecord;
    if (tRecord.bInSink)
    {
        return;
    }
    const bool bWritten = BeginOrGoOn(tRecord, level);
    if (bWritten)
    {
        va_list tArguments;
        va_start(tArguments, format);
        try
        {
            AppendFormatted(Text(tRecord), format, tArguments);
        }
        catch (const std::bad_alloc&)
        {
            /* A lost text is better than a failed request. */
        }
        va_end(tArguments);
    }
    const size_t nFormat = strlen(format);
    if (nFormat == 0 || format[nFormat - 1] != '\n')
    {
        return;
    }
    if (bWritten)
    {
        DeliverRecord(tRecord);
    }
    else if (tRecord.eState == RECORD_t::STATE_DROPPED)
    {
        tRecord.eState = RECORD_t::STATE_NONE;
    }
}

void CKVRDebug::SetLevel(unsigned int level)
{
    g_nLevel.store(level, std::memory_order_relaxed);
}

void CKVRDebug::SetSink(LOG_SINK_t pfnSink, void* pUserData)
{
    const std::lock_guard<std::mutex> tGuard(g_tSinkLock);
    g_pfnSink = pfnSink != nullptr ? pfnSink : &CLogSinks::WriteToStandardError;
    g_pSinkUserData = pUserData;
}
