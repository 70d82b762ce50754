/* The engine's lifecycle and its worker loop. */

#include "veltra/engine/web_connector.h"

#include <glib.h>

#include "veltra/engine/transfer.h"
#include "veltra/platform/lock_guard.h"

#define VELTRA_LOG_MODULE "WebConnector"
#include "veltra/log.h"

template class CSingleton<CWebConnector>;

namespace
{

constexpr unsigned long WORKER_STACK_SIZE = 0x20000;

/** Makes the context's loop give tSync as soon as it runs. */
void GiveOnceRunning(GMainContext* pContext, CSync& tSync)
{
    const GSourceFunc pfnGive = [](gpointer pSync) -> gboolean
    {
        static_cast<CSync*>(pSync)->Give();
        return G_SOURCE_REMOVE;
    };
    GSource* pSource = g_idle_source_new();
    g_source_set_callback(pSource, pfnGive, &tSync, nullptr);
    g_source_attach(pSource, pContext);
    g_source_unref(pSource);
}

} // namespace

CWebConnector::CWebConnector()
{
    pthread_mutex_init(&m_tRequestLock, nullptr);
    pthread_mutex_init(&m_tMultiLock, nullptr);
    pthread_mutex_init(&m_tDownloadIdLock, nullptr);
    pthread_mutex_init(&m_tDownloadLock, nullptr);
    pthread_mutex_init(&m_tSubmitLock, nullptr);
    m_bMultiInit = m_tCurlMulti.Initialize();
    if (!m_bMultiInit)
    {
        VELTRA_LOG_ERROR("[WQCurl][WQCurlMulti][Initialize()] return false!!!");
    }
}

CWebConnector::~CWebConnector()
{
    CWebConnector::Destroy();
    m_bMultiInit = false;
    pthread_mutex_destroy(&m_tMultiLock);
    pthread_mutex_destroy(&m_tRequestLock);
    pthread_mutex_destroy(&m_tDownloadIdLock);
    pthread_mutex_destroy(&m_tDownloadLock);
    pthread_mutex_destroy(&m_tSubmitLock);
}

bool CWebConnector::Create()
{
    const CLockGuard tGuard(m_tSubmitLock);
    if (m_eState != STATE_CONSTRUCTED)
    {
        VELTRA_LOG_ERROR("The engine has been created before!");
        return true;
    }
    CSync tRunning;
    const bool bSync = tRunning.Create(); // before GLib's objects, because it may throw std::bad_alloc
    m_pMainContext = g_main_context_new();
    m_pMainLoop = g_main_loop_new(m_pMainContext, FALSE);
    /* Waits until the loop runs: earlier, a pass would run on the pushing thread, and a quit would have no effect. */
    GiveOnceRunning(m_pMainContext, tRunning);
    if (!bSync || !CThreadBase::Create(WORKER_STACK_SIZE))
    {
        VELTRA_LOG_ERROR("The worker thread could not be started!");
        g_main_loop_unref(m_pMainLoop);
        g_main_context_unref(m_pMainContext);
        return true;
    }
    tRunning.Take();
    m_eState = STATE_RUNNING;
    return true;
}

void CWebConnector::Destroy()
{
    if (m_tWorkerId.load() == std::this_thread::get_id())
    {
        VELTRA_LOG_ERROR("The engine can't be destroyed on its worker thread!");
        return;
    }
    {
        const CLockGuard tGuard(m_tSubmitLock);
        if (m_eState != STATE_RUNNING)
        {
            return;
        }
        m_eState = STATE_DESTROYED;
    }
    g_main_loop_quit(m_pMainLoop);
    CThreadBase::Destroy();
    g_main_context_unref(m_pMainContext);
    g_main_loop_unref(m_pMainLoop);
}

void CWebConnector::t_Main()
{
    m_tWorkerId = std::this_thread::get_id();
    g_main_loop_run(m_pMainLoop);
    m_AbortRequests();
    m_tWorkerId = std::thread::id();
}

int CWebConnector::HandleRequest(void* pData)
{
    if (pData == nullptr)
    {
        return FALSE;
    }
    auto* ptConnector = static_cast<CWebConnector*>(pData);
    int nRunningHandles = 0;
    VELTRA_LOG_ERROR("Start http/https Request!");
    ptConnector->m_DoMultiPerform(nRunningHandles);
    do
    {
        if (ptConnector->m_CurlMultiSelect(nRunningHandles))
        {
            ptConnector->m_HandleCompletedRequest();
        }
    } while (ptConnector->m_eState != STATE_DESTROYED && ptConnector->m_CheckLeftRequest());
    VELTRA_LOG_ERROR("Left running handles = [%d]", nRunningHandles);
    VELTRA_LOG_INFO("Have Handled all http/https Requests!");
    return FALSE;
}

