/* Downloads into files. */

#include <cerrno>
#include <cmath>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#include "veltra/engine/transfer.h"
#include "veltra/engine/web_connector.h"
#include "veltra/platform/lock_guard.h"

#define VELTRA_LOG_MODULE "WebConnector"
#include "veltra/engine/easy_option.h"

static_assert(sizeof(off_t) == 8, "files over 2 GiB need _FILE_OFFSET_BITS=64");

namespace
{

constexpr char TEMP_SUFFIX[] = ".bak";
constexpr size_t TEMP_SUFFIX_LENGTH = sizeof TEMP_SUFFIX - 1;
constexpr long LOW_SPEED_BYTES_PER_SECOND = 1024;
constexpr long LOW_SPEED_SECONDS = 30;
constexpr int PROGRESS_STEP = 5;

constexpr int DOWNLOAD_STARTED = 1;
constexpr int DOWNLOAD_FAILED = -6;
constexpr int DOWNLOAD_EXISTS = -16;

std::string TargetPath(std::string strTempFilePath)
{
    if (!strTempFilePath.empty())
    {
        strTempFilePath.erase(strTempFilePath.size() - TEMP_SUFFIX_LENGTH);
    }
    return strTempFilePath;
}

/** A zero character would cut off what makes the temporary path another than the target's. */
bool IsPath(const std::string& strFilePath)
{
    return !strFilePath.empty() && strFilePath.find('\0') == std::string::npos;
}

struct FILE_CLOSER_t
{
    // cppcheck-suppress doubleFree ; it takes the calls of unique_ptr for calls on one file
    void operator()(FILE* pFile) const { static_cast<void>(fclose(pFile)); }
};
typedef std::unique_ptr<FILE, FILE_CLOSER_t> FILE_PTR_t;

/**
 * Opens a regular file for writing, unbuffered: a full disk then fails the write itself and not, unseen, the closing.
 * What another process may put at the path meanwhile costs nothing: a link is not followed and a pipe not waited for.
 * @param bTakeOver true empties and takes a file that is there already, false refuses then
 * @return null with errno when there is none; a file that was made for it is gone again
 */
FILE_PTR_t OpenTempFile(const std::string& strPath, bool bTakeOver)
{
    constexpr int FLAGS = O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    constexpr mode_t MODE = 0666; // as fopen() gives, less the process's mask
    int nFile = open(strPath.c_str(), FLAGS | O_EXCL, MODE);
    const bool bMade = nFile >= 0;
    if (!bMade && errno == EEXIST && bTakeOver)
    {
        nFile = open(strPath.c_str(), FLAGS | O_TRUNC, MODE);
    }
    struct stat tStat = {};
    const bool bRegular = nFile >= 0 && fstat(nFile, &tStat) == 0 && S_ISREG(tStat.st_mode);
    FILE_PTR_t pFile(bRegular ? fdopen(nFile, "wb") : nullptr);
    if (pFile != nullptr)
    {
        static_cast<void>(setvbuf(pFile.get(), nullptr, _IONBF, 0));
        return pFile;
    }
    const int nError = nFile >= 0 && !bRegular ? EINVAL : errno;
    if (nFile >= 0)
    {
        close(nFile);
    }
    if (bMade)
    {
        remove(strPath.c_str());
    }
    errno = nError;
    return pFile;
}

/** True for a symbolic link, logged on behalf of the calling operation. */
bool IsSymbolicLink(const std::string& strPath, const char* pszOperation = __builtin_FUNCTION(),
                    int nLine = __builtin_LINE())
{
    struct stat tStat = {};
    if (lstat(strPath.c_str(), &tStat) != 0 || !S_ISLNK(tStat.st_mode))
    {
        return false;
    }
    VELTRA_LOG_ERROR_AT(pszOperation, nLine, "path [%s] is a symb link! there's security risk!", strPath.c_str());
    return true;
}

/**
 * True for a target that a download must not replace: a device, pipe or socket. A link is replaced, and a folder fails
 * the renaming. Logged on behalf of the calling operation.
 */
bool IsSpecialFile(const std::string& strPath, const char* pszOperation = __builtin_FUNCTION(),
                   int nLine = __builtin_LINE())
{
    struct stat tStat = {};
    if (lstat(strPath.c_str(), &tStat) != 0 || S_ISREG(tStat.st_mode) || S_ISLNK(tStat.st_mode) ||
        S_ISDIR(tStat.st_mode))
    {
        return false;
    }
    VELTRA_LOG_ERROR_AT(pszOperation, nLine, "Path [%s] is no regular file!", strPath.c_str());
    return true;
}

/**
 * Creates the temporary file of a download that StartDownload() is to start, under whose name failures are logged.
 * @return DOWNLOAD_STARTED, or the result that StartDownload() refuses with
 */
int CreateTempFile(const std::string& strPath, FILE_PTR_t& pFile, const char* pszOperation, int nLine)
{
    if (access(strPath.c_str(), F_OK) == 0)
    {
        VELTRA_LOG_ERROR_AT(pszOperation, nLine, "File [%s] is already downloading, return!", strPath.c_str());
        return DOWNLOAD_EXISTS;
    }
    /* A link to nothing passes that test, and opening it would create what it points to. */
    if (IsSymbolicLink(strPath, pszOperation, nLine) || IsSpecialFile(TargetPath(strPath), pszOperation, nLine))
    {
        return DOWNLOAD_FAILED;
    }
    pFile = OpenTempFile(strPath, false);
    if (pFile == nullptr)
    {
        const int nError = errno;
        char szBuffer[256] = "";
        const char* pszText = strerror_r(nError, szBuffer, sizeof szBuffer);
        VELTRA_LOG_ERROR_AT(pszOperation, nLine, "Failed to create file = [%s], errno[%d], errmsg[%s, %s]",
                            strPath.c_str(), nError, pszText, szBuffer);
        return DOWNLOAD_FAILED;
    }
    return IsSymbolicLink(strPath, pszOperation, nLine) ? DOWNLOAD_FAILED : DOWNLOAD_STARTED;
}

/** Tells the callback, if there still is one, how a download ended; logged on behalf of the calling operation. */
void ReportOutcome(const _HTTP_REQ_FILE_t& tReqFile, const WQCurl::WQCurlMulti::MultiMsg& tMsg,
                   const std::string& strFilePath, double dSpeed, const char* pszOperation = __builtin_FUNCTION(),
                   int nLine = __builtin_LINE())
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
        VELTRA_LOG_ERROR_AT(pszOperation, nLine, "Downloading[%d] file[%s] is canceled.", nId, strFilePath.c_str());
    }
    else if (tMsg.bResult)
    {
        pfnDownloadCB(nId, DOWNLOAD_TYPE_SUCCESS, 0, dSpeed, tReqFile.pUserData);
        VELTRA_LOG_ERROR_AT(pszOperation, nLine, "Download[%d] file[%s] successfully", nId, strFilePath.c_str());
    }
    else
    {
        pfnDownloadCB(nId, DOWNLOAD_TYPE_FAIL, 0, dSpeed, tReqFile.pUserData);
        VELTRA_LOG_ERROR_AT(pszOperation, nLine, "Failed to download[%d] file[%s], ErrorMsg[%s].", nId,
                            strFilePath.c_str(), tMsg.strErrorMsg.c_str());
    }
}

