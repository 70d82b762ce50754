#include <algorithm>
#include <mutex>
#include <sys/socket.h>

#include "veltra/platform/desktop/sigpipe_guard.h"
#include "veltra/platform/desktop/wqcurl_impl.h"

namespace WQCurl
{

namespace
{

constexpr long LARGE_BUFFER = 512L * 1024;
constexpr size_t MOST_IN_A_TURN = 2097152;

/**
 * Whether a handle can make more than one transfer. Before 8.1.1 libcurl keeps a pointer to the freed headers of the
 * last answer, and an answer whose first header line is folded makes it write there.
 */
bool CanReuseHandles()
{
    static const bool s_bCan = curl_version_info(CURLVERSION_NOW)->version_num >= 0x080101;
    return s_bCan;
}

bool BuildList(const std::list<std::string>& lstLines, SLIST_PTR_t& pResult)
{
    SLIST_PTR_t pList;
    for (const std::string& strLine : lstLines)
    {
        curl_slist* pLonger = curl_slist_append(pList.get(), strLine.c_str());
        if (pLonger == nullptr)
        {
            return false;
        }
        static_cast<void>(pList.release());
        pList.reset(pLonger);
    }
    pResult = std::move(pList);
    return true;
}

std::mutex g_tDefaultsLock;

std::shared_ptr<const DEFAULTS_t>& Defaults()
{
    static std::shared_ptr<const DEFAULTS_t> s_ptDefaults = std::make_shared<DEFAULTS_t>();
    return s_ptDefaults;
}

std::shared_ptr<const DEFAULTS_t> CurrentDefaults()
{
    const std::lock_guard<std::mutex> tGuard(g_tDefaultsLock);
    return Defaults();
}

/**
 * What all transfers share: name look-ups and TLS sessions, which libcurl would otherwise keep for each handle; not
 * connections, which it does not share safely between threads. It lives as long as the process.
 */
class CTransferShare
{
public:
    static CURLSH* Get()
    {
        static auto* const s_ptShare = new CTransferShare;
        return s_ptShare->m_pShare;
    }

private:
    CTransferShare() : m_pShare(curl_share_init())
    {
        curl_share_setopt(m_pShare, CURLSHOPT_LOCKFUNC, &Lock);
        curl_share_setopt(m_pShare, CURLSHOPT_UNLOCKFUNC, &Unlock);
        curl_share_setopt(m_pShare, CURLSHOPT_USERDATA, this);
        curl_share_setopt(m_pShare, CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS);
        curl_share_setopt(m_pShare, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    }

    static void Lock(CURL* /*pEasy*/, curl_lock_data eData, curl_lock_access /*eAccess*/, void* pShare)
    {
        static_cast<CTransferShare*>(pShare)->m_arrLocks[eData].lock();
    }

    static void Unlock(CURL* /*pEasy*/, curl_lock_data eData, void* pShare)
    {
        static_cast<CTransferShare*>(pShare)->m_arrLocks[eData].unlock();
    }

    std::mutex m_arrLocks[CURL_LOCK_DATA_LAST];
    CURLSH* m_pShare;
};

/** The libcurl option behind an enumerator that takes a plain value; CURLOPT_LASTENTRY for all others. */
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
    case LOW_SPEED_LIMIT:
        return CURLOPT_LOW_SPEED_LIMIT;
    case LOW_SPEED_TIME:
        return CURLOPT_LOW_SPEED_TIME;
    default:
        return CURLOPT_LASTENTRY;
    }
}

} // namespace

void SetTransferDefaults(const TRANSFER_DEFAULTS_t& tDefaults)
{
    auto ptDefaults = std::make_shared<DEFAULTS_t>();
    ptDefaults->strCaFile = tDefaults.strCaFile;
    if (!BuildList(tDefaults.lstConnectTo, ptDefaults->pConnectTo))
    {
        throw std::bad_alloc();
    }
    const std::lock_guard<std::mutex> tGuard(g_tDefaultsLock);
    Defaults() = std::move(ptDefaults);
}

/**
 * A few that are not in use, with their easy handles still set up: that costs less than making them for each transfer,
 * and takes no memory. It lives as long as the process.
 */
class WQCurlEasy::CPool
{
public:
    static CPool& Instance()
    {
        static auto* const s_ptPool = new CPool;
        return *s_ptPool;
    }

