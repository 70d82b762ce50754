#include <atomic>
#include <chrono>
#include <thread>

#include "veltra/desktop/reported_transfer.h"
#include "veltra/desktop/signal_guard.h"
#include "veltra/desktop/transfer_driver.h"
#include "veltra/desktop/transfer_observer.h"

namespace WQCurl
{

struct WQCurlMulti::IMPL_t
{
    CTransferDriver tDriver;
    std::atomic<bool> bReady{false};
};

WQCurlMulti::WQCurlMulti() : m_pImpl(std::make_unique<IMPL_t>()) {}

WQCurlMulti::~WQCurlMulti() = default;

bool WQCurlMulti::Initialize()
{
    if (!m_pImpl->bReady && m_pImpl->tDriver.Open())
    {
        m_pImpl->bReady = true;
    }
    return m_pImpl->bReady;
}

bool WQCurlMulti::addHandle(const WQCurlEasy* pEasyHandle)
{
    return pEasyHandle != nullptr && m_pImpl->bReady && pEasyHandle->m_ptTransfer->bInitialized &&
           m_pImpl->tDriver.Add(*pEasyHandle->m_ptTransfer, this);
}

bool WQCurlMulti::removeHandle(const WQCurlEasy* pEasyHandle)
{
    if (pEasyHandle == nullptr || pEasyHandle->m_ptTransfer->pMulti != this)
    {
        return false;
    }
    SetCallbackTransfer(nullptr);
    return m_pImpl->tDriver.Remove(pEasyHandle, *pEasyHandle->m_ptTransfer);
}

bool WQCurlMulti::Perform(int& nRunningHandles)
{
    if (!m_pImpl->bReady)
    {
        return false;
    }
    const CSignalGuard tGuard;
    const bool bResult = m_pImpl->tDriver.Step();
    nRunningHandles = m_pImpl->tDriver.CountRunning();
    return bResult;
}

bool WQCurlMulti::fdSelect(int& nRunningHandles)
{
    constexpr std::chrono::milliseconds PAUSE_WHEN_UNUSABLE(10);
    if (!m_pImpl->bReady)
    {
        std::this_thread::sleep_for(PAUSE_WHEN_UNUSABLE);
        return false;
    }
    const CSignalGuard tGuard;
    const bool bResult = m_pImpl->tDriver.WaitAndStep();
    nRunningHandles = m_pImpl->tDriver.CountRunning();
    return bResult;
}

WQCurlMulti::MultiMsg WQCurlMulti::InfoRead()
{
    MultiMsg tMsg = m_pImpl->tDriver.TakeFinished();
    if (tMsg.pEasyHandle == nullptr)
    {
        return tMsg;
    }
    TRANSFER_t& tTransfer = *tMsg.pEasyHandle->m_ptTransfer;
    tTransfer.eStage = TRANSFER_t::STAGE_REPORTED;
    tTransfer.optEnd = tMsg;
    tTransfer.bSynchronous = tTransfer.tStarter != std::this_thread::get_id(); // if it deletes the handle, too
    TellObserver(tTransfer);
    SetCallbackTransfer(&tTransfer);
    return tMsg;
}

} // namespace WQCurl
