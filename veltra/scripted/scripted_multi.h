#pragma once

#include <curl/curl.h>
#include <vector>

#include "veltra/scripted/scripted_transfer.h"

/** A multi handle: drives its transfers side by side, a step of each in turn. It belongs to the thread that drives it.
 */
class CScriptedMulti
{
public:
    CScriptedMulti() = default;
    ~CScriptedMulti();
    CScriptedMulti(const CScriptedMulti&) = delete;
    CScriptedMulti& operator=(const CScriptedMulti&) = delete;

    void Add(CScriptedTransfer& tTransfer);
    void Remove(CScriptedTransfer& tTransfer);

    /** Makes a step of each transfer that has not ended. */
    void Step();

    /** Has the next step follow at once. */
    void Hurry() const { SetTimer(0); }

    /** Returns the message of the next transfer that has ended, until the next call; null if there is none. */
    CURLMsg* TakeMessage();

    curl_multi_timer_callback pfnTimer = nullptr;
    void* pTimerData = nullptr;

private:
    struct ENTRY_t
    {
        CScriptedTransfer* ptTransfer;
        CScriptedTransfer::STATE_e eState = CScriptedTransfer::STATE_READY;
        bool bTold = false; /**< TakeMessage() has returned its message */
    };

    void SetTimer(long lMilliseconds) const;

    std::vector<ENTRY_t> m_vecEntries;
    CURLMsg m_tMessage{};
};
