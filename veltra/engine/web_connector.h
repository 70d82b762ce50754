#pragma once

#include <atomic>
#include <list>
#include <pthread.h>
#include <string>
#include <thread>
#include <unordered_map>

#include "veltra/engine/request_records.h"
#include "veltra/export.h"
#include "veltra/platform/singleton.h"
#include "veltra/platform/sync.h"
#include "veltra/platform/thread_base.h"
#include "veltra/platform/wqcurl.h"

struct _GMainContext;
struct _GMainLoop;
struct LOG_PLACE_t;

/**
 * The transfer engine of the process, which CSingleton<CWebConnector>::GetInstance() returns. One worker thread drives
 * all transfers and runs all callbacks; only a synchronous download runs on its caller's thread.
 *
 * The application calls Create() once before the first request and Destroy() at the end. Outside that time the engine
 * refuses requests and downloads with a level-0 log record. Any thread may call any operation, also in a callback,
 * unless the operation says otherwise. If memory runs out, an operation passes std::bad_alloc and has started nothing.
 */
class VELTRA_API CWebConnector : public CThreadBase, public CSingleton<CWebConnector>
{
public:
    CWebConnector();

    /** Does what Destroy() does if that has not been called. No thread may use the engine any more. */
    ~CWebConnector() override;

    /**
     * Starts the worker thread. A second call only logs; a destroyed engine cannot be created again.
     * @return always true. If the system refuses the thread, the engine logs that and keeps refusing requests
     */
    bool Create();

    /**
     * Ends the engine. Transfers in flight end as failed: their callbacks are called, synchronous callers are released,
     * and temporary files of asynchronous downloads are removed. Then the worker thread ends. This takes about a second
     * at most, plus the time of the callbacks. The call does nothing if the engine does not run, and only logs in a
     * callback.
     */
    void Destroy() override;

    /**
     * Makes the request that ptReqInfo describes. Its eMethod alone decides between GET and POST. The whole transfer is
     * limited to 30 seconds.
     *
     * @param ptReqInfo bSync true: the engine uses the caller's record until the call returns. bResult, strResponse and
     * strErrorReason then hold the outcome, also of a refused call. bSync false: the engine copies the record
     * @param bSync true: the call blocks until the transfer has ended; the worker thread is refused. false: it returns
     * at once
     * @return bSync true: the record's bResult. bSync false: true if the request was started; only then pfnRequestCB is
     * called, once
     */
    bool Get(_HTTP_REQ_INFO_t* ptReqInfo, bool bSync);

    /** Does the same as Get(). */
    bool Post(_HTTP_REQ_INFO_t* ptReqInfo, bool bSync);

    /** Returns a new download id: 1, 2, 3 and so on. The engine need not run. */
    int CreateDownloadId();

    /**
     * Starts to download strUrl in the background, into strFilePath followed by ".bak". The engine renames that file to
     * strFilePath if the transfer succeeds (see _HTTP_REQ_INFO_t::bResult) and removes it otherwise. A download fails
     * if it stays below 1024 bytes per second for 30 seconds.
     *
     * @param nDownloadId an id from CreateDownloadId()
     * @param strUrl http or https; copied
     * @param strFilePath the target's path; copied. A device, pipe or socket is refused
     * @param pfnDownloadCB is told of progress and of the end; required
     * @param pUserData is passed to the callback; not owned
     * @return 1 if the download is under way; -16 if the ".bak" file exists, because that target is being downloaded or
     * an earlier download left it; -6 for every other failure. After -16 and -6 the callback is never called
     */
    int StartDownload(int nDownloadId, const std::string& strUrl, const std::string& strFilePath,
                      DOWNLOAD_CB_t pfnDownloadCB, void* pUserData);

    /**
     * Asks a running download to stop, which takes about a second. Its temporary file is then removed and its target
     * stays untouched, unless the transfer had already ended. If several downloads have the id, the oldest stops. The
     * call may be repeated.
     *
     * @param nDownloadId the id given to StartDownload()
     * @param bNotify true: one last event comes, DOWNLOAD_TYPE_CANCEL. false: no further event comes, except one whose
     * callback the worker thread is entering or running during this call
     * @return false if no such download is running. Synchronous downloads cannot be cancelled
     */
    bool CancelDownload(int nDownloadId, bool bNotify);

