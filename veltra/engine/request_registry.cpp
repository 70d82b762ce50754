/* The registry of all transfers: the request list and their registration with the multi handle. */

#include <algorithm>
#include <glib.h>
#include <memory>

#include "veltra/engine/transfer.h"
#include "veltra/engine/web_connector.h"
#include "veltra/platform/lock_guard.h"

#define VELTRA_LOG_MODULE "WebConnector"
#include "veltra/log.h"

/* The handler is listed first, so that a transfer that ends at once finds it. The lock hides the time between the two
 * steps from m_AbortRequests(). */
bool CWebConnector::m_SubmitRequest(_REQ_HANDLER_t* ptReqHandler)
{
    const CLockGuard tGuard(m_tSubmitLock);
    if (!m_CheckRunning())
    {
        return false;
    }
    const auto fnUnlist = [this](_REQ_HANDLER_t* ptUnlisted) { m_UnlistRequest(ptUnlisted); };
    m_PushRequest(ptReqHandler);
    std::unique_ptr<_REQ_HANDLER_t, decltype(fnUnlist)> ptListed(ptReqHandler, fnUnlist);
    if (!m_AddEasyHandle(ptReqHandler->pEasyHandle))
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
    if (!m_bMultiInit || !m_tCurlMulti.addHandle(pEasyHandle))
    {
        VELTRA_LOG_ERROR(m_bMultiInit ? "[WQCurl][WQCurlMulti][addHandle()] return false!"
                                      : "[WQCurl][WQCurlMulti][Initialize()] return false!!!");
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
    /* An allocation failure leaves the list unchanged: splice() allocates nothing. */
    std::list<_REQ_HANDLER_t*> lstNew{ptReqHandler};
    m_mapPlaces.emplace(ptReqHandler, lstNew.begin());
    m_lstRequest.splice(m_lstRequest.end(), lstNew);
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
    const CLockGuard tGuard(m_tRequestLock);
    if (!m_EraseRequest(ptReqHandler) || ptReqHandler == nullptr)
    {
        return false;
    }
    const auto* ptReqInfo = static_cast<const _HTTP_REQ_INFO_t*>(ptReqHandler->ptReqInfo);
    if (ptReqHandler->eReqType == REQ_TYPE_HTTP && ptReqInfo != nullptr && ptReqInfo->bSync)
    {
        VELTRA_LOG_INFO("This https request is sync request.");
        return true;
    }
    REQ_HANDLER_DELETER_t()(ptReqHandler); // under the lock: CancelDownload() must not find a freed record
    return true;
}

void CWebConnector::m_ReleaseRequest(_REQ_HANDLER_t* ptReqHandler, const LOG_PLACE_t& tPlace)
{
    m_RemoveEasyHandle(ptReqHandler->pEasyHandle);
    ptReqHandler->pEasyHandle->reset();
    if (!m_RemoveRequest(ptReqHandler))
    {
        VELTRA_LOG_ERROR_AT(tPlace, "Remove request error!");
    }
}

void CWebConnector::m_UnlistRequest(_REQ_HANDLER_t* ptReqHandler)
{
    const CLockGuard tGuard(m_tRequestLock);
    m_EraseRequest(ptReqHandler);
}

bool CWebConnector::m_EraseRequest(_REQ_HANDLER_t* ptReqHandler)
{
    const size_t nBefore = m_lstRequest.size();
    const auto [itFirst, itLast] = m_mapPlaces.equal_range(ptReqHandler);
    for (auto it = itFirst; it != itLast; ++it)
    {
        m_lstRequest.erase(it->second);
    }
    m_mapPlaces.erase(itFirst, itLast);
    if (m_lstRequest.size() == nBefore)
    {
        /* The map knows only the entries of m_PushRequest(). */
        m_lstRequest.remove(ptReqHandler);
    }
    return m_lstRequest.size() != nBefore;
}

_REQ_HANDLER_t* CWebConnector::m_FindRequest(const WQCurl::WQCurlEasy* pEasyHandle)
{
    const CLockGuard tGuard(m_tRequestLock);
    const auto fnMatches = [pEasyHandle](const _REQ_HANDLER_t* ptReqHandler)
    { return ptReqHandler != nullptr && ptReqHandler->pEasyHandle == pEasyHandle; };
    const auto itFound = std::find_if(m_lstRequest.begin(), m_lstRequest.end(), fnMatches);
    return itFound != m_lstRequest.end() ? *itFound : nullptr;
}
