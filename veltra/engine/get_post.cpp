/* Synchronous and asynchronous GET and POST. */

#include <memory>

#include "veltra/engine/transfer.h"
#include "veltra/engine/web_connector.h"

#define VELTRA_LOG_MODULE "WebConnector"
#include "veltra/log.h"

bool CWebConnector::Get(_HTTP_REQ_INFO_t* ptReqInfo, bool bSync)
{
    VELTRA_LOG_INFO("Start to get request, bSync[%d]", bSync);
    if (ptReqInfo == nullptr)
    {
        VELTRA_LOG_ERROR("Input parameter(ptReqInfo) is NULL.");
        return false;
    }
    ptReqInfo->bSync = bSync;
    return bSync ? m_HttpSyncRequest(ptReqInfo) : m_HttpAsyncRequest(ptReqInfo);
}

bool CWebConnector::Post(_HTTP_REQ_INFO_t* ptReqInfo, bool bSync)
{
    if (ptReqInfo == nullptr)
    {
        VELTRA_LOG_ERROR("Input parameter(ptReqInfo) is NULL.");
        return false;
    }
    ptReqInfo->bSync = bSync;
    return bSync ? m_HttpSyncRequest(ptReqInfo) : m_HttpAsyncRequest(ptReqInfo);
}

bool CWebConnector::m_HttpSyncRequest(_HTTP_REQ_INFO_t* ptReqInfo)
{
    if (ptReqInfo == nullptr)
    {
        VELTRA_LOG_ERROR("Input param is NULL.");
        return false;
    }
    if (!m_CheckRunning())
    {
        return false;
    }
    if (m_tWorkerId.load() == std::this_thread::get_id())
    {
        VELTRA_LOG_ERROR("A synchronous request on the worker thread would wait for itself!");
        return false;
    }
    VELTRA_LOG_INFO("Start sync request.");
    TRANSFER_t tTransfer(REQ_TYPE_HTTP, ptReqInfo);
    if (!m_InitRequest(&tTransfer))
    {
        tTransfer.tEasyHandle.reset();
        return false;
    }
    if (!ptReqInfo->tSync.Create())
    {
        VELTRA_LOG_ERROR("No semaphore to wait on!");
        tTransfer.tEasyHandle.reset();
        return false;
    }
    if (!m_SubmitRequest(&tTransfer))
    {
        tTransfer.tEasyHandle.reset();
        ptReqInfo->tSync.Destroy();
        return false;
    }
    ptReqInfo->tSync.Take();
    VELTRA_LOG_INFO("Take the sync https request semaphore.");
    if (ptReqInfo->tSync.m_bCreated)
    {
        VELTRA_LOG_INFO("Destroy CSync.");
        ptReqInfo->tSync.Destroy();
    }
    VELTRA_LOG_INFO("Http SyncRequest end, request result = [%d]!", ptReqInfo->bResult);
    return ptReqInfo->bResult;
}

bool CWebConnector::m_HttpAsyncRequest(_HTTP_REQ_INFO_t* ptReqInfo)
{
    if (ptReqInfo == nullptr || ptReqInfo->pfnRequestCB == nullptr || !m_CheckRunning())
    {
        return false;
    }
    auto ptRequest = std::make_unique<ASYNC_REQUEST_t>(*ptReqInfo);
    if (!m_InitRequest(ptRequest.get()) || !m_SubmitRequest(ptRequest.get()))
    {
        ptRequest->tEasyHandle.reset();
        return false;
    }
    static_cast<void>(ptRequest.release()); // the worker's now, and perhaps freed already
    VELTRA_LOG_INFO("Start an async request.");
    return true;
}

void CWebConnector::m_HandleRequestResult(_REQ_HANDLER_t* ptReqHandler, WQCurl::WQCurlMulti::MultiMsg& tMsg)
{
    if (ptReqHandler == nullptr)
    {
        VELTRA_LOG_ERROR("ptReqHandler is NULL!");
        return;
    }
    auto* ptReqInfo = static_cast<_HTTP_REQ_INFO_t*>(ptReqHandler->ptReqInfo);
    WQCurl::WQCurlEasy* pEasyHandle = ptReqHandler->pEasyHandle;
    if (ptReqInfo == nullptr || pEasyHandle == nullptr)
    {
        VELTRA_LOG_ERROR("ptReqInfo OR pEasyHandle is NULL!");
        return;
    }
    ptReqInfo->bResult = tMsg.bResult;
    VELTRA_LOG_INFO("Https request result[%d].", ptReqInfo->bResult);
    if (!tMsg.bResult)
    {
        VELTRA_LOG_ERROR("Https request error reason = [%s]", tMsg.strErrorMsg.c_str());
    }
    ptReqInfo->strErrorReason = tMsg.strErrorMsg;
    if (ptReqInfo->pfnRequestCB != nullptr)
    {
        ptReqInfo->pfnRequestCB(tMsg.bResult, tMsg.strErrorMsg, ptReqInfo->strResponse, ptReqInfo->pUserData);
    }
    m_RemoveEasyHandle(pEasyHandle);
    pEasyHandle->reset();

    /* Unlisting frees an asynchronous request, and the give hands a synchronous one back to its caller. */
    const bool bSync = ptReqInfo->bSync;
    if (!m_RemoveRequest(ptReqHandler))
    {
        VELTRA_LOG_ERROR("Remove request error!");
    }
    if (bSync)
    {
        ptReqInfo->tSync.Give();
        VELTRA_LOG_INFO("Give the sync https request semaphore.");
    }
}