    /**
     * Downloads strUrl into strFilePath on the calling thread. The engine need not run. The data is written to
     * strFilePath followed by ".bak", where an older file is overwritten. It is flushed to storage, then the file is
     * renamed. A failed download leaves its ".bak" file and does not touch the target. The caller must not download the
     * same target twice at the same time. A download fails if it stays below 1024 bytes per second for 30 seconds.
     *
     * @param strUrl http or https
     * @param strFilePath the target's path. A device, pipe or socket is refused
     * @param nTimeoutA limits the whole transfer, in seconds; 0 sets no limit
     * @param nTimeoutB limits connecting, in seconds; 0 leaves the usual 30
     * @return true if the transfer succeeded (see _HTTP_REQ_INFO_t::bResult) and all data is in storage. A failed
     * rename is only logged, at level 4, and leaves the ".bak" file
     */
    bool SyncDownloadFile(const std::string& strUrl, const std::string& strFilePath, int nTimeoutA, int nTimeoutB);

    /* GLib and the curl wrapper call the following functions. Applications do not. */

    /**
     * A GLib source function, which the engine schedules on the worker thread. It makes one request-handling pass:
     * drives all transfers until none is left. pData is the CWebConnector; null does nothing.
     * @return always FALSE (0), which removes the source
     */
    static int HandleRequest(void* pData);

    /**
     * The write function of HTTP requests. It appends nCount elements of nSize bytes at pData to the std::string at
     * pUser, and passes std::bad_alloc if memory runs out.
     * @return nSize times nCount; 0, which fails the transfer, if pData or pUser is null
     */
    static size_t WriteDataCBFunc(char* pData, size_t nSize, size_t nCount, void* pUser);

    /**
     * The write function of downloads. It writes nCount elements of nSize bytes at pData to the FILE at pStream.
     * @return the number of elements written; fewer than nCount fail the transfer; 0 if pData or pStream is null
     */
    static size_t WriteDataToFileCBFunc(char* pData, size_t nSize, size_t nCount, void* pStream);

    /**
     * The progress function of downloads. It calls the download callback if dNow bytes of dTotal are a new multiple of
     * 5 percent, rounded. While the total is unknown (0), only the beginning (0 percent) is reported. pUser is the
     * download's _HTTP_REQ_FILE_t, whose nLastPercent is updated.
     * @return 0 to continue; 1, which stops the transfer, if the download has been cancelled or pUser is null
     */
    static int ProgressCBFunc(void* pUser, double dTotal, double dNow, double dUpTotal, double dUpNow);

private:
    enum STATE_e
    {
        STATE_CONSTRUCTED,
        STATE_RUNNING,
        STATE_DESTROYED
    };

    /*
     * The lifecycle and the worker loop. All but m_CheckRunning() run on the worker thread. Here and below, tPlace
     * names the operation on whose behalf an operation logs.
     */
    void t_Main() override;
    bool m_DoMultiPerform(int& nRunningHandles);
    bool m_CurlMultiSelect(int& nRunningHandles);
    /** Returns whether the pass has to go on. If not, the next submission schedules a new one. */
    bool m_CheckLeftRequest();
    void m_HandleCompletedRequest();
    /** Finishes a transfer by its kind; returns false if that is unknown. */
    bool m_FinishRequest(_REQ_HANDLER_t* ptReqHandler, WQCurl::WQCurlMulti::MultiMsg& tMsg, const LOG_PLACE_t& tPlace);
    /** Ends all listed transfers as failed. The loop has been quit and new transfers are refused. */
    void m_AbortRequests();
    /** Returns whether the engine is between Create() and Destroy(), and logs if not. */
    bool m_CheckRunning() const;

    /* The registry of all transfers. Submissions run on the callers' threads, the rest on the worker thread. */

