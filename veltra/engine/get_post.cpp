/* Synchronous and asynchronous GET and POST requests. */

#include "veltra/engine/transfer.h"
#include "veltra/engine/web_connector.h"

#define VELTRA_LOG_MODULE "WebConnector"
#include "veltra/engine/easy_option.h"

namespace
{

constexpr long HTTP_TIMEOUT_SECONDS = 30;

/* Integrators search for this text, which lacks a space. */
constexpr char MISSPELT_WRITEDATA_ERROR[] = "SetWQCurl::WRITEDATA error = [%s]";

/* These reasons are logged and also left in the record. */
constexpr char ON_WORKER_THREAD[] = "A synchronous request on the worker thread would wait for itself!";
constexpr char NO_SEMAPHORE[] = "No semaphore to wait on!";

} // namespace

bool CWebConnector::Get(_HTTP_REQ_INFO_t* ptReqInfo, bool bSync)
{
    VELTRA_LOG_INFO("Start to get request, bSync[%d]", bSync);
    return m_HttpRequest(ptReqInfo, bSync, LOG_PLACE_t());
}

bool CWebConnector::Post(_HTTP_REQ_INFO_t* ptReqInfo, bool bSync)
{
    return m_HttpRequest(ptReqInfo, bSync, LOG_PLACE_t());
}

