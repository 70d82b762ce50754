#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <ostream>
#include <regex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "veltra/platform/kvr_debug.h"

/** One log record, taken apart. What has no proper heading or end keeps it all in its text. */
struct LOG_RECORD_t
{
    unsigned int nLevel;
    std::string strOperation; /**< "Module::operation" */
    std::string strText;
    bool bFramed;

    bool operator==(const LOG_RECORD_t& tOther) const
    {
        return nLevel == tOther.nLevel && strOperation == tOther.strOperation && strText == tOther.strText &&
               bFramed == tOther.bFramed;
    }
    friend std::ostream& operator<<(std::ostream& tOut, const LOG_RECORD_t& tRecord)
    {
        return tOut << "\n"
                    << tRecord.nLevel << (tRecord.bFramed ? "! " : "  ") << tRecord.strOperation << ": "
                    << tRecord.strText;
    }
};

inline LOG_RECORD_t ErrorRecord(const std::string& strOperation, const std::string& strText)
{
    return {0, strOperation, strText, true};
}

inline LOG_RECORD_t InfoRecord(const std::string& strOperation, const std::string& strText)
{
    return {4, strOperation, strText, false};
}

/** Collects all log records of its lifetime, those of its creator's thread apart from the others. */
class CLogCapture
{
public:
    CLogCapture()
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
    std::vector<LOG_RECORD_t> TakeOwn() { return Take(m_vecOwn); }

    /** Returns, and forgets, what the other threads have logged. */
    std::vector<LOG_RECORD_t> TakeOthers() { return Take(m_vecOthers); }

    /** Waits until another thread has logged this text since the last TakeOthers(). @return false at the deadline */
    bool WaitForOthers(const std::string& strText)
    {
        std::unique_lock<std::mutex> tGuard(m_tLock);
        const auto fnLogged = [this, &strText]
        {
            for (const LOG_RECORD_t& tRecord : m_vecOthers)
            {
                if (tRecord.strText == strText)
                {
                    return true;
                }
            }
            return false;
        };
        return m_tChanged.wait_for(tGuard, std::chrono::seconds(20), fnLogged);
    }

    static LOG_RECORD_t Parse(unsigned int nLevel, std::string strRecord)
    {
        static const std::regex HEADING(R"(\[KVR\]\[(\w+::\w+)\([1-9]\d*\)\] )");
        std::smatch tMatch;
        if (!std::regex_search(strRecord, tMatch, HEADING, std::regex_constants::match_continuous) ||
            strRecord.back() != '\n')
        {
            return {nLevel, "", strRecord, false};
        }
        std::string strText(tMatch.suffix().first, std::prev(strRecord.cend()));
        const std::string strBegin("\033[1;31;42m ");
        const std::string strEnd("\033[0m ");
        const bool bFramed = strText.size() >= strBegin.size() + strEnd.size() &&
                             strText.compare(0, strBegin.size(), strBegin) == 0 &&
                             strText.compare(strText.size() - strEnd.size(), strEnd.size(), strEnd) == 0;
        if (bFramed)
        {
            strText = strText.substr(strBegin.size(), strText.size() - strBegin.size() - strEnd.size());
        }
        return {nLevel, tMatch[1], strText, bFramed};
    }

private:
    static void OnRecord(unsigned int nLevel, const char* pszRecord, void* pUserData)
    {
        auto* ptThis = static_cast<CLogCapture*>(pUserData);
        const std::lock_guard<std::mutex> tGuard(ptThis->m_tLock);
        const bool bOwn = std::this_thread::get_id() == ptThis->m_tCreator;
        (bOwn ? ptThis->m_vecOwn : ptThis->m_vecOthers).push_back(Parse(nLevel, pszRecord));
        ptThis->m_tChanged.notify_all();
    }

    std::vector<LOG_RECORD_t> Take(std::vector<LOG_RECORD_t>& vecRecords)
    {
        const std::lock_guard<std::mutex> tGuard(m_tLock);
        return std::exchange(vecRecords, {});
    }

    const std::thread::id m_tCreator = std::this_thread::get_id();
    std::mutex m_tLock;
    std::condition_variable m_tChanged;
    std::vector<LOG_RECORD_t> m_vecOwn;
    std::vector<LOG_RECORD_t> m_vecOthers;
};