/** Brings a file to storage and closes it. @return false when some of it did not get there */
bool FlushAndClose(FILE_PTR_t pFile)
{
    const bool bFlushed = fflush(pFile.get()) == 0 && (fsync(fileno(pFile.get())) == 0 || errno == EINVAL);
    return fclose(pFile.release()) == 0 && bFlushed;
}

/** Takes away the temporary file, at the path it is given, of a download that has not been started. */
struct TEMP_FILE_REMOVER_t
{
    void operator()(const std::string* pstrPath) const
    {
        const int nResult = remove(pstrPath->c_str());
        VELTRA_LOG_ERROR_AT("StartDownload", __LINE__, "Failed to add download request, rm file %s, ret is [%d]",
                            pstrPath->c_str(), nResult);
    }
};

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
    const std::string strTempFilePath = strFilePath + TEMP_SUFFIX;
    /* In this order: the stream is closed before its file is removed. */
    std::unique_ptr<const std::string, TEMP_FILE_REMOVER_t> ptRemover;
    FILE_PTR_t pFile;
    const int nResult = CreateTempFile(strTempFilePath, pFile, __func__, __LINE__);
    if (nResult != DOWNLOAD_STARTED)
    {
        return nResult;
    }
    ptRemover.reset(&strTempFilePath);
    auto ptDownload = std::make_unique<ASYNC_DOWNLOAD_t>();
    _HTTP_REQ_FILE_t& tReqFile = ptDownload->tRecord;
    tReqFile.nDownloadId = nDownloadId;
    tReqFile.strUrl = strUrl;
    tReqFile.strTempFilePath = strTempFilePath;
    tReqFile.pFile = pFile.get();
    tReqFile.pfnDownloadCB = pfnDownloadCB;
    tReqFile.pUserData = pUserData;
    const bool bInit = m_InitDownloadRequest(ptDownload.get());
    if (!bInit || !m_SubmitRequest(ptDownload.get()))
    {
        pFile.reset();
        ptDownload->tEasyHandle.reset();
        ptDownload.reset();
        VELTRA_LOG_ERROR("%s", bInit ? "AddEasyHandle error!" : "Init download request error!");
        return DOWNLOAD_FAILED;
    }
    /* The worker's now, and perhaps freed already. */
    static_cast<void>(ptRemover.release());
    static_cast<void>(pFile.release());
    static_cast<void>(ptDownload.release());
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
    WQCurl::WQCurlEasy& tEasy = *ptReqHandler->pEasyHandle;
    if (!tEasy.Initialize())
    {
        VELTRA_LOG_ERROR("[WQCurl][WQCurlEasy][Initialize()] return false!");
        return false;
    }
    const bool bSet =
        SetOption(tEasy, WQCurl::HTTPGET, 1L, "Set WQCurl::HTTPGET error = [%s]") &&
        SetOption(tEasy, WQCurl::URL, ptReqFile->strUrl, "Set WQCurl::URL error = [%s]") &&
        SetOption(tEasy, WQCurl::PRIVATE, ptReqHandler, "Set WQCurl::PRIVATE error = [%s]") &&
        SetOption(tEasy, WQCurl::NOPROGRESS, 0L, "Set WQCurl::NOPROGRESS error = [%s]") &&
        SetOption(tEasy, WQCurl::NOSIGNAL, 1L, "Set WQCurl::NOSIGNAL error = [%s]") &&
        SetOption(tEasy, WQCurl::WRITEFUNCTION, &WriteDataToFileCBFunc, "Set WQCurl::WRITEFUNCTION error = [%s]") &&
        SetOption(tEasy, WQCurl::WRITEDATA, ptReqFile->pFile, "Set WQCurl::WRITEDATA error = [%s]") &&
        (ptReqFile->pfnDownloadCB == nullptr ||
         SetOption(tEasy, WQCurl::PROGRESSFUNCTION, &ProgressCBFunc, "Set WQCurl::PROGRESSFUNCTION error = [%s]")) &&
        SetOption(tEasy, WQCurl::PROGRESSDATA, ptReqFile, "Set WQCurl::PROGRESSDATA error = [%s]") &&
        SetOption(tEasy, WQCurl::LOW_SPEED_LIMIT, LOW_SPEED_BYTES_PER_SECOND,
                  "Set WQCurl::LOW_SPEED_LIMIT error = [%s]") &&
        SetOption(tEasy, WQCurl::LOW_SPEED_TIME, LOW_SPEED_SECONDS, "Set WQCurl::LOW_SPEED_TIME error = [%s]");
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
    tReqFile.strTempFilePath = strFilePath + TEMP_SUFFIX;
    const std::string& strTempFilePath = tReqFile.strTempFilePath;
    TRANSFER_t tTransfer(REQ_TYPE_HTTP, &tReqFile);
    WQCurl::WQCurlEasy& tEasyHandle = tTransfer.tEasyHandle;

    /* Opening through a link would empty the file that it points to. */
    if (IsSymbolicLink(strTempFilePath) || IsSpecialFile(strFilePath))
    {
        return false;
    }
    FILE_PTR_t pFile = OpenTempFile(strTempFilePath, true);
    if (pFile == nullptr)
    {
        VELTRA_LOG_ERROR("Failed to open file = [%s]", strTempFilePath.c_str());
        return false;
    }
    if (IsSymbolicLink(strTempFilePath))
    {
        return false;
    }
    tReqFile.pFile = pFile.get();
    bool bWhole = m_InitDownloadRequest(&tTransfer);
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
