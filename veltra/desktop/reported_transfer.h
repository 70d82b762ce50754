#pragma once

#include <memory>

#include "veltra/desktop/transfer.h"

/** The transfer that TransferReport() describes. Each thread has its own. */
namespace WQCurl
{

/** Returns the transfer that this thread may ask for; null if there is none. */
const TRANSFER_t* ReportedTransfer();

/** Begins a callback of a transfer on this thread, or ends it with null. @return the transfer before */
const TRANSFER_t* SetCallbackTransfer(const TRANSFER_t* ptTransfer);

/** Keeps a transfer that this thread has made synchronously until the thread makes another or a callback begins. */
void KeepSynchronousTransfer(std::unique_ptr<TRANSFER_t> ptTransfer);
void ForgetSynchronousTransfer();

/** Begins a callback of a transfer, and returns to the callback around it in the end. */
class CCallbackScope
{
public:
    explicit CCallbackScope(const TRANSFER_t* ptTransfer) : m_ptOuter(SetCallbackTransfer(ptTransfer)) {}
    ~CCallbackScope() { SetCallbackTransfer(m_ptOuter); }
    CCallbackScope(const CCallbackScope&) = delete;
    CCallbackScope& operator=(const CCallbackScope&) = delete;

private:
    const TRANSFER_t* const m_ptOuter;
};

} // namespace WQCurl
