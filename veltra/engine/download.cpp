/* Downloads into files: on the worker, with events and cancellation, and on the calling thread. */

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

/** Tells the callback, if there still is one, how a download ended; logged on behalf of the calling operation. */
void ReportOutcome(const _HTTP_REQ_FILE_t& tReqFile, const WQCurl::WQCurlMulti::MultiMsg& tMsg,
                   const std::string& strFilePath, double dSpeed, LOG_PLACE_t tPlace = {})
{
    /* In this order: a silent cancellation clears the callback before it sets the flag, so that it is never reported.
     */
    const bool bCancel = tReqFile.bCancel;
    const DOWNLOAD_CB_t pfnDownloadCB = tReqFile.pfnDownloadCB;
    if (pfnDownloadCB == nullptr)
    {
        return;
    }
    const int nId = tReqFile.nDownloadId;
    if (bCancel)
    {
        pfnDownloadCB(nId, DOWNLOAD_TYPE_CANCEL, 0, dSpeed, tReqFile.pUserData);
        VELTRA_LOG_ERROR_AT(tPlace, "Downloading[%d] file[%s] is canceled.", nId, strFilePath.c_str());
    }
    else if (tMsg.bResult)
    {
        pfnDownloadCB(nId, DOWNLOAD_TYPE_SUCCESS, 0, dSpeed, tReqFile.pUserData);
        VELTRA_LOG_ERROR_AT(tPlace, "Download[%d] file[%s] successfully", nId, strFilePath.c_str());
    }
    else
    {
        pfnDownloadCB(nId, DOWNLOAD_TYPE_FAIL, 0, dSpeed, tReqFile.pUserData);
        VELTRA_LOG_ERROR_AT(tPlace, "Failed to download[%d] file[%s], ErrorMsg[%s].", nId, strFilePath.c_str(),
                            tMsg.strErrorMsg.c_str());
    }
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
    /* In this order: the stream is closed before its file is removed. */
    std::unique_ptr<const std::string, TEMP_FILE_REMOVER_t> ptRemover(nullptr, {LOG_PLACE_t()});
    bool bExists = false;
    FILE_PTR_t pFile = CreateTempFile(strTempFilePath, bExists);
    if (pFile == nullptr)
    {
        return bExists ? DOWNLOAD_EXISTS : DOWNLOAD_FAILED;
    }
    ptRemover.reset(&strTempFilePath);
    REQ_HANDLER_PTR_t ptReqHandler(new _REQ_HANDLER_t{REQ_TYPE_DOWNLOAD});
    auto* ptReqFile = new _HTTP_REQ_FILE_t();
    ptReqHandler->ptReqInfo = ptReqFile;
    ptReqHandler->pEasyHandle = new WQCurl::WQCurlEasy();
    ptReqFile->nDownloadId = nDownloadId;
    ptReqFile->strUrl = strUrl;
    ptReqFile->strTempFilePath = strTempFilePath;
    ptReqFile->pFile = pFile.get();
    ptReqFile->pfnDownloadCB = pfnDownloadCB;
    ptReqFile->pUserData = pUserData;
    const bool bInit = m_InitDownloadRequest(ptReqHandler.get());
    if (!bInit || !m_SubmitRequest(ptReqHandler.get()))
    {
        pFile.reset();
        ptReqHandler->pEasyHandle->reset();
        ptReqHandler.reset();
        if (bInit)
        {
            VELTRA_LOG_ERROR("AddEasyHandle error!");
        }
        else
        {
            VELTRA_LOG_ERROR("Init download request error!");
        }
        return DOWNLOAD_FAILED;
    }
    /* The worker owns them and may have freed them already. */
    static_cast<void>(ptRemover.release());
    static_cast<void>(pFile.release());
    static_cast<void>(ptReqHandler.release());
    VELTRA_LOG_ERROR("Start to download file[%s], download id[%d]", strTempFilePath.c_str(), nDownloadId);
    return DOWNLOAD_STARTED;
}

