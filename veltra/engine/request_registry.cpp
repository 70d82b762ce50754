/* The registry of all transfers: the request list and the multi handle. */

#include <glib.h>
#include <memory>

#include "veltra/engine/transfer.h"
#include "veltra/engine/web_connector.h"
#include "veltra/platform/lock_guard.h"

#define VELTRA_LOG_MODULE "WebConnector"
#include "veltra/log.h"

/**
 * A transfer is listed first, so that it is found however soon it ends, and under the lock that a worker takes before
 * it ends the engine, so that it is never met half-way. Refused, it is on neither, and nothing is freed.
 */
bool CWebConnector::m_SubmitRequest(_REQ_HANDLER_t* ptReqHandler)
{
    const CLockGuard tGuard(m_tSubmitLock);
    if (!m_CheckRunning())
    {
        return false;
    }
    const WQCurl::WQCurlEasy* pEasyHandle = ptReqHandler->pEasyHandle;
    const auto fnUnlist = [this](_REQ_HANDLER_t* ptListed) { m_UnlistRequest(ptListed); };
    m_PushRequest(ptReqHandler);
    std::unique_ptr<_REQ_HANDLER_t, decltype(fnUnlist)> ptListed(ptReqHandler, fnUnlist);
    if (!m_AddEasyHandle(pEasyHandle))
    {
        return false;
    }
    static_cast<void>(ptListed.release());
    return true;
}

bool CWebConnector::m_AddEasyHandle(const WQCurl::WQCurlEasy* pEasyHandle)
{
    if (pEasyHandle == nullptr)
    {
        VELTRA_LOG_ERROR("Input param is NULL!");
        return false;
    }
    const CLockGuard tGuard(m_tMultiLock);
    m_bMultiInit = m_bMultiInit || m_tCurlMulti.Initialize();
    if (!m_bMultiInit)
    {
        VELTRA_LOG_ERROR("[WQCurl][WQCurlMulti][Initialize()] return false!!!");
        return false;
    }
    if (!m_tCurlMulti.addHandle(pEasyHandle))
    {
        VELTRA_LOG_ERROR("[WQCurl][WQCurlMulti][addHandle()] return false!");
        return false;
    }
    VELTRA_LOG_INFO("Add easy handle to multi successfully.");
    return true;
}

bool CWebConnector::m_RemoveEasyHandle(const WQCurl::WQCurlEasy* pEasyHandle)
{
    const CLockGuard tGuard(m_tMultiLock);
    const bool bRemoved = m_tCurlMulti.removeHandle(pEasyHandle);
    if (!bRemoved)
    {
        VELTRA_LOG_ERROR("[WQCurl][WQCurlMulti][removeHandle()] return false!");
    }
    return bRemoved;
}

void CWebConnector::m_PushRequest(_REQ_HANDLER_t* ptReqHandler)
{
    const CLockGuard tGuard(m_tRequestLock);
    if (m_lstSpare.empty())
    {
        m_lstSpare.emplace_back();
    }
    m_lstSpare.front() = ptReqHandler;
    m_lstRequest.splice(m_lstRequest.end(), m_lstSpare, m_lstSpare.begin());
    TRANSFER_t* ptTransfer = TRANSFER_t::Of(ptReqHandler);
    if (ptTransfer != nullptr)
    {
        ptTransfer->itListed = std::prev(m_lstRequest.end());
    }
    if (m_bIdle)
    {
        VELTRA_LOG_INFO("New Request come!");
        g_main_context_invoke(m_pMainContext, &HandleRequest, this);
        m_bIdle = false;
    }
    VELTRA_LOG_INFO("Add new request.");
}

bool CWebConnector::m_RemoveRequest(_REQ_HANDLER_t* ptReqHandler)
{
    if (!m_UnlistRequest(ptReqHandler))
    {
        return false;
    }
    TRANSFER_t* ptTransfer = TRANSFER_t::Of(ptReqHandler);
    if (ptTransfer == nullptr)
    {
        return true; // what belongs to a handler of somebody else is not the engine's
    }
    if (ptTransfer->eReqType != REQ_TYPE_HTTP)
    {
        delete static_cast<ASYNC_DOWNLOAD_t*>(ptTransfer);
    }
    else if (!static_cast<_HTTP_REQ_INFO_t*>(ptTransfer->ptReqInfo)->bSync)
    {
        delete static_cast<ASYNC_REQUEST_t*>(ptTransfer);
    }
    else
    {
        VELTRA_LOG_INFO("This https request is sync request.");
    }
    return true;
}

bool CWebConnector::m_UnlistRequest(_REQ_HANDLER_t* ptReqHandler)
{
    const CLockGuard tGuard(m_tRequestLock);
    TRANSFER_t* ptTransfer = TRANSFER_t::Of(ptReqHandler);
    if (ptTransfer == nullptr)
    {
        const size_t nBefore = m_lstRequest.size();
        m_lstRequest.remove(ptReqHandler);
        return m_lstRequest.size() != nBefore;
    }
    if (!ptTransfer->itListed.has_value())
    {
        return false;
    }
    m_lstSpare.splice(m_lstSpare.begin(), m_lstRequest, *ptTransfer->itListed);
    ptTransfer->itListed.reset();
    return true;
}

_REQ_HANDLER_t* CWebConnector::m_FindRequest(const WQCurl::WQCurlEasy* pEasyHandle)
{
    const CLockGuard tGuard(m_tRequestLock);
    for (_REQ_HANDLER_t* ptReqHandler : m_lstRequest)
    {
        if (ptReqHandler->pEasyHandle == pEasyHandle)
        {
            return ptReqHandler;
        }
    }
    return nullptr;
}
