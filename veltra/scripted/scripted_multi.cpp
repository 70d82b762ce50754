#include "veltra/scripted/scripted_multi.h"

#include <algorithm>

CScriptedMulti::~CScriptedMulti()
{
    for (const ENTRY_t& tEntry : m_vecEntries)
    {
        tEntry.ptTransfer->ptMulti = nullptr;
    }
}

void CScriptedMulti::Add(CScriptedTransfer& tTransfer)
{
    m_vecEntries.push_back({&tTransfer});
    tTransfer.ptMulti = this;
    tTransfer.Begin();
    Hurry();
}

void CScriptedMulti::Remove(CScriptedTransfer& tTransfer)
{
    tTransfer.ptMulti = nullptr;
    m_vecEntries.erase(std::remove_if(m_vecEntries.begin(), m_vecEntries.end(),
                                      [&](const ENTRY_t& tEntry) { return tEntry.ptTransfer == &tTransfer; }),
                       m_vecEntries.end());
}

void CScriptedMulti::Step()
{
    /* Release() comes from another thread. It is looked for so often instead of a wake-up, as is a cancellation. */
    constexpr long HELD_MILLISECONDS = 5;
    constexpr long NEVER = -1;
    long lNext = NEVER;
    for (ENTRY_t& tEntry : m_vecEntries)
    {
        if (tEntry.eState != CScriptedTransfer::STATE_ENDED)
        {
            tEntry.eState = tEntry.ptTransfer->Step();
        }
        if (tEntry.eState == CScriptedTransfer::STATE_READY)
        {
            lNext = 0;
        }
        else if (tEntry.eState == CScriptedTransfer::STATE_HELD && lNext == NEVER)
        {
            lNext = HELD_MILLISECONDS;
        }
    }
    SetTimer(lNext);
}

CURLMsg* CScriptedMulti::TakeMessage()
{
    for (ENTRY_t& tEntry : m_vecEntries)
    {
        if (tEntry.eState == CScriptedTransfer::STATE_ENDED && !tEntry.bTold)
        {
            tEntry.bTold = true;
            m_tMessage.msg = CURLMSG_DONE;
            m_tMessage.easy_handle = tEntry.ptTransfer;
            m_tMessage.data.result = tEntry.ptTransfer->Result();
            return &m_tMessage;
        }
    }
    return nullptr;
}

void CScriptedMulti::SetTimer(long lMilliseconds) const
{
    if (pfnTimer != nullptr)
    {
        pfnTimer(const_cast<CScriptedMulti*>(this), lMilliseconds, pTimerData);
    }
}