    std::unique_ptr<IMPL_t> Take()
    {
        {
            const std::lock_guard<std::mutex> tGuard(m_tLock);
            if (m_nIdle > 0)
            {
                return std::move(m_arrIdle[--m_nIdle]);
            }
        }
        return std::make_unique<IMPL_t>();
    }

    void Put(std::unique_ptr<IMPL_t> pImpl)
    {
        const std::lock_guard<std::mutex> tGuard(m_tLock);
        if (m_nIdle < MOST_IDLE)
        {
            m_arrIdle[m_nIdle++] = std::move(pImpl);
        }
    }

private:
    static constexpr size_t MOST_IDLE = 8;

    std::mutex m_tLock;
    std::unique_ptr<IMPL_t> m_arrIdle[MOST_IDLE];
    size_t m_nIdle = 0;
};

CURLcode WQCurlEasy::IMPL_t::Prepare(WQCurlEasy* ptOwner)
{
    std::shared_ptr<const DEFAULTS_t> ptCurrent = CurrentDefaults();
    if (pEasy == nullptr || ptDefaults != ptCurrent)
    {
        pEasy.reset(curl_easy_init());
        ptDefaults = std::move(ptCurrent);
        const CURLcode eResult = pEasy != nullptr ? SetUp() : CURLE_FAILED_INIT;
        if (eResult != CURLE_OK)
        {
            pEasy.reset();
            return eResult;
        }
    }
    const CURLcode eResult = curl_easy_setopt(pEasy.get(), CURLOPT_PRIVATE, ptOwner);
    bInitialized = eResult == CURLE_OK;
    return eResult;
}

CURLcode WQCurlEasy::IMPL_t::SetUp()
{
    CURL* p = pEasy.get();
    CURLcode eResult = CURLE_OK;
    const auto Set = [p, &eResult](CURLoption eOption, auto tValue)
    {
        if (eResult == CURLE_OK)
        {
            eResult = curl_easy_setopt(p, eOption, tValue);
        }
    };
    Set(CURLOPT_ERRORBUFFER, szError);
    Set(CURLOPT_PROTOCOLS_STR, "http,https");
    Set(CURLOPT_NOSIGNAL, 1L);
    /* Otherwise removing a transfer whose name look-up hangs would hang with it, and all others too. */
    Set(CURLOPT_QUICK_EXIT, 1L);
    Set(CURLOPT_PROXY, ""); // whoever sets the environment must not choose where requests go
    Set(CURLOPT_SHARE, CTransferShare::Get());
    Set(CURLOPT_CONNECT_TO, ptDefaults->pConnectTo.get());
    const char* pszBundle = nullptr;
    curl_easy_getinfo(p, CURLINFO_CAINFO, &pszBundle);
    if (!ptDefaults->strCaFile.empty())
    {
        pszBundle = ptDefaults->strCaFile.c_str();
        Set(CURLOPT_CAINFO, pszBundle);
    }
    if (pszBundle != nullptr)
    {
        /* No other authorities than the bundle's; and only then does libcurl keep what it has read of that, most of a
         * megabyte, for all connections, instead of reading it for each. */
        curl_easy_setopt(p, CURLOPT_CAPATH, nullptr);
    }
    Set(CURLOPT_OPENSOCKETFUNCTION, &OnOpenSocket);
    /* Own functions from the start: libcurl's defaults would write bodies and a progress meter to standard streams. */
    Set(CURLOPT_WRITEFUNCTION, &OnWrite);
    Set(CURLOPT_WRITEDATA, static_cast<void*>(this));
    Set(CURLOPT_XFERINFOFUNCTION, &OnProgress);
    Set(CURLOPT_XFERINFODATA, static_cast<void*>(this));
    return eResult;
}

void WQCurlEasy::IMPL_t::UndoOptions() const
{
    CURL* p = pEasy.get();
    curl_easy_setopt(p, CURLOPT_POSTFIELDS, nullptr);
    curl_easy_setopt(p, CURLOPT_URL, nullptr);
    curl_easy_setopt(p, CURLOPT_HTTPHEADER, nullptr);
    curl_easy_setopt(p, CURLOPT_POSTFIELDSIZE, -1L);
    curl_easy_setopt(p, CURLOPT_HTTPGET, 1L);
    curl_easy_setopt(p, CURLOPT_NOPROGRESS, 1L);
    curl_easy_setopt(p, CURLOPT_BUFFERSIZE, 0L);
    curl_easy_setopt(p, CURLOPT_TIMEOUT, 0L);
    curl_easy_setopt(p, CURLOPT_LOW_SPEED_LIMIT, 0L);
    curl_easy_setopt(p, CURLOPT_LOW_SPEED_TIME, 0L);
    curl_easy_setopt(p, CURLOPT_OPENSOCKETFUNCTION, &OnOpenSocket);
    curl_easy_setopt(p, CURLOPT_CLOSESOCKETFUNCTION, nullptr);
}

