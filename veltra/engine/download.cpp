/* Downloads into files: asynchronous ones on the worker, and synchronous ones on the calling thread. */

#include <cmath>
#include <memory>

#include "veltra/engine/temp_file.h"
#include "veltra/engine/transfer.h"
#include "veltra/engine/web_connector.h"
#include "veltra/platform/lock_guard.h"

#define VELTRA_LOG_MODULE "WebConnector"
#include "veltra/engine/easy_option.h"

namespace
{

constexpr long LOW_SPEED_BYTES_PER_SECOND = 1024;
constexpr long LOW_SPEED_SECONDS = 30;
constexpr int PROGRESS_STEP = 5;

constexpr int DOWNLOAD_STARTED = 1;
constexpr int DOWNLOAD_FAILED = -6;
constexpr int DOWNLOAD_EXISTS = -16;

/** Reports a download's end to its callback, if it has one. The end is logged on behalf of the calling operation. */
void ReportOutcome(const _HTTP_REQ_FILE_t& tReqFile, const WQCurl::WQCurlMulti::MultiMsg& tMsg,
                   const std::string& strFilePath, double dSpeed, LOG_PLACE_t tPlace = {})
{
    /* The flag is read first: a silent cancellation clears the callback before it sets the flag. */
    const bool bCancel = tReqFile.bCancel;
    const DOWNLOAD_CB_t pfnDownloadCB = tReqFile.pfnDownloadCB;
    if (pfnDownloadCB == nullptr)
    {
        return;
    }
    const int nId = tReqFile.nDownloadId;
    const DOWNLOAD_TYPE_e eOutcome = tMsg.bResult ? DOWNLOAD_TYPE_SUCCESS : DOWNLOAD_TYPE_FAIL;
    pfnDownloadCB(nId, bCancel ? DOWNLOAD_TYPE_CANCEL : eOutcome, 0, dSpeed, tReqFile.pUserData);
    if (!bCancel && !tMsg.bResult)
    {
        VELTRA_LOG_ERROR_AT(tPlace, "Failed to download[%d] file[%s], ErrorMsg[%s].", nId, strFilePath.c_str(),
                            tMsg.strErrorMsg.c_str());
        return;
    }
    VELTRA_LOG_ERROR_AT(tPlace,
                        bCancel ? "Downloading[%d] file[%s] is canceled." : "Download[%d] file[%s] successfully", nId,
                        strFilePath.c_str());
}

/** A deleter for std::unique_ptr: removes the temporary file at the given path, after a download failed to start. */
struct TEMP_FILE_REMOVER_t
{
    void operator()(const std::string* pstrTempFilePath) const
    {
        const int nResult = remove(pstrTempFilePath->c_str());
        VELTRA_LOG_ERROR_AT(tPlace, "Failed to add download request, rm file %s, ret is [%d]",
                            pstrTempFilePath->c_str(), nResult);
    }

    LOG_PLACE_t tPlace;
};

/** Runs a synchronous download's transfer. A failure is logged on behalf of the calling operation. */
bool Send(WQCurl::WQCurlEasy& tEasyHandle, int nConnectSeconds, int nTotalSeconds, LOG_PLACE_t tPlace = {})
{
    tEasyHandle.setTimeout(nConnectSeconds, nTotalSeconds);
    const bool bSent = tEasyHandle.send();
    if (!bSent)
    {
        VELTRA_LOG_ERROR_AT(tPlace, "[WQCurl][WQCurlEasy][send()] return false = [%s]!",
                            tEasyHandle.getLastError().c_str());
    }
    return bSent;
}

} // namespace

int CWebConnector::CreateDownloadId()
{
    const CLockGuard tGuard(m_tDownloadIdLock);
    return ++m_nDownloadId;
}

