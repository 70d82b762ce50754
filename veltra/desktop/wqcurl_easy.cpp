#include <algorithm>

#include "veltra/desktop/reported_transfer.h"
#include "veltra/desktop/transfer_pool.h"

namespace WQCurl
{

namespace
{

/** Returns the libcurl option of an enumerator that takes a number; CURLOPT_LASTENTRY for all others. */
CURLoption LongOption(WQCURL_OPTION_TYPE eOption)
{
    switch (eOption)
    {
    case NOSIGNAL:
        return CURLOPT_NOSIGNAL;
    case NOPROGRESS:
        return CURLOPT_NOPROGRESS;
    case POST:
        return CURLOPT_POST;
    case HTTPGET:
        return CURLOPT_HTTPGET;
    case POSTFIELDSIZE:
        return CURLOPT_POSTFIELDSIZE;
    case TIMEOUT:
        return CURLOPT_TIMEOUT;
    default:
        return CURLOPT_LASTENTRY;
    }
}

} // namespace

WQCurlEasy::WQCurlEasy()
{
    ForgetSynchronousTransfer(); // which the pool may give out again
    m_ptTransfer = CTransferPool::Instance().Take();
    m_ptTransfer->ptOwner = this;
}

WQCurlEasy::~WQCurlEasy()
{
    if (m_ptTransfer->bSynchronous && m_ptTransfer->tStarter == std::this_thread::get_id())
    {
        KeepSynchronousTransfer(std::move(m_ptTransfer));
    }
    else
    {
        CTransferPool::Instance().Put(std::move(m_ptTransfer));
    }
}

bool WQCurlEasy::Initialize()
{
    static const CURLcode s_eGlobalResult = curl_global_init(CURL_GLOBAL_DEFAULT);
    reset();
    return m_ptTransfer->Check(s_eGlobalResult) && m_ptTransfer->Check(m_ptTransfer->SetUp());
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, const long& lValue)
{
    if (m_ptTransfer->bInitialized && (eOption == LOW_SPEED_LIMIT || eOption == LOW_SPEED_TIME))
    {
        (eOption == LOW_SPEED_LIMIT ? m_ptTransfer->lLowSpeedLimit : m_ptTransfer->lLowSpeedSeconds) = lValue;
        return true;
    }
    const bool bSet = m_ptTransfer->Check(curl_easy_setopt(m_ptTransfer->Handle(), LongOption(eOption), lValue));
    if (bSet && eOption == POST)
    {
        m_ptTransfer->bPost = lValue != 0;
    }
    if (bSet && eOption == TIMEOUT)
    {
        m_ptTransfer->lTotalSeconds = lValue;
    }
    if (bSet && eOption == NOPROGRESS)
    {
        m_ptTransfer->bReporting = lValue == 0;
    }
    return bSet;
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, const std::string& strValue)
{
    const CURLoption eCurlOption = eOption == URL          ? CURLOPT_URL
                                   : eOption == POSTFIELDS ? CURLOPT_POSTFIELDS
                                                           : CURLOPT_LASTENTRY;
    return m_ptTransfer->Check(curl_easy_setopt(m_ptTransfer->Handle(), eCurlOption, strValue.c_str()));
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, const std::list<std::string>& lstValue)
{
    SLIST_PTR_t pList;
    if (!BuildList(lstValue, pList))
    {
        return m_ptTransfer->Check(CURLE_OUT_OF_MEMORY);
    }
    if (!m_ptTransfer->bInitialized || eOption != HTTPHEADER)
    {
        return m_ptTransfer->Check(!m_ptTransfer->bInitialized ? CURLE_BAD_FUNCTION_ARGUMENT : CURLE_UNKNOWN_OPTION);
    }
    m_ptTransfer->pHeader = std::move(pList);
    return true;
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, WRITE_FUNCTION_t pfnWrite)
{
    if (!m_ptTransfer->bInitialized || eOption != WRITEFUNCTION)
    {
        return m_ptTransfer->Check(!m_ptTransfer->bInitialized ? CURLE_BAD_FUNCTION_ARGUMENT : CURLE_UNKNOWN_OPTION);
    }
    m_ptTransfer->pfnWrite = pfnWrite;
    return true;
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, PROGRESS_FUNCTION_t pfnProgress)
{
    if (!m_ptTransfer->bInitialized || eOption != PROGRESSFUNCTION)
    {
        return m_ptTransfer->Check(!m_ptTransfer->bInitialized ? CURLE_BAD_FUNCTION_ARGUMENT : CURLE_UNKNOWN_OPTION);
    }
    m_ptTransfer->pfnProgress = pfnProgress;
    return true;
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, void* pValue)
{
    if (!m_ptTransfer->bInitialized)
    {
        return m_ptTransfer->Check(CURLE_BAD_FUNCTION_ARGUMENT);
    }
    switch (eOption)
    {
    case WRITEDATA:
        m_ptTransfer->pWriteData = pValue;
        return true;
    case PROGRESSDATA:
        m_ptTransfer->pProgressData = pValue;
        return true;
    case PRIVATE:
        m_ptTransfer->pPrivate = pValue;
        return true;
    default:
        return m_ptTransfer->Check(CURLE_UNKNOWN_OPTION);
    }
}

void WQCurlEasy::setTimeout(int nConnectSeconds, int nTotalSeconds)
{
    CURL* pEasy = m_ptTransfer->Handle();
    m_ptTransfer->lTotalSeconds = std::clamp(nTotalSeconds, 0, LONGEST_TIMEOUT);
    if (nConnectSeconds > 0)
    {
        curl_easy_setopt(pEasy, CURLOPT_CONNECTTIMEOUT, long{std::min(nConnectSeconds, LONGEST_TIMEOUT)});
    }
    curl_easy_setopt(pEasy, CURLOPT_TIMEOUT, m_ptTransfer->lTotalSeconds);
}

/** Drives the transfer with a multi handle of its own, so that it runs as those of the engine do. */
bool WQCurlEasy::send()
{
    const CCallbackScope tCallbackAround(nullptr); // this may run in a callback of another transfer
    WQCurlMulti tMulti;
    if (!m_ptTransfer->bInitialized || !tMulti.Initialize() || !tMulti.addHandle(this))
    {
        return m_ptTransfer->Check(m_ptTransfer->bInitialized ? CURLE_FAILED_INIT : CURLE_BAD_FUNCTION_ARGUMENT);
    }
    const auto fnRemove = [&tMulti](const WQCurlEasy* pEasy) { tMulti.removeHandle(pEasy); };
    const std::unique_ptr<const WQCurlEasy, decltype(fnRemove)> ptAdded(this, fnRemove); // also if memory runs out
    WQCurlMulti::MultiMsg tMsg;
    while (tMsg.pEasyHandle == nullptr)
    {
        int nRunning = 0;
        tMulti.fdSelect(nRunning);
        tMsg = tMulti.InfoRead();
    }
    m_ptTransfer->bSynchronous = true;
    m_ptTransfer->strLastError = tMsg.strErrorMsg;
    return tMsg.bResult;
}

bool WQCurlEasy::getInfo(WQCURL_INFO_TYPE eInfo, double* pdValue)
{
    curl_off_t nSpeed = 0;
    if (eInfo != SPEED_DOWNLOAD || !m_ptTransfer->bInitialized ||
        curl_easy_getinfo(m_ptTransfer->Handle(), CURLINFO_SPEED_DOWNLOAD_T, &nSpeed) != CURLE_OK)
    {
        return false;
    }
    const CAttempts& tAttempts = m_ptTransfer->tAttempts;
    const auto dReceived = static_cast<double>(m_ptTransfer->tResume.Received());
    *pdValue = tAttempts.Count() > 1 ? dReceived / tAttempts.SecondsSinceBegin() : static_cast<double>(nSpeed);
    return true;
}

bool WQCurlEasy::getInfo(WQCURL_INFO_TYPE eInfo, void** ppValue)
{
    if (eInfo != PRIVATE_INFO || !m_ptTransfer->bInitialized)
    {
        return false;
    }
    *ppValue = m_ptTransfer->pPrivate;
    return true;
}

std::string WQCurlEasy::getLastError()
{
    return m_ptTransfer->strLastError;
}

void WQCurlEasy::reset()
{
    m_ptTransfer->bInitialized = false;
    m_ptTransfer->strLastError.clear();
}

} // namespace WQCurl