bool WQCurlEasy::IMPL_t::Note(CURLcode eCode)
{
    if (eCode != CURLE_OK)
    {
        strLastError = ErrorText(eCode);
    }
    return eCode == CURLE_OK;
}

std::string WQCurlEasy::IMPL_t::ErrorText(CURLcode eCode) const
{
    return szError[0] != '\0' ? szError : curl_easy_strerror(eCode);
}

/** As libcurl opens its sockets, but so that programs which the application starts do not inherit them. */
curl_socket_t WQCurlEasy::IMPL_t::OnOpenSocket(void* /*pUnused*/, curlsocktype /*ePurpose*/, curl_sockaddr* ptAddress)
{
    return socket(ptAddress->family, ptAddress->socktype | SOCK_CLOEXEC, ptAddress->protocol);
}

/** Where data arrive faster than they are consumed, libcurl would else read a hundred buffers before it returns. */
void WQCurlEasy::IMPL_t::CountTurn(size_t nBytes)
{
    nInTurn += nBytes;
    if (ptPaused != nullptr && nInTurn >= MOST_IN_A_TURN)
    {
        nInTurn = 0;
        ptPaused->push_back(pEasy.get());
        curl_easy_pause(pEasy.get(), CURLPAUSE_RECV);
    }
}

size_t WQCurlEasy::IMPL_t::OnWrite(char* pData, size_t nSize, size_t nCount, void* pImpl)
{
    auto* ptImpl = static_cast<IMPL_t*>(pImpl);
    if (ptImpl->pfnWrite == nullptr)
    {
        return nSize * nCount;
    }
    try
    {
        ptImpl->CountTurn(nSize * nCount);
        return ptImpl->pfnWrite(pData, nSize, nCount, ptImpl->pWriteData);
    }
    catch (...) // must not unwind libcurl's frames
    {
        return CURL_WRITEFUNC_ERROR;
    }
}

int WQCurlEasy::IMPL_t::OnProgress(void* pImpl, curl_off_t nTotal, curl_off_t nNow, curl_off_t nUpTotal,
                                   curl_off_t nUpNow)
{
    const auto* ptImpl = static_cast<IMPL_t*>(pImpl);
    if (ptImpl->pfnProgress == nullptr)
    {
        return 0;
    }
    try
    {
        return ptImpl->pfnProgress(ptImpl->pProgressData, static_cast<double>(nTotal), static_cast<double>(nNow),
                                   static_cast<double>(nUpTotal), static_cast<double>(nUpNow));
    }
    catch (...) // must not unwind libcurl's frames
    {
        return 1;
    }
}

WQCurlEasy::WQCurlEasy() : m_pImpl(CPool::Instance().Take()) {}

WQCurlEasy::~WQCurlEasy()
{
    reset();
    CPool::Instance().Put(std::move(m_pImpl));
}

