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
 * The transfer engine of the process: CSingleton<CWebConnector>::GetInstance(). One worker thread drives all its
 * transfers together and runs all callbacks; a synchronous download alone runs on its caller's thread.
 *
 * Call Create() once before the first request and Destroy() at the end; requests and downloads outside that span are
 * refused at once with a level-0 log record. Any thread may call any operation, callbacks included, save where one says
 * otherwise. The engine allocates with the standard library: on exhaustion an operation passes std::bad_alloc to its
 * caller, with nothing started.
 */
class VELTRA_API CWebConnector : public CThreadBase, public CSingleton<CWebConnector>
{
public:
    CWebConnector();

    /** Does what Destroy() does if that has not been called. Nobody may be using the engine. */
    ~CWebConnector() override;

    /**
     * Starts the worker thread. A second call does nothing but log; an engine that has been destroyed stays so.
     * @return always true; when the system refuses a thread, that is logged and requests go on being refused
     */
    bool Create();

    /**
     * Ends the engine: transfers in flight end as failed, every callback is called, every synchronous caller released,
     * every temporary file of an asynchronous download removed; then the worker thread is gone. Takes about a second at
     * most, besides the callbacks' own time. Does nothing when the engine does not run; in a callback
     * it only logs.
     */
    void Destroy() override;

    /**
     * Makes the request that ptReqInfo describes (its eMethod decides whether it is a GET or a POST), within 30
     * seconds.
     *
     * @param ptReqInfo the caller's. bSync true: used until the call returns; its bResult, strResponse and
     * strErrorReason then tell the outcome, also of a call that was refused. bSync false: copied, so that it may be
     * reused or freed after the call.
     * @param bSync true blocks until the transfer has ended (and is refused on the worker thread, in a callback); false
     *        returns at once
     * @return bSync true: the record's bResult. bSync false: whether the request was started; then pfnRequestCB is
     * called once, otherwise never.
     */
    bool Get(_HTTP_REQ_INFO_t* ptReqInfo, bool bSync);

    /** The same as Get(). */
    bool Post(_HTTP_REQ_INFO_t* ptReqInfo, bool bSync);

    /** Returns 1, 2, 3 and so on: an id that no other download of this engine has. Needs no Create(). */
    int CreateDownloadId();

    /**
     * Starts to download strUrl in the background, into strFilePath followed by ".bak"; that file is renamed to
     * strFilePath after a successful transfer (see _HTTP_REQ_INFO_t::bResult) and removed after any other. A download
     * that stays below 1024 bytes per second for 30 seconds fails.
     *
     * @param nDownloadId from CreateDownloadId()
     * @param strUrl http or https; copied
     * @param strFilePath the target's path; copied. A device, pipe or socket there refuses the download
     * @param pfnDownloadCB told of progress and the end; required
     * @param pUserData handed to the callback; not owned
     * @return 1 when it is under way; -16 when the ".bak" file exists already, because that target is being downloaded
     * or such a file was left behind; -6 for every other failure. After -16 and -6 the callback is never called.
     */
    int StartDownload(int nDownloadId, const std::string& strUrl, const std::string& strFilePath,
                      DOWNLOAD_CB_t pfnDownloadCB, void* pUserData);

    /**
     * Asks a running download to stop: it ends within about a second, its temporary file is removed, and its target is
     * untouched, unless its transfer had already ended. Of several downloads with the same id the oldest is meant. May
     * be called again, and in a callback.
     *
     * @param nDownloadId what StartDownload() was given
     * @param bNotify true: one last event comes, DOWNLOAD_TYPE_CANCEL. false: no event comes any more, save one whose
     *        callback the worker thread is entering or running during this call.
     * @return false when no such download is running; synchronous downloads cannot be cancelled
     */
    bool CancelDownload(int nDownloadId, bool bNotify);