bool CWebConnector::m_HttpRequest(_HTTP_REQ_INFO_t* ptReqInfo, bool bSync, const LOG_PLACE_t& tPlace)
{
    if (ptReqInfo == nullptr)
    {
        VELTRA_LOG_ERROR_AT(tPlace, "Input parameter(ptReqInfo) is NULL.");
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
    /* The handle comes before the checks: a new one ends the report of the request before, also if this is refused. */
    WQCurl::WQCurlEasy tEasyHandle;
    ptReqInfo->bResult = false;
    ptReqInfo->strErrorReason.clear();
    if (!m_CheckRunning())
    {
        ptReqInfo->strErrorReason = "The engine is not running!";
        return false;
    }
    if (m_tWorkerId.load() == std::this_thread::get_id())
    {
        VELTRA_LOG_ERROR(ON_WORKER_THREAD);
        ptReqInfo->strErrorReason = ON_WORKER_THREAD;
        return false;
    }
    VELTRA_LOG_INFO("Start sync request.");
    _REQ_HANDLER_t tReqHandler{REQ_TYPE_HTTP, &tEasyHandle, ptReqInfo};
    if (!m_InitRequest(&tReqHandler))
    {
        tEasyHandle.reset();
        return false;
    }
    if (!ptReqInfo->tSync.Create())
    {
        tEasyHandle.reset();
        VELTRA_LOG_ERROR(NO_SEMAPHORE);
        ptReqInfo->strErrorReason = NO_SEMAPHORE;
        return false;
    }
    if (!m_SubmitRequest(&tReqHandler))
    {
        tEasyHandle.reset();
        ptReqInfo->tSync.Destroy();
        ptReqInfo->strErrorReason = "The transfer could not be registered with the engine";
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
    REQ_HANDLER_PTR_t ptReqHandler(new _REQ_HANDLER_t{REQ_TYPE_HTTP});
    ptReqHandler->ptReqInfo = new _HTTP_REQ_INFO_t(*ptReqInfo);
    ptReqHandler->pEasyHandle = new WQCurl::WQCurlEasy();
    if (!m_InitRequest(ptReqHandler.get()) || !m_SubmitRequest(ptReqHandler.get()))
    {
        ptReqHandler->pEasyHandle->reset();
        return false;
    }
    static_cast<void>(ptReqHandler.release()); // the worker may have freed it already
    VELTRA_LOG_INFO("Start an async request.");
    return true;
}

bool CWebConnector::m_InitRequest(_REQ_HANDLER_t* ptReqHandler)
{
    if (!IsComplete(ptReqHandler))
    {
        return false;
    }
    if (!ptReqHandler->pEasyHandle->Initialize())
    {
        VELTRA_LOG_ERROR("[WQCurl][WQCurlEasy][Initialize()] return false!");
        static_cast<_HTTP_REQ_INFO_t*>(ptReqHandler->ptReqInfo)->strErrorReason =
            "The transfer could not be initialised";
        return false;
    }
    if (!m_SetEasyHandleOptions(ptReqHandler))
    {
        VELTRA_LOG_ERROR("Set curl easy option error!");
        return false;
    }
    VELTRA_LOG_INFO("Init new request end.");
    return true;
}

bool CWebConnector::m_SetEasyHandleOptions(_REQ_HANDLER_t* ptReqHandler)
{
    if (!IsComplete(ptReqHandler))
    {
        return false;
    }
    auto& tReqInfo = *static_cast<_HTTP_REQ_INFO_t*>(ptReqHandler->ptReqInfo);
    if (tReqInfo.eMethod != HTTP_METHOD_GET && tReqInfo.eMethod != HTTP_METHOD_POST)
    {
        VELTRA_LOG_ERROR("Http Request Method Error: %d", tReqInfo.eMethod);
        tReqInfo.strErrorReason = "eMethod is neither GET nor POST: " + std::to_string(tReqInfo.eMethod);
        return false;
    }
    EASY_OPTION_SETTER_t tSetter{*ptReqHandler->pEasyHandle};
    const bool bMethodSet =
        tReqInfo.eMethod == HTTP_METHOD_GET
            ? SET_OPTION(tSetter, HTTPGET, 1L)
            : SET_OPTION(tSetter, POST, 1L) && SET_OPTION(tSetter, POSTFIELDS, tReqInfo.strPostData) &&
                  SET_OPTION(tSetter, POSTFIELDSIZE, static_cast<long>(tReqInfo.strPostData.size()));
    const bool bSet = bMethodSet && SET_OPTION(tSetter, URL, tReqInfo.strUrl) &&
                      SET_OPTION(tSetter, WRITEFUNCTION, &WriteDataCBFunc) &&
                      tSetter.Set(WQCurl::WRITEDATA, &tReqInfo.strResponse, MISSPELT_WRITEDATA_ERROR) &&
                      SET_OPTION(tSetter, TIMEOUT, HTTP_TIMEOUT_SECONDS) &&
                      SET_OPTION(tSetter, PRIVATE, ptReqHandler) && SET_OPTION(tSetter, NOSIGNAL, 1L) &&
                      SET_OPTION(tSetter, HTTPHEADER, tReqInfo.lstHeader);
    if (!bSet)
    {
        tReqInfo.strErrorReason = tSetter.strLastError;
        return false;
    }
    VELTRA_LOG_INFO("WQCurl last error info = [%s]", tSetter.tEasy.getLastError().c_str());
    return true;
}

size_t CWebConnector::WriteDataCBFunc(char* pData, size_t nSize, size_t nCount, void* pUser)
{
    if (pUser == nullptr || pData == nullptr)
    {
        return 0;
    }
    static_cast<std::string*>(pUser)->append(pData, nSize * nCount);
    return nSize * nCount;
}

void CWebConnector::m_HandleRequestResult(_REQ_HANDLER_t* ptReqHandler, WQCurl::WQCurlMulti::MultiMsg& tMsg)
{
    if (!IsComplete(ptReqHandler))
    {
        VELTRA_LOG_ERROR(ptReqHandler == nullptr ? "ptReqHandler is NULL!" : "ptReqInfo OR pEasyHandle is NULL!");
        return;
    }
    auto* ptReqInfo = static_cast<_HTTP_REQ_INFO_t*>(ptReqHandler->ptReqInfo);
    ptReqInfo->bResult = tMsg.bResult;
    VELTRA_LOG_INFO("Https request result[%d].", ptReqInfo->bResult);
    if (!tMsg.bResult)
    {
        VELTRA_LOG_ERROR("Https request error reason = [%s]", tMsg.strErrorMsg.c_str());
    }
    ptReqInfo->strErrorReason = tMsg.strErrorMsg;
    const bool bSync = ptReqInfo->bSync;
    if (ptReqInfo->pfnRequestCB != nullptr)
    {
        ptReqInfo->pfnRequestCB(tMsg.bResult, tMsg.strErrorMsg, ptReqInfo->strResponse, ptReqInfo->pUserData);
    }
    /* The callback may have started an asynchronous request with the same record. The release needs this one's flag. */
    ptReqInfo->bSync = bSync;
    m_ReleaseRequest(ptReqHandler, LOG_PLACE_t());
    if (bSync)
    {
        ptReqInfo->tSync.Give();
        VELTRA_LOG_INFO("Give the sync https request semaphore.");
    }
}
