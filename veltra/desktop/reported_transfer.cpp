#include "veltra/desktop/reported_transfer.h"

#include <utility>

#include "veltra/desktop/transfer_pool.h"

namespace WQCurl
{

namespace
{

/* Both can still be used while the thread's objects are destroyed. */
thread_local const TRANSFER_t* t_ptInCallback = nullptr;
thread_local TRANSFER_t* t_ptSynchronous = nullptr; // owned

/** Forgets the transfer at the end of its thread. */
struct THREAD_END_t
{
    ~THREAD_END_t() { ForgetSynchronousTransfer(); }
    void Register() const {}
};

thread_local const THREAD_END_t t_tThreadEnd;

} // namespace

const TRANSFER_t* ReportedTransfer()
{
    return t_ptSynchronous != nullptr ? t_ptSynchronous : t_ptInCallback;
}

const TRANSFER_t* SetCallbackTransfer(const TRANSFER_t* ptTransfer)
{
    ForgetSynchronousTransfer();
    return std::exchange(t_ptInCallback, ptTransfer);
}

void KeepSynchronousTransfer(std::unique_ptr<TRANSFER_t> ptTransfer)
{
    t_tThreadEnd.Register();
    ForgetSynchronousTransfer();
    t_ptSynchronous = ptTransfer.release();
}

void ForgetSynchronousTransfer()
{
    if (t_ptSynchronous != nullptr)
    {
        CTransferPool::Instance().Put(std::unique_ptr<TRANSFER_t>(std::exchange(t_ptSynchronous, nullptr)));
    }
}

} // namespace WQCurl