int CWebConnector::StartDownload(int nDownloadId, const std::string& strUrl, const std::string& strFilePath,
                                 DOWNLOAD_CB_t pfnDownloadCB, void* pUserData)
{
    VELTRA_LOG_INFO("Start Download:");
    if (strUrl.empty() || !IsPath(strFilePath) || pfnDownloadCB == nullptr)
    {
        VELTRA_LOG_ERROR("Input parameter error!");
        return DOWNLOAD_FAILED;
    }
    if (!m_CheckRunning())
    {
        return DOWNLOAD_FAILED;
    }
    const CLockGuard tGuard(m_tDownloadLock);
    const std::string strTempFilePath = TempPath(strFilePath);
    /* The remover is declared before the stream, so that the stream is closed first. */
    std::unique_ptr<const std::string, TEMP_FILE_REMOVER_t> ptRemover(nullptr, {LOG_PLACE_t()});
    if (TempFileExists(strTempFilePath))
    {
        return DOWNLOAD_EXISTS;
    }
    FILE_PTR_t pFile = OpenTempFile(strTempFilePath, false);
    if (pFile == nullptr)
    {
        return DOWNLOAD_FAILED;
    }
    ptRemover.reset(&strTempFilePath);
    REQ_HANDLER_PTR_t ptReqHandler(new _REQ_HANDLER_t{REQ_TYPE_DOWNLOAD});
    ptReqHandler->ptReqInfo =
        new _HTTP_REQ_FILE_t{nDownloadId, -1, false, strUrl, strTempFilePath, pFile.get(), pfnDownloadCB, pUserData};
    ptReqHandler->pEasyHandle = new WQCurl::WQCurlEasy();
    const bool bInit = m_InitDownloadRequest(ptReqHandler.get());
    if (!bInit || !m_SubmitRequest(ptReqHandler.get()))
    {
        pFile.reset();
        ptReqHandler->pEasyHandle->reset();
        ptReqHandler.reset();
        VELTRA_LOG_ERROR(bInit ? "AddEasyHandle error!" : "Init download request error!");
        return DOWNLOAD_FAILED;
    }
    /* The worker may have freed them already. */
    static_cast<void>(ptRemover.release());
    static_cast<void>(pFile.release());
    static_cast<void>(ptReqHandler.release());
    VELTRA_LOG_ERROR("Start to download file[%s], download id[%d]", strTempFilePath.c_str(), nDownloadId);
    return DOWNLOAD_STARTED;
}

bool CWebConnector::m_InitDownloadRequest(_REQ_HANDLER_t* ptReqHandler)
{
    if (!IsComplete(ptReqHandler))
    {
        return false;
    }
    auto* ptReqFile = static_cast<_HTTP_REQ_FILE_t*>(ptReqHandler->ptReqInfo);
    EASY_OPTION_SETTER_t tSetter{*ptReqHandler->pEasyHandle};
    if (!tSetter.tEasy.Initialize())
    {
        VELTRA_LOG_ERROR("[WQCurl][WQCurlEasy][Initialize()] return false!");
        return false;
    }
    const bool bSet = SET_OPTION(tSetter, HTTPGET, 1L) && SET_OPTION(tSetter, URL, ptReqFile->strUrl) &&
                      SET_OPTION(tSetter, PRIVATE, ptReqHandler) && SET_OPTION(tSetter, NOPROGRESS, 0L) &&
                      SET_OPTION(tSetter, NOSIGNAL, 1L) && SET_OPTION(tSetter, WRITEFUNCTION, &WriteDataToFileCBFunc) &&
                      SET_OPTION(tSetter, WRITEDATA, ptReqFile->pFile) &&
                      (ptReqFile->pfnDownloadCB == nullptr || SET_OPTION(tSetter, PROGRESSFUNCTION, &ProgressCBFunc)) &&
                      SET_OPTION(tSetter, PROGRESSDATA, ptReqFile) &&
                      SET_OPTION(tSetter, LOW_SPEED_LIMIT, LOW_SPEED_BYTES_PER_SECOND) &&
                      SET_OPTION(tSetter, LOW_SPEED_TIME, LOW_SPEED_SECONDS);
    if (bSet)
    {
        VELTRA_LOG_INFO("Init new download[%d] request end.", ptReqFile->nDownloadId);
    }
    return bSet;
}

size_t CWebConnector::WriteDataToFileCBFunc(char* pData, size_t nSize, size_t nCount, void* pStream)
{
    return pData == nullptr || pStream == nullptr ? 0 : fwrite(pData, nSize, nCount, static_cast<FILE*>(pStream));
}

int CWebConnector::ProgressCBFunc(void* pUser, double dTotal, double dNow, double /*dUpTotal*/, double /*dUpNow*/)
{
    if (pUser == nullptr)
    {
        VELTRA_LOG_ERROR("Progress input user point is NULL!");
        return 1;
    }
    auto* ptReqFile = static_cast<_HTTP_REQ_FILE_t*>(pUser);
    if (ptReqFile->bCancel)
    {
        VELTRA_LOG_INFO("Downloading[%d] file[%s] is canceled.", ptReqFile->nDownloadId,
                        ptReqFile->strTempFilePath.c_str());
        return 1;
    }
    const bool bKnown = dTotal > 0 || dNow <= 0; // false: the server has sent no length
    const int nPercent = dTotal > 0 ? static_cast<int>(round(dNow * 100.0 / dTotal)) : 0;
    const DOWNLOAD_CB_t pfnDownloadCB = ptReqFile->pfnDownloadCB;
    if (bKnown && nPercent % PROGRESS_STEP == 0 && nPercent != ptReqFile->nLastPercent && pfnDownloadCB != nullptr)
    {
        pfnDownloadCB(ptReqFile->nDownloadId, DOWNLOAD_TYPE_PROGRESS, nPercent, 0.0, ptReqFile->pUserData);
        ptReqFile->nLastPercent = nPercent;
    }
    return 0;
}