    /** Lists and registers a transfer, which belongs to the worker afterwards unless this fails. */
    bool m_SubmitRequest(_REQ_HANDLER_t* ptReqHandler);
    bool m_AddEasyHandle(const WQCurl::WQCurlEasy* pEasyHandle);
    bool m_RemoveEasyHandle(const WQCurl::WQCurlEasy* pEasyHandle);
    /** Lists a handler and schedules a pass if the engine is idle. */
    void m_PushRequest(_REQ_HANDLER_t* ptReqHandler);
    /**
     * Unlists a handler and, unless its request is synchronous, frees record, easy handle and handler. Returns false
     * and frees nothing if the handler is not listed or null.
     */
    bool m_RemoveRequest(_REQ_HANDLER_t* ptReqHandler);
    /** Unregisters and resets the easy handle, then removes the handler. */
    void m_ReleaseRequest(_REQ_HANDLER_t* ptReqHandler, const LOG_PLACE_t& tPlace);
    /** Unlists a handler and frees nothing. Any thread. */
    void m_UnlistRequest(_REQ_HANDLER_t* ptReqHandler);
    /** Erases every list entry of a handler; returns false if there is none. The caller holds m_tRequestLock. */
    bool m_EraseRequest(_REQ_HANDLER_t* ptReqHandler);
    _REQ_HANDLER_t* m_FindRequest(const WQCurl::WQCurlEasy* pEasyHandle);

    /* Requests and downloads. They are set up on the callers' threads and finished on the worker thread. */

    bool m_HttpRequest(_HTTP_REQ_INFO_t* ptReqInfo, bool bSync, const LOG_PLACE_t& tPlace);
    bool m_HttpSyncRequest(_HTTP_REQ_INFO_t* ptReqInfo);
    bool m_HttpAsyncRequest(_HTTP_REQ_INFO_t* ptReqInfo);
    bool m_InitRequest(_REQ_HANDLER_t* ptReqHandler);
    bool m_SetEasyHandleOptions(_REQ_HANDLER_t* ptReqHandler);
    void m_HandleRequestResult(_REQ_HANDLER_t* ptReqHandler, WQCurl::WQCurlMulti::MultiMsg& tMsg);
    bool m_InitDownloadRequest(_REQ_HANDLER_t* ptReqHandler);
    void m_HandleDownloadRequest(_REQ_HANDLER_t* ptReqHandler, WQCurl::WQCurlMulti::MultiMsg& tMsg);

    /*
     * Lock order: m_tDownloadLock, m_tSubmitLock, then m_tRequestLock or m_tMultiLock, which are never held together.
     * No lock is held while a callback of the application runs.
     */
    pthread_mutex_t m_tRequestLock;          /**< guards m_lstRequest, m_mapPlaces and m_bIdle */
    std::list<_REQ_HANDLER_t*> m_lstRequest; /**< handlers of all transfers under way, oldest first; not owned */
    _GMainContext* m_pMainContext = nullptr; /**< the worker's context */
    _GMainLoop* m_pMainLoop = nullptr;       /**< the worker's loop */
    bool m_bIdle = true;                     /**< no request-handling pass is scheduled or running */
    pthread_mutex_t m_tMultiLock;            /**< guards adding and removing handles and m_bMultiInit */
    WQCurl::WQCurlMulti m_tCurlMulti;
    bool m_bMultiInit = false;         /**< m_tCurlMulti has been initialised */
    pthread_mutex_t m_tDownloadIdLock; /**< guards m_nDownloadId */
    pthread_mutex_t m_tDownloadLock;   /**< serialises the set-ups of downloads */
    int m_nDownloadId = 0;             /**< the last id that was returned */
    /** The list entries that m_PushRequest() has made for each handler; they save searching a long list. */
    std::unordered_multimap<_REQ_HANDLER_t*, std::list<_REQ_HANDLER_t*>::iterator> m_mapPlaces;
    pthread_mutex_t m_tSubmitLock; /**< makes listing and registering a transfer one step; guards m_eState */
    std::atomic<STATE_e> m_eState{STATE_CONSTRUCTED};
    std::atomic<std::thread::id> m_tWorkerId{std::thread::id()}; /**< set while the worker thread runs */
};

extern template class CSingleton<CWebConnector>;
