#pragma once

#include <memory>
#include <mutex>

#include "veltra/desktop/transfer.h"

namespace WQCurl
{

/**
 * Keeps a few transfers that are not in use, with their libcurl handles where those can make another transfer: that
 * costs less than making them anew, and takes no memory. It lives as long as the process. Any thread.
 */
class CTransferPool
{
public:
    static CTransferPool& Instance();

    std::unique_ptr<TRANSFER_t> Take();

    /** Takes back a transfer, and clears it. */
    void Put(std::unique_ptr<TRANSFER_t> ptTransfer);

    /**
     * Prepares a libcurl handle for another transfer, or frees it. Before 8.1.0 each transfer needs a fresh one:
     * libcurl keeps a pointer to the freed header lines of the last answer, and an answer whose first header line is
     * folded makes it write there.
     */
    static void Recycle(EASY_PTR_t& pEasy);

private:
    static constexpr size_t MOST_IDLE = 8;

    std::mutex m_tLock;
    std::unique_ptr<TRANSFER_t> m_arrIdle[MOST_IDLE];
    size_t m_nIdle = 0;
};

} // namespace WQCurl