    /**
     * Downloads strUrl into strFilePath on the calling thread, and returns when that is over. Needs no Create(). The
     * data goes to strFilePath followed by ".bak", over a file that stood there before, is flushed to storage and then
     * renamed.
     * A failed download leaves its ".bak" file behind, and its target untouched. Nothing keeps two downloads of the
     * same target apart. A download that stays below 1024 bytes per second for 30 seconds fails.
     *
     * @param strUrl http or https
     * @param strFilePath the target's path. A device, pipe or socket there refuses the download
     * @param nTimeoutA the longest that the whole transfer may take, in seconds; 0 sets no limit
     * @param nTimeoutB the longest that connecting may take, in seconds; 0 leaves the usual 30
     * @return true when the transfer succeeded (see _HTTP_REQ_INFO_t::bResult) and all data is in storage; a rename
     * that fails is only logged (level 4) and leaves the ".bak" file
     */
    bool SyncDownloadFile(const std::string& strUrl, const std::string& strFilePath, int nTimeoutA, int nTimeoutB);

    /*
     * What GLib and the curl wrapper call on the engine's behalf, on the thread that drives the transfer; nothing for
     * applications.
     */

    /**
     * A GLib source function: one request-handling pass, which drives all transfers until none is left. On the worker
     * thread only, scheduled by the engine itself.
     * @param pData the CWebConnector; null does nothing
     * @return always FALSE (0): the next pass is scheduled anew
     */
    static int HandleRequest(void* pData);

    /**
     * The write function of HTTP requests: appends what has arrived. An allocation failure passes as std::bad_alloc.
     * @param pData what has arrived, any bytes; not zero-terminated
     * @param nSize how many bytes an element has
     * @param nCount how many elements there are
     * @param pUser the std::string that they are appended to
     * @return nSize times nCount; 0, which fails the transfer, when pData or pUser is null
     */
    static size_t WriteDataCBFunc(char* pData, size_t nSize, size_t nCount, void* pUser);

    /**
     * The write function of downloads: writes what has arrived.
     * @param pData what has arrived, any bytes; not zero-terminated
     * @param nSize how many bytes an element has
     * @param nCount how many elements there are
     * @param pStream the FILE that they are written to
     * @return how many elements were written: fewer than nCount fail the transfer; 0 when pData or pStream is null
     */
    static size_t WriteDataToFileCBFunc(char* pData, size_t nSize, size_t nCount, void* pStream);

    /**
     * The progress function of downloads: calls the download callback when the rounded percentage is another multiple
     * of 5. A total of 0 is an unknown one, of which nothing but the beginning, 0, is reported.
     * @param pUser the download's _HTTP_REQ_FILE_t, whose nLastPercent it updates
     * @param dTotal what is to come, in bytes
     * @param dNow what has come, in bytes
     * @param dUpTotal not used
     * @param dUpNow not used
     * @return 0 to go on; 1, which stops the transfer, when the download has been cancelled or pUser is null
     */
    static int ProgressCBFunc(void* pUser, double dTotal, double dNow, double dUpTotal, double dUpNow);

private:
    enum STATE_e
    {
        STATE_CONSTRUCTED,
        STATE_RUNNING,
        STATE_DESTROYED
    };

    /* Lifecycle and worker loop */

    /** The worker thread's body: runs the loop, then ends what is left. Worker. */
    void t_Main() override;
    /** Drives all transfers one step at the start of a pass. Worker. */
    bool m_DoMultiPerform(int& nRunningHandles);
    /** Waits for something to do and drives the transfers. Worker. */
    bool m_CurlMultiSelect(int& nRunningHandles);
    /** Tells whether a pass has to go on; if not, the next submission schedules another. Worker. */
    bool m_CheckLeftRequest();
    /** Finishes each transfer that has ended. Worker. */
    void m_HandleCompletedRequest();
    /** Finishes one by its kind, and unlists what cannot be; false for an unknown kind. Logs for its caller. Worker. */
    bool m_FinishRequest(_REQ_HANDLER_t* ptReqHandler, WQCurl::WQCurlMulti::MultiMsg& tMsg, const LOG_PLACE_t& tPlace);
    /** Ends all that is left as failed, when the loop has been quit and nothing new is accepted. Worker. */
    void m_AbortRequests();
    /** Tells, and logs if not, whether the engine is between Create() and Destroy(). Any thread. */
    bool m_CheckRunning() const;

    /* The registry of all transfers */

