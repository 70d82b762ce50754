#include "veltra/scripted/scripts.h"

#include <chrono>
#include <utility>

namespace
{

std::mutex g_tCurrentLock;

std::shared_ptr<CScripts>& CurrentSlot()
{
    static auto* const s_ptSlot = new std::shared_ptr<CScripts>; // the worker may use it until the process ends
    return *s_ptSlot;
}

} // namespace

std::shared_ptr<CScripts> CScripts::Current()
{
    const std::lock_guard<std::mutex> tGuard(g_tCurrentLock);
    return CurrentSlot();
}

void CScripts::Open(const std::shared_ptr<CScripts>& ptScripts)
{
    const std::lock_guard<std::mutex> tGuard(g_tCurrentLock);
    if (CurrentSlot() == nullptr)
    {
        CurrentSlot() = ptScripts;
    }
}

void CScripts::Close(const std::shared_ptr<CScripts>& ptScripts)
{
    {
        const std::lock_guard<std::mutex> tGuard(g_tCurrentLock);
        if (CurrentSlot() == ptScripts)
        {
            CurrentSlot().reset();
        }
    }
    const std::lock_guard<std::mutex> tGuard(ptScripts->m_tLock);
    for (auto& [strUrl, tSite] : ptScripts->m_mapSites)
    {
        tSite.optHoldAfter.reset();
    }
}

void CScripts::Add(const std::string& strUrl, SCRIPT_t tScript)
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    m_mapSites[strUrl].queScripts.push_back(std::make_shared<const SCRIPT_t>(std::move(tScript)));
}

void CScripts::Hold(const std::string& strUrl, size_t nAfterBytes)
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    m_mapSites[strUrl].optHoldAfter = nAfterBytes;
    m_mapSites[strUrl].bHeld = false;
}

void CScripts::Release(const std::string& strUrl)
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    m_mapSites[strUrl].optHoldAfter.reset();
}

bool CScripts::WaitUntilHeld(const std::string& strUrl)
{
    constexpr std::chrono::seconds LONGEST_WAIT(10);
    std::unique_lock<std::mutex> tGuard(m_tLock);
    return m_tHeld.wait_for(tGuard, LONGEST_WAIT, [&] { return m_mapSites[strUrl].bHeld; });
}

void CScripts::RefuseWrites(const std::string& strUrl)
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    m_mapSites[strUrl].bRefusesWrites = true;
}

std::list<SCRIPTED_REQUEST_t> CScripts::Requests() const
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    return m_lstRequests;
}

std::shared_ptr<const SCRIPT_t> CScripts::Take(const SCRIPTED_REQUEST_t& tRequest)
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    m_lstRequests.push_back(tRequest);
    SITE_t& tSite = m_mapSites[tRequest.strUrl];
    if (tSite.bFirstUsed && tSite.queScripts.size() > 1)
    {
        tSite.queScripts.pop_front();
    }
    tSite.bFirstUsed = !tSite.queScripts.empty();
    return tSite.bFirstUsed ? tSite.queScripts.front() : nullptr;
}

std::optional<size_t> CScripts::UntilHold(const std::string& strUrl, size_t nReceived)
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    SITE_t& tSite = m_mapSites[strUrl];
    if (!tSite.optHoldAfter.has_value())
    {
        return std::nullopt;
    }
    if (nReceived < *tSite.optHoldAfter)
    {
        return *tSite.optHoldAfter - nReceived;
    }
    tSite.bHeld = true;
    m_tHeld.notify_all();
    return 0;
}

bool CScripts::RefusesWrites(const std::string& strUrl)
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    return m_mapSites[strUrl].bRefusesWrites;
}
