/* The engine's lifecycle and its worker loop. */

#include "veltra/engine/web_connector.h"

#include <glib.h>
#include <vector>

#include "veltra/platform/lock_guard.h"

#define VELTRA_LOG_MODULE "WebConnector"
#include "veltra/log.h"

template class CSingleton<CWebConnector>;

namespace
{

constexpr unsigned long WORKER_STACK_SIZE = 0x20000;

gboolean GiveSync(gpointer pSync)
{
    static_cast<CSync*>(pSync)->Give();
    return G_SOURCE_REMOVE;
}

/** Has tSync given by the thread that runs the context's loop, once it does. */
void GiveOnceRunning(GMainContext* pContext, CSync& tSync)
{
    GSource* pSource = g_idle_source_new();
    g_source_set_callback(pSource, &GiveSync, &tSync, nullptr);
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
    const bool bSync = tRunning.Create(); // may throw std::bad_alloc
    m_pMainContext = g_main_context_new();
    m_pMainLoop = g_main_loop_new(m_pMainContext, FALSE);
    /*
     * A pass may be scheduled, and the loop be quit, only once the worker owns the context: before, the pass would run
     * on the pushing thread, and the quit would be forgotten.
     */
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
    if (m_tCurlMulti.Perform(nRunningHandles))
    {
        return true;
    }
    VELTRA_LOG_ERROR("[WQCurl][WQCurlMulti][Perform()] return false, runningHandles[%d]!", nRunningHandles);
    return false;
}

bool CWebConnector::m_CurlMultiSelect(int& nRunningHandles)
{
    if (m_tCurlMulti.fdSelect(nRunningHandles))
    {
        return true;
    }
    VELTRA_LOG_ERROR("[WQCurl][WQCurlMulti][fdSelect()] return false!");
    VELTRA_LOG_ERROR("RunningHandles = [%d]", nRunningHandles);
    return false;
}

bool CWebConnector::m_CheckLeftRequest()
{
    const CLockGuard tGuard(m_tRequestLock);
    /* A null entry belongs to no transfer. Left in the list, it would keep the pass from ending. */
    while (!m_lstRequest.empty() && m_lstRequest.front() == nullptr)
    {
        m_EraseRequest(nullptr);
    }
    if (!m_lstRequest.empty())
    {
        return true;
    }
    m_bIdle = true;
    return false;
}

void CWebConnector::m_HandleCompletedRequest()
{
    for (;;)
    {
        WQCurl::WQCurlMulti::MultiMsg tMsg = m_tCurlMulti.InfoRead();
        if (tMsg.pEasyHandle == nullptr)
        {
            return;
        }
        void* pPrivate = nullptr;
        if (!tMsg.pEasyHandle->getInfo(WQCurl::PRIVATE_INFO, &pPrivate) || pPrivate == nullptr)
        {
            VELTRA_LOG_ERROR("[WQCurl][WQCurlEasy][getInfo()] return false!");
            tMsg.bResult = false;
            tMsg.strErrorMsg = "The finished transfer's request could not be read back";
            m_FinishRequest(m_FindRequest(tMsg.pEasyHandle), tMsg, LOG_PLACE_t());
            return;
        }
        if (!m_FinishRequest(static_cast<_REQ_HANDLER_t*>(pPrivate), tMsg, LOG_PLACE_t()))
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
    const bool bWhole = ptReqHandler->ptReqInfo != nullptr && ptReqHandler->pEasyHandle != nullptr;
    bool bKnown = true;
    switch (ptReqHandler->eReqType)
    {
    case REQ_TYPE_HTTP:
        m_HandleRequestResult(ptReqHandler, tMsg);
        break;
    case REQ_TYPE_DOWNLOAD:
        m_HandleDownloadRequest(ptReqHandler, tMsg);
        break;
    default:
        VELTRA_LOG_ERROR_AT(tPlace, "Unknow request type[%d]!", ptReqHandler->eReqType);
        bKnown = false;
        break;
    }
    if (!bWhole || !bKnown)
    {
        /* Nothing is freed, because the handler does not tell its owner. Unlisted, it lets the pass end. */
        m_RemoveEasyHandle(pEasyHandle);
        m_UnlistRequest(ptReqHandler);
    }
    return bKnown;
}

void CWebConnector::m_AbortRequests()
{
    std::vector<_REQ_HANDLER_t*> vecLeft;
    {
        const CLockGuard tSubmitGuard(m_tSubmitLock);
        const CLockGuard tRequestGuard(m_tRequestLock);
        vecLeft.assign(m_lstRequest.begin(), m_lstRequest.end());
    }
    for (_REQ_HANDLER_t* ptReqHandler : vecLeft)
    {
        if (ptReqHandler == nullptr)
        {
            continue;
        }
        WQCurl::WQCurlMulti::MultiMsg tMsg;
        tMsg.pEasyHandle = ptReqHandler->pEasyHandle;
        tMsg.strErrorMsg = "The engine was destroyed before the transfer had ended";
        m_FinishRequest(ptReqHandler, tMsg, LOG_PLACE_t());
    }
}

bool CWebConnector::m_CheckRunning() const
{
    if (m_eState == STATE_RUNNING)
    {
        return true;
    }
    VELTRA_LOG_ERROR("The engine is not running!");
    return false;
}