    /** Lists a transfer and registers it, as one step to the worker, whose it is if this succeeds. Caller's thread. */
    bool m_SubmitRequest(_REQ_HANDLER_t* ptReqHandler);
    /** Registers an easy handle, after initialising the multi handle if that is still to be done. Caller's thread. */
    bool m_AddEasyHandle(const WQCurl::WQCurlEasy* pEasyHandle);
    /** Unregisters an easy handle. Worker. */
    bool m_RemoveEasyHandle(const WQCurl::WQCurlEasy* pEasyHandle);
    /** Lists a handler and schedules a pass if the engine is idle. Caller's thread. */
    void m_PushRequest(_REQ_HANDLER_t* ptReqHandler);
    /**
     * Unlists a handler and, unless its request is synchronous, frees record, easy handle and handler. Returns false
     * and frees nothing if the handler is not listed or null. Worker.
     */
    bool m_RemoveRequest(_REQ_HANDLER_t* ptReqHandler);
    /** Unlists a handler and frees nothing. Any thread. */
    void m_UnlistRequest(_REQ_HANDLER_t* ptReqHandler);
    /** Erases every entry of a handler; false if there is none. Under m_tRequestLock. Any thread. */
    bool m_EraseRequest(_REQ_HANDLER_t* ptReqHandler);
    /** Finds the listed handler of an easy handle; null if there is none. Worker. */
    _REQ_HANDLER_t* m_FindRequest(const WQCurl::WQCurlEasy* pEasyHandle);

    /* GET and POST */

    /** Makes a request over the caller's record and waits for its end. Caller's thread. */
    bool m_HttpSyncRequest(_HTTP_REQ_INFO_t* ptReqInfo);
    /** Starts a request over a copy of the caller's record. Caller's thread. */
    bool m_HttpAsyncRequest(_HTTP_REQ_INFO_t* ptReqInfo);
    /** Makes a request's easy handle ready to be submitted. Caller's thread. */
    bool m_InitRequest(_REQ_HANDLER_t* ptReqHandler);
    /** Sets the options of a request from its record. Caller's thread. */
    bool m_SetEasyHandleOptions(_REQ_HANDLER_t* ptReqHandler);
    /** Finishes a request: outcome, callback, release. Worker. */
    void m_HandleRequestResult(_REQ_HANDLER_t* ptReqHandler, WQCurl::WQCurlMulti::MultiMsg& tMsg);

    /* Downloads */

    /** Makes a download's easy handle ready to be submitted or sent. Caller's thread. */
    bool m_InitDownloadRequest(_REQ_HANDLER_t* ptReqHandler);
    /** Finishes a download: file, final event, release. Worker. */
    void m_HandleDownloadRequest(_REQ_HANDLER_t* ptReqHandler, WQCurl::WQCurlMulti::MultiMsg& tMsg);

    /*
     * Where locks meet, they are taken in this order: m_tDownloadLock, m_tSubmitLock, then one of m_tRequestLock and
     * m_tMultiLock, which are never held together. None is held while a callback of the application runs.
     */
    pthread_mutex_t m_tRequestLock;          /**< guards m_lstRequest, m_mapPlaces and m_bIdle */
    std::list<_REQ_HANDLER_t*> m_lstRequest; /**< handlers of all transfers under way, oldest first; not owned */
    _GMainContext* m_pMainContext = nullptr; /**< the worker's */
    _GMainLoop* m_pMainLoop = nullptr;       /**< what the worker runs */
    bool m_bIdle = true;                     /**< no request-handling pass is scheduled or running */
    pthread_mutex_t m_tMultiLock;            /**< guards adding and removing handles and m_bMultiInit */
    WQCurl::WQCurlMulti m_tCurlMulti;
    bool m_bMultiInit = false;         /**< m_tCurlMulti has been initialised */
    pthread_mutex_t m_tDownloadIdLock; /**< guards m_nDownloadId */
    pthread_mutex_t m_tDownloadLock;   /**< makes the set-ups of downloads follow one another */
    int m_nDownloadId = 0;             /**< the last id handed out */
    /** The places in m_lstRequest of the handlers that m_PushRequest() has listed; saves searching a long list. */
    std::unordered_multimap<_REQ_HANDLER_t*, std::list<_REQ_HANDLER_t*>::iterator> m_mapPlaces;
    pthread_mutex_t m_tSubmitLock; /**< makes listing and registering a transfer one step; guards m_eState */
    std::atomic<STATE_e> m_eState{STATE_CONSTRUCTED};
    std::atomic<std::thread::id> m_tWorkerId{std::thread::id()}; /**< set while the worker thread runs */
};

extern template class CSingleton<CWebConnector>;