bool CWebConnector::m_DoMultiPerform(int& nRunningHandles)
{
    const bool bPerformed = m_tCurlMulti.Perform(nRunningHandles);
    if (!bPerformed)
    {
        VELTRA_LOG_ERROR("[WQCurl][WQCurlMulti][Perform()] return false, runningHandles[%d]!", nRunningHandles);
    }
    return bPerformed;
}

bool CWebConnector::m_CurlMultiSelect(int& nRunningHandles)
{
    const bool bSelected = m_tCurlMulti.fdSelect(nRunningHandles);
    if (!bSelected)
    {
        VELTRA_LOG_ERROR("[WQCurl][WQCurlMulti][fdSelect()] return false!");
        VELTRA_LOG_ERROR("RunningHandles = [%d]", nRunningHandles);
    }
    return bSelected;
}

bool CWebConnector::m_CheckLeftRequest()
{
    const CLockGuard tGuard(m_tRequestLock);
    /* A null entry belongs to no transfer. The pass would never end with one in the list. */
    while (!m_lstRequest.empty() && m_lstRequest.front() == nullptr)
    {
        m_EraseRequest(nullptr);
    }
    if (m_lstRequest.empty())
    {
        m_bIdle = true;
        return false;
    }
    return true;
}

void CWebConnector::m_HandleCompletedRequest()
{
    for (auto tMsg = m_tCurlMulti.InfoRead(); tMsg.pEasyHandle != nullptr; tMsg = m_tCurlMulti.InfoRead())
    {
        void* pHandler = nullptr;
        const bool bFound = tMsg.pEasyHandle->getInfo(WQCurl::PRIVATE_INFO, &pHandler) && pHandler != nullptr;
        if (!bFound)
        {
            VELTRA_LOG_ERROR("[WQCurl][WQCurlEasy][getInfo()] return false!");
            tMsg.bResult = false;
            tMsg.strErrorMsg = "The finished transfer's request could not be read back";
            pHandler = m_FindRequest(tMsg.pEasyHandle);
        }
        if (!m_FinishRequest(static_cast<_REQ_HANDLER_t*>(pHandler), tMsg, LOG_PLACE_t()) || !bFound)
        {
            return;
        }
    }
}

bool CWebConnector::m_FinishRequest(_REQ_HANDLER_t* ptReqHandler, WQCurl::WQCurlMulti::MultiMsg& tMsg,
                                    const LOG_PLACE_t& tPlace)
{
    const WQCurl::WQCurlEasy* pEasyHandle = tMsg.pEasyHandle;
    if (ptReqHandler == nullptr)
    {
        m_RemoveEasyHandle(pEasyHandle);
        return true;
    }
    const bool bComplete = IsComplete(ptReqHandler);
    const int eReqType = ptReqHandler->eReqType;
    const bool bKnown = eReqType == REQ_TYPE_HTTP || eReqType == REQ_TYPE_DOWNLOAD;
    if (eReqType == REQ_TYPE_HTTP)
    {
        m_HandleRequestResult(ptReqHandler, tMsg);
    }
    else if (bKnown)
    {
        m_HandleDownloadRequest(ptReqHandler, tMsg);
    }
    else
    {
        VELTRA_LOG_ERROR_AT(tPlace, "Unknow request type[%d]!", eReqType);
    }
    if (!bComplete || !bKnown)
    {
        /* The handler is not freed, because its owner is unknown. It is unlisted, so that the pass can end. */
        m_RemoveEasyHandle(pEasyHandle);
        m_UnlistRequest(ptReqHandler);
    }
    return bKnown;
}

void CWebConnector::m_AbortRequests()
{
    std::list<_REQ_HANDLER_t*> lstLeft;
    {
        const CLockGuard tSubmitGuard(m_tSubmitLock);
        const CLockGuard tRequestGuard(m_tRequestLock);
        lstLeft = m_lstRequest;
    }
    lstLeft.remove(nullptr);
    for (_REQ_HANDLER_t* ptReqHandler : lstLeft)
    {
        WQCurl::WQCurlMulti::MultiMsg tMsg;
        tMsg.pEasyHandle = ptReqHandler->pEasyHandle;
        tMsg.strErrorMsg = "The engine was destroyed before the transfer had ended";
        m_FinishRequest(ptReqHandler, tMsg, LOG_PLACE_t());
    }
}

bool CWebConnector::m_CheckRunning() const
{
    const bool bRunning = m_eState == STATE_RUNNING;
    if (!bRunning)
    {
        VELTRA_LOG_ERROR("The engine is not running!");
    }
    return bRunning;
}
