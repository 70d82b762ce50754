#pragma once

#include <list>
#include <mutex>

#include "veltra/desktop/descriptor.h"
#include "veltra/desktop/transfer.h"

namespace WQCurl
{

/**
 * The transfers that have been added to a multi handle and not started yet. Any thread adds; all other operations
 * belong to the driving thread. A transfer that is added wakes that thread up if it waits.
 */
class CTransferQueue
{
public:
    bool Open();

    /** Becomes readable when the driving thread is to stop waiting. */
    int WakeUpDescriptor() const { return m_tWakeUp.Get(); }
    void AcknowledgeWakeUp() const;

    /** Adds a transfer. @return false if it is registered with a multi handle already */
    bool Add(TRANSFER_t& tTransfer, const WQCurlMulti* ptMulti);

    /**
     * Unregisters a transfer, queued or not.
     * @param bLast receives whether no other transfer is registered any more
     * @return the stage that it had reached
     */
    TRANSFER_t::STAGE_e Remove(TRANSFER_t& tTransfer, bool& bLast);

    /**
     * Takes up to nMost requests and all downloads in the order in which they were added.
     * @param lstDownloads receives the downloads
     * @param nRegistered receives the number of registered transfers, queued or not
     * @return how many requests have been taken
     */
    size_t Take(TRANSFER_t** arrRequests, size_t nMost, std::list<TRANSFER_t*>& lstDownloads, size_t& nRegistered);

    /** Announces that the driving thread is about to wait. @return false if it must not, because a transfer is queued
     */
    bool BeginWait();
    void EndWait();

private:
    CDescriptor m_tWakeUp;
    std::mutex m_tLock;
    std::list<TRANSFER_t*> m_lstRequests; /**< guarded by m_tLock, as are the next three */
    std::list<TRANSFER_t*> m_lstDownloads;
    size_t m_nRegistered = 0;
    bool m_bWaiting = false; /**< the driving thread waits, or is about to */
};

} // namespace WQCurl
