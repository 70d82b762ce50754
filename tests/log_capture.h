#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "veltra/platform/kvr_debug.h"

/**
 * Collects the log of its lifetime, a line each: "4 operation: text", or "0! operation: text" for a framed record. What
 * is malformed, or of another module, stands there in full.
 */
class CLogCapture
{
public:
    explicit CLogCapture(const std::string& strModule) : m_strModule(strModule)
    {
        CKVRDebug::SetSink(&OnRecord, this);
        CKVRDebug::SetLevel(4);
    }
    ~CLogCapture()
    {
        CKVRDebug::SetLevel(0);
        CKVRDebug::SetSink(nullptr, nullptr);
    }
    CLogCapture(const CLogCapture&) = delete;
    CLogCapture& operator=(const CLogCapture&) = delete;

    /** Returns, and forgets, what the creator's thread has logged. */
    std::string TakeOwn() { return Take(m_strOwn); }

    /** Returns, and forgets, what the other threads have logged. */
    std::string TakeOthers() { return Take(m_strOthers); }

    /** Waits until another thread has logged this text since the last TakeOthers(). @return false at the deadline */
    bool WaitForOthers(const std::string& strText)
    {
        std::unique_lock<std::mutex> tGuard(m_tLock);
        return m_tChanged.wait_for(tGuard, std::chrono::seconds(20),
                                   [&] { return m_strOthers.find(strText) != std::string::npos; });
    }

private:
    static void OnRecord(unsigned int nLevel, const char* pszRecord, void* pUserData)
    {
        auto* ptThis = static_cast<CLogCapture*>(pUserData);
        const std::lock_guard<std::mutex> tGuard(ptThis->m_tLock);
        (std::this_thread::get_id() == ptThis->m_tCreator ? ptThis->m_strOwn : ptThis->m_strOthers) +=
            std::to_string(nLevel) + ptThis->Line(pszRecord);
        ptThis->m_tChanged.notify_all();
    }

    std::string Line(const std::string& strRecord) const
    {
        char szModule[64] = "";
        char szOperation[64] = "";
        int nLine = 0;
        int nHeading = 0;
        sscanf(strRecord.c_str(), "[KVR][%63[A-Za-z]::%63[A-Za-z_](%d)]%n", szModule, szOperation, &nLine, &nHeading);
        const std::string strText = strRecord.substr(static_cast<size_t>(nHeading));
        if (nLine <= 0 || szModule != m_strModule || strText[0] != ' ')
        {
            return strRecord;
        }
        const std::string strBegin = " \033[1;31;42m ";
        const std::string strEnd = "\033[0m \n";
        const size_t nFrame = strBegin.size() + strEnd.size();
        return strText.size() >= nFrame && strText.compare(0, strBegin.size(), strBegin) == 0 &&
                       strText.compare(strText.size() - strEnd.size(), strEnd.size(), strEnd) == 0
                   ? std::string("! ") + szOperation + ": " + strText.substr(strBegin.size(), strText.size() - nFrame) +
                         "\n"
                   : std::string(" ") + szOperation + ":" + strText;
    }

    std::string Take(std::string& strRecords)
    {
        const std::lock_guard<std::mutex> tGuard(m_tLock);
        return std::exchange(strRecords, "");
    }

    const std::string m_strModule;
    const std::thread::id m_tCreator = std::this_thread::get_id();
    std::mutex m_tLock;
    std::condition_variable m_tChanged;
    std::string m_strOwn;
    std::string m_strOthers;
};