void CWebConnector::m_HandleDownloadRequest(_REQ_HANDLER_t* ptReqHandler, WQCurl::WQCurlMulti::MultiMsg& tMsg)
{
    if (!IsComplete(ptReqHandler))
    {
        VELTRA_LOG_INFO(ptReqHandler == nullptr ? "ptReqHandler is NULL!" : "ptReqInfo or pEasyHandle is NULL!");
        return;
    }
    auto* ptReqFile = static_cast<_HTTP_REQ_FILE_t*>(ptReqHandler->ptReqInfo);
    double dSpeed = 0.0;
    ptReqHandler->pEasyHandle->getInfo(WQCurl::SPEED_DOWNLOAD, &dSpeed);
    VELTRA_LOG_INFO("Download[%d] speed[%f]", ptReqFile->nDownloadId, dSpeed);
    /* Some file systems report a failed write only when the file is closed. */
    const bool bClosed = ptReqFile->pFile == nullptr || fclose(ptReqFile->pFile) == 0;
    ptReqFile->pFile = nullptr;
    if (!bClosed && tMsg.bResult)
    {
        tMsg.bResult = false;
        tMsg.strErrorMsg = "The file could not be written to its end";
    }
    const std::string& strTempFilePath = ptReqFile->strTempFilePath;
    const std::string strFilePath = TargetPath(strTempFilePath);
    if (tMsg.bResult)
    {
        const int nResult = rename(strTempFilePath.c_str(), strFilePath.c_str());
        VELTRA_LOG_INFO("change name %s to %s, ret is [%d]", strTempFilePath.c_str(), strFilePath.c_str(), nResult);
    }
    else
    {
        const int nResult = remove(strTempFilePath.c_str());
        VELTRA_LOG_INFO("rm file %s, ret is [%d]", strTempFilePath.c_str(), nResult);
    }
    ReportOutcome(*ptReqFile, tMsg, strFilePath, dSpeed);
    m_ReleaseRequest(ptReqHandler, LOG_PLACE_t());
}

bool CWebConnector::CancelDownload(int nDownloadId, bool bNotify)
{
    const CLockGuard tGuard(m_tRequestLock);
    for (const _REQ_HANDLER_t* ptReqHandler : m_lstRequest)
    {
        if (ptReqHandler != nullptr && ptReqHandler->eReqType != REQ_TYPE_DOWNLOAD)
        {
            VELTRA_LOG_ERROR("Download request type does not match request file.");
            continue;
        }
        if (ptReqHandler == nullptr || ptReqHandler->ptReqInfo == nullptr)
        {
            VELTRA_LOG_ERROR("Can't be NULL!");
            return false;
        }
        auto* ptReqFile = static_cast<_HTTP_REQ_FILE_t*>(ptReqHandler->ptReqInfo);
        if (ptReqFile->nDownloadId == nDownloadId)
        {
            if (!bNotify)
            {
                ptReqFile->pfnDownloadCB = nullptr;
            }
            ptReqFile->bCancel = true;
            return true;
        }
    }
    VELTRA_LOG_INFO("Cancel download [%d] file fail.", nDownloadId);
    return false;
}

bool CWebConnector::SyncDownloadFile(const std::string& strUrl, const std::string& strFilePath, int nTimeoutA,
                                     int nTimeoutB)
{
    /* The handle comes before the checks: a new one ends the report of the transfer before, also if this is refused. */
    WQCurl::WQCurlEasy tEasyHandle;
    if (strUrl.empty() || !IsPath(strFilePath))
    {
        VELTRA_LOG_ERROR("Input parameter error!");
        return false;
    }
    VELTRA_LOG_INFO("Start sync request.");
    const int nDownloadId = CreateDownloadId();
    const std::string strTempFilePath = TempPath(strFilePath);
    FILE_PTR_t pFile = OpenTempFile(strTempFilePath, true);
    if (pFile == nullptr)
    {
        return false;
    }
    _HTTP_REQ_FILE_t tReqFile{nDownloadId, -1, false, strUrl, strTempFilePath, pFile.get(), nullptr, nullptr};
    _REQ_HANDLER_t tReqHandler{REQ_TYPE_HTTP, &tEasyHandle, &tReqFile};
    if (!m_InitDownloadRequest(&tReqHandler) || !Send(tEasyHandle, nTimeoutB, nTimeoutA))
    {
        pFile.reset();
        tEasyHandle.reset();
        return false;
    }
    tEasyHandle.reset();
    if (!FlushAndClose(std::move(pFile)))
    {
        VELTRA_LOG_ERROR("File [%s] could not be written to its end!", strTempFilePath.c_str());
        return false;
    }
    const int nResult = rename(strTempFilePath.c_str(), strFilePath.c_str());
    VELTRA_LOG_INFO("change name from %s to %s, ret is [%d], Sync download end!", strTempFilePath.c_str(),
                    strFilePath.c_str(), nResult);
    return true;
}
