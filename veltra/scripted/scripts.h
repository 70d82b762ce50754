#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "veltra/scripted/scripted_web.h"

/** The reaction of a scripted server to one request: it answers, fails, or answers and then fails. */
struct SCRIPT_t
{
    std::optional<SCRIPTED_ANSWER_t> optAnswer;
    int nResultCode = 0; /**< of the failure; 0: none */
    std::string strErrorMsg;
    size_t nAfterBytes = 0; /**< of the body, with an answer */
};

/**
 * The scripts of a scripted web and the requests that came. URLs are keys of SCRIPTED_URL_t. Any thread; the lock is
 * never held while a callback runs.
 */
class CScripts
{
public:
    /** Returns those that serve; null if no scripted web lives. */
    static std::shared_ptr<CScripts> Current();

    /** Has these scripts serve, unless others do. */
    static void Open(const std::shared_ptr<CScripts>& ptScripts);

    /** Ends that, and all holds. */
    static void Close(const std::shared_ptr<CScripts>& ptScripts);

    void Add(const std::string& strUrl, SCRIPT_t tScript);
    void Hold(const std::string& strUrl, size_t nAfterBytes);
    void Release(const std::string& strUrl);
    bool WaitUntilHeld(const std::string& strUrl);
    void RefuseWrites(const std::string& strUrl);
    std::list<SCRIPTED_REQUEST_t> Requests() const;

    /** Keeps a request. @return the script that serves it; null if there is none */
    std::shared_ptr<const SCRIPT_t> Take(const SCRIPTED_REQUEST_t& tRequest);

    /**
     * Returns how many bytes a transfer of the URL that has received so many may still receive before it is held; none
     * if it is not to be held. 0, which holds it, ends the waits for it.
     */
    std::optional<size_t> UntilHold(const std::string& strUrl, size_t nReceived);

    bool RefusesWrites(const std::string& strUrl);

private:
    struct SITE_t
    {
        std::deque<std::shared_ptr<const SCRIPT_t>> queScripts;
        bool bFirstUsed = false; /**< the next request is the second one's, once there is one */
        std::optional<size_t> optHoldAfter;
        bool bHeld = false; /**< a transfer has been held since Hold() */
        bool bRefusesWrites = false;
    };

    mutable std::mutex m_tLock;
    std::condition_variable m_tHeld;
    std::map<std::string, SITE_t> m_mapSites;
    std::list<SCRIPTED_REQUEST_t> m_lstRequests;
};