bool CWebConnector::m_InitDownloadRequest(_REQ_HANDLER_t* ptReqHandler)
{
    if (ptReqHandler == nullptr || ptReqHandler->ptReqInfo == nullptr || ptReqHandler->pEasyHandle == nullptr)
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
    if (pData == nullptr || pStream == nullptr)
    {
        return 0;
    }
    return fwrite(pData, nSize, nCount, static_cast<FILE*>(pStream));
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
    if (dTotal <= 0 && dNow > 0)
    {
        return 0; /* a server that sends no length */
    }
    const int nPercent = dTotal > 0 ? static_cast<int>(round(dNow * 100.0 / dTotal)) : 0;
    const DOWNLOAD_CB_t pfnDownloadCB = ptReqFile->pfnDownloadCB;
    if (nPercent % PROGRESS_STEP == 0 && nPercent != ptReqFile->nLastPercent && pfnDownloadCB != nullptr)
    {
        pfnDownloadCB(ptReqFile->nDownloadId, DOWNLOAD_TYPE_PROGRESS, nPercent, 0.0, ptReqFile->pUserData);
        ptReqFile->nLastPercent = nPercent;
    }
    return 0;
}

void CWebConnector::m_HandleDownloadRequest(_REQ_HANDLER_t* ptReqHandler, WQCurl::WQCurlMulti::MultiMsg& tMsg)
{
    if (ptReqHandler == nullptr)
    {
        VELTRA_LOG_INFO("ptReqHandler is NULL!");
        return;
    }
    auto* ptReqFile = static_cast<_HTTP_REQ_FILE_t*>(ptReqHandler->ptReqInfo);
    WQCurl::WQCurlEasy* pEasyHandle = ptReqHandler->pEasyHandle;
    if (ptReqFile == nullptr || pEasyHandle == nullptr)
    {
        VELTRA_LOG_INFO("ptReqInfo or pEasyHandle is NULL!");
        return;
    }
    double dSpeed = 0.0;
    pEasyHandle->getInfo(WQCurl::SPEED_DOWNLOAD, &dSpeed);
    VELTRA_LOG_INFO("Download[%d] speed[%f]", ptReqFile->nDownloadId, dSpeed);
    if (ptReqFile->pFile != nullptr)
    {
        /* Some file systems report only here that the data did not reach the disk. */
        if (fclose(ptReqFile->pFile) != 0 && tMsg.bResult)
        {
            tMsg.bResult = false;
            tMsg.strErrorMsg = "The file could not be written to its end";
        }
        ptReqFile->pFile = nullptr;
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
    m_RemoveEasyHandle(pEasyHandle);
    pEasyHandle->reset();
    if (!m_RemoveRequest(ptReqHandler))
    {
        VELTRA_LOG_ERROR("Remove request error!");
    }
}

bool CWebConnector::CancelDownload(int nDownloadId, bool bNotify)
{
    const CLockGuard tGuard(m_tRequestLock);
    for (const _REQ_HANDLER_t* ptReqHandler : m_lstRequest)
    {
        if (ptReqHandler == nullptr)
        {
            VELTRA_LOG_ERROR("Can't be NULL!");
            return false;
        }
        if (ptReqHandler->eReqType != REQ_TYPE_DOWNLOAD)
        {
            VELTRA_LOG_ERROR("Download request type does not match request file.");
            continue;
        }
        auto* ptReqFile = static_cast<_HTTP_REQ_FILE_t*>(ptReqHandler->ptReqInfo);
        if (ptReqFile == nullptr)
        {
            VELTRA_LOG_ERROR("Can't be NULL!");
            return false;
        }
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
    if (strUrl.empty() || !IsPath(strFilePath))
    {
        VELTRA_LOG_ERROR("Input parameter error!");
        return false;
    }
    VELTRA_LOG_INFO("Start sync request.");
    _HTTP_REQ_FILE_t tReqFile;
    tReqFile.nDownloadId = CreateDownloadId();
    tReqFile.strUrl = strUrl;
    tReqFile.strTempFilePath = TempPath(strFilePath);
    const std::string& strTempFilePath = tReqFile.strTempFilePath;
    WQCurl::WQCurlEasy tEasyHandle;
    _REQ_HANDLER_t tReqHandler{REQ_TYPE_HTTP, &tEasyHandle, &tReqFile};

    FILE_PTR_t pFile = TakeOverTempFile(strTempFilePath);
    if (pFile == nullptr)
    {
        return false;
    }
    tReqFile.pFile = pFile.get();
    bool bWhole = m_InitDownloadRequest(&tReqHandler);
    if (bWhole)
    {
        tEasyHandle.setTimeout(nTimeoutB, nTimeoutA);
        bWhole = tEasyHandle.send();
        if (!bWhole)
        {
            VELTRA_LOG_ERROR("[WQCurl][WQCurlEasy][send()] return false = [%s]!", tEasyHandle.getLastError().c_str());
        }
    }
    if (!bWhole)
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
