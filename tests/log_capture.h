#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <regex>
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
    explicit CLogCapture(const std::string& strModule)
        : m_tPlain(R"(\[KVR\]\[)" + strModule + R"(::(\w+)\([1-9]\d*\)\] )"),
          m_tFramed(R"(\[KVR\]\[)" + strModule + R"(::(\w+)\([1-9]\d*\)\] \x1b\[1;31;42m )")
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
        const std::string strEnd = "\033[0m \n";
        std::string strRecord = pszRecord;
        const bool bFramed = strRecord.size() >= strEnd.size() &&
                             strRecord.compare(strRecord.size() - strEnd.size(), strEnd.size(), strEnd) == 0;
        strRecord =
            std::to_string(nLevel) +
            std::regex_replace(strRecord, bFramed ? ptThis->m_tFramed : ptThis->m_tPlain, bFramed ? "! $1: " : " $1: ",
                               std::regex_constants::match_continuous | std::regex_constants::format_first_only);
        if (bFramed)
        {
            strRecord.replace(strRecord.size() - strEnd.size(), strEnd.size(), "\n");
        }
        const std::lock_guard<std::mutex> tGuard(ptThis->m_tLock);
        (std::this_thread::get_id() == ptThis->m_tCreator ? ptThis->m_strOwn : ptThis->m_strOthers) += strRecord;
        ptThis->m_tChanged.notify_all();
    }

    std::string Take(std::string& strRecords)
    {
        const std::lock_guard<std::mutex> tGuard(m_tLock);
        return std::exchange(strRecords, "");
    }

    const std::regex m_tPlain;
    const std::regex m_tFramed;
    const std::thread::id m_tCreator = std::this_thread::get_id();
    std::mutex m_tLock;
    std::condition_variable m_tChanged;
    std::string m_strOwn;
    std::string m_strOthers;
};