bool WQCurlEasy::Initialize()
{
    static const CURLcode s_eGlobalResult = curl_global_init(CURL_GLOBAL_DEFAULT);
    reset();
    return m_pImpl->Note(s_eGlobalResult) && m_pImpl->Note(m_pImpl->Prepare(this));
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, const long& lValue)
{
    if (eOption == NOPROGRESS && lValue == 0)
    {
        /* Who wants progress expects much data: fewer and larger reads. */
        curl_easy_setopt(m_pImpl->Handle(), CURLOPT_BUFFERSIZE, LARGE_BUFFER);
    }
    return m_pImpl->Note(curl_easy_setopt(m_pImpl->Handle(), LongOption(eOption), lValue));
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, const std::string& strValue)
{
    const CURLoption eCurlOption = eOption == URL          ? CURLOPT_URL
                                   : eOption == POSTFIELDS ? CURLOPT_POSTFIELDS
                                                           : CURLOPT_LASTENTRY;
    return m_pImpl->Note(curl_easy_setopt(m_pImpl->Handle(), eCurlOption, strValue.c_str()));
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, const std::list<std::string>& lstValue)
{
    SLIST_PTR_t pList;
    if (!BuildList(lstValue, pList))
    {
        return m_pImpl->Note(CURLE_OUT_OF_MEMORY);
    }
    const CURLoption eCurlOption = eOption == HTTPHEADER ? CURLOPT_HTTPHEADER : CURLOPT_LASTENTRY;
    const bool bSet = m_pImpl->Note(curl_easy_setopt(m_pImpl->Handle(), eCurlOption, pList.get()));
    if (bSet)
    {
        m_pImpl->pHeaders = std::move(pList);
    }
    return bSet;
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, WRITE_FUNCTION_t pfnWrite)
{
    if (!m_pImpl->bInitialized || eOption != WRITEFUNCTION)
    {
        return m_pImpl->Note(!m_pImpl->bInitialized ? CURLE_BAD_FUNCTION_ARGUMENT : CURLE_UNKNOWN_OPTION);
    }
    m_pImpl->pfnWrite = pfnWrite;
    return true;
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, PROGRESS_FUNCTION_t pfnProgress)
{
    if (!m_pImpl->bInitialized || eOption != PROGRESSFUNCTION)
    {
        return m_pImpl->Note(!m_pImpl->bInitialized ? CURLE_BAD_FUNCTION_ARGUMENT : CURLE_UNKNOWN_OPTION);
    }
    m_pImpl->pfnProgress = pfnProgress;
    return true;
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, void* pValue)
{
    if (!m_pImpl->bInitialized)
    {
        return m_pImpl->Note(CURLE_BAD_FUNCTION_ARGUMENT);
    }
    switch (eOption)
    {
    case WRITEDATA:
        m_pImpl->pWriteData = pValue;
        return true;
    case PROGRESSDATA:
        m_pImpl->pProgressData = pValue;
        return true;
    case PRIVATE:
        m_pImpl->pPrivate = pValue;
        return true;
    default:
        return m_pImpl->Note(CURLE_UNKNOWN_OPTION);
    }
}

void WQCurlEasy::setTimeout(int nConnectSeconds, int nTotalSeconds)
{
    curl_easy_setopt(m_pImpl->Handle(), CURLOPT_CONNECTTIMEOUT, static_cast<long>(std::max(nConnectSeconds, 0)));
    curl_easy_setopt(m_pImpl->Handle(), CURLOPT_TIMEOUT, static_cast<long>(std::max(nTotalSeconds, 0)));
}

bool WQCurlEasy::send()
{
    const CSigpipeGuard tGuard;
    m_pImpl->bBlocking = true;
    return m_pImpl->Note(curl_easy_perform(m_pImpl->Handle()));
}

bool WQCurlEasy::getInfo(WQCURL_INFO_TYPE eInfo, double* pdValue)
{
    curl_off_t nSpeed = 0;
    if (eInfo != SPEED_DOWNLOAD || !m_pImpl->bInitialized ||
        curl_easy_getinfo(m_pImpl->Handle(), CURLINFO_SPEED_DOWNLOAD_T, &nSpeed) != CURLE_OK)
    {
        return false;
    }
    *pdValue = static_cast<double>(nSpeed);
    return true;
}

bool WQCurlEasy::getInfo(WQCURL_INFO_TYPE eInfo, void** ppValue)
{
    if (eInfo != PRIVATE_INFO || !m_pImpl->bInitialized)
    {
        return false;
    }
    *ppValue = m_pImpl->pPrivate;
    return true;
}

std::string WQCurlEasy::getLastError()
{
    return m_pImpl->strLastError;
}

void WQCurlEasy::reset()
{
    IMPL_t& tImpl = *m_pImpl;
    if (tImpl.bBlocking)
    {
        const CSigpipeGuard tGuard;
        tImpl.pEasy.reset(); // it holds a connection of its own
    }
    else if (!CanReuseHandles())
    {
        tImpl.pEasy.reset();
    }
    else if (tImpl.bInitialized)
    {
        tImpl.UndoOptions();
    }
    tImpl.bBlocking = false;
    tImpl.bInitialized = false;
    tImpl.pHeaders.reset();
    tImpl.pfnWrite = nullptr;
    tImpl.pWriteData = nullptr;
    tImpl.pfnProgress = nullptr;
    tImpl.pProgressData = nullptr;
    tImpl.pPrivate = nullptr;
    tImpl.ptPaused = nullptr;
    tImpl.nInTurn = 0;
    tImpl.strLastError.clear();
    tImpl.szError[0] = '\0';
}

} // namespace WQCurl
