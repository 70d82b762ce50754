#include <algorithm>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <string_view>
#include <sys/socket.h>
#include <thread>
#include <utility>

#include "veltra/platform/desktop/easy_pool.h"
#include "veltra/platform/desktop/network_epoch.h"
#include "veltra/platform/desktop/signal_guard.h"
#include "veltra/platform/desktop/transfer_observer.h"
#include "veltra/platform/desktop/transfer_share.h"

namespace WQCurl
{

namespace
{

constexpr int UNACKNOWLEDGED_MILLISECONDS = 30000;
constexpr size_t MOST_HEADER_BYTES = 307200;
constexpr long PROXY_AUTHENTICATION_REQUIRED = 407;
constexpr long USUAL_BUFFER = CURL_MAX_WRITE_SIZE;
constexpr long LARGE_BUFFER = 512L * 1024;
#ifdef FUZZING_BUILD_MODE_UNSAFE_FOR_PRODUCTION
constexpr size_t MOST_BYTES_IN_A_TURN = 16; // for the short bodies that fuzzers make
#else
constexpr size_t MOST_BYTES_IN_A_TURN = 2097152;
#endif
constexpr size_t MOST_CALLS_IN_A_TURN = 256; // a call costs a system call, however few bytes it brings

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

long IpResolve(IP_FAMILY_e eFamily)
{
    return eFamily == IP_FAMILY_4   ? CURL_IPRESOLVE_V4
           : eFamily == IP_FAMILY_6 ? CURL_IPRESOLVE_V6
                                    : CURL_IPRESOLVE_WHATEVER;
}

/** Sets options of a new libcurl handle, up to the first that it refuses. What is nothing is so by default. */
struct OPTION_SETTER_t
{
    template <class VALUE> void operator()(CURLoption eOption, VALUE tValue)
    {
        if (eResult == CURLE_OK && tValue != VALUE{})
        {
            eResult = curl_easy_setopt(pEasy, eOption, tValue);
        }
    }

    CURL* const pEasy;
    CURLcode eResult = CURLE_OK;
};

/** Sets a transfer's way to its server: protocol, proxy, addresses and speed. */
void SetWay(OPTION_SETTER_t& tSet, const TRANSFER_SETTINGS_t& tSettings)
{
    const TRANSFER_DEFAULTS_t& tDefaults = tSettings.tDefaults;
    tSet(CURLOPT_PROTOCOLS_STR, "http,https");
    /* By HTTP/1.1, header names go out letter for letter, and a broken or silent connection costs one transfer. */
    tSet(CURLOPT_HTTP_VERSION, long{tDefaults.bHttp2 ? CURL_HTTP_VERSION_2TLS : CURL_HTTP_VERSION_1_1});
    tSet(CURLOPT_CONNECTTIMEOUT, long{tDefaults.nConnectTimeout});
    tSet(CURLOPT_FAILONERROR, tDefaults.bFailOnHttpError ? 1L : 0L);
    tSet(CURLOPT_MAX_RECV_SPEED_LARGE, curl_off_t{tDefaults.nMostBytesPerSecond});
    /* The environment must not decide where requests go: it names neither a proxy nor an exception. */
    const PROXY_t& tProxy = tSettings.tProxy;
    const bool bProxy = !tProxy.strUrl.empty();
    tSet(CURLOPT_PROXY, bProxy ? tProxy.strUrl.c_str() : nullptr);
    tSet(CURLOPT_PROXYUSERPWD, tProxy.strUserPassword.empty() ? nullptr : tProxy.strUserPassword.c_str());
    tSet(CURLOPT_NOPROXY, bProxy ? "" : "*");
    tSet(CURLOPT_SUPPRESS_CONNECT_HEADERS, bProxy ? 1L : 0L);
    tSet(CURLOPT_IPRESOLVE, IpResolve(tDefaults.eIpFamily));
    tSet(CURLOPT_CONNECT_TO, tSettings.pConnectTo.get());
}

/** Sets the authorities that a server's certificate is verified with, or a proxy's: both follow the same rules. */
void SetAuthorities(OPTION_SETTER_t& tSet, const TRANSFER_DEFAULTS_t& tDefaults, CURLoption eFile, CURLoption eFolder)
{
    const char* pszBundle = nullptr;
    curl_easy_getinfo(tSet.pEasy, CURLINFO_CAINFO, &pszBundle); // a proxy's default is the same
    if (!tDefaults.strCaFolder.empty())
    {
        curl_easy_setopt(tSet.pEasy, eFile, nullptr);
        tSet(eFolder, tDefaults.strCaFolder.c_str());
    }
    else if (pszBundle != nullptr || !tDefaults.strCaFile.empty())
    {
        /* Trusts no other authorities than the bundle's. Besides, libcurl keeps the bundle in memory for all
         * connections only if there is no folder; otherwise it reads most of a megabyte for each of them. */
        curl_easy_setopt(tSet.pEasy, eFolder, nullptr);
    }
    tSet(eFile, tDefaults.strCaFile.empty() ? nullptr : tDefaults.strCaFile.c_str());
}

/** Sets the authorities that a transfer trusts, and its own certificate. */
void SetTrust(OPTION_SETTER_t& tSet, const TRANSFER_DEFAULTS_t& tDefaults)
{
    if (!tDefaults.strClientCertificate.empty())
    {
        tSet(CURLOPT_SSLCERT, tDefaults.strClientCertificate.c_str());
        tSet(CURLOPT_SSLKEY, tDefaults.strClientKey.empty() ? nullptr : tDefaults.strClientKey.c_str());
    }
    SetAuthorities(tSet, tDefaults, CURLOPT_CAINFO, CURLOPT_CAPATH);
    if (!tDefaults.strProxy.empty())
    {
        SetAuthorities(tSet, tDefaults, CURLOPT_PROXY_CAINFO, CURLOPT_PROXY_CAPATH);
    }
}

} // namespace

CURLcode WQCurlEasy::IMPL_t::SetUp()
{
    if (pEasy == nullptr)
    {
        pEasy.reset(curl_easy_init());
    }
    if (pEasy == nullptr)
    {
        return CURLE_FAILED_INIT;
    }
    ptSettings = CurrentSettings();
    OPTION_SETTER_t tSet{pEasy.get()};
    tSet(CURLOPT_PRIVATE, static_cast<void*>(this));
    tSet(CURLOPT_ERRORBUFFER, szError);
    tSet(CURLOPT_NOSIGNAL, 1L);
    /* Otherwise removing a transfer whose name look-up hangs would hang with it, and all others too. */
    tSet(CURLOPT_QUICK_EXIT, 1L);
    tSet(CURLOPT_SHARE, TransferShare());
    SetWay(tSet, *ptSettings);
    SetTrust(tSet, ptSettings->tDefaults);
    tSet(CURLOPT_HEADERFUNCTION, &OnHeader);
    tSet(CURLOPT_HEADERDATA, static_cast<void*>(this));
    /* Own functions from the start: libcurl's defaults would write bodies and a progress meter to standard streams. */
    tSet(CURLOPT_WRITEFUNCTION, &OnWrite);
    tSet(CURLOPT_WRITEDATA, static_cast<void*>(this));
    tSet(CURLOPT_XFERINFOFUNCTION, &OnProgress);
    tSet(CURLOPT_XFERINFODATA, static_cast<void*>(this));
    if (tSet.eResult != CURLE_OK)
    {
        pEasy.reset(); // with some of its options set
    }
    return tSet.eResult;
}

void WQCurlEasy::IMPL_t::Clear()
{
    if (bBlocking)
    {
        const CSignalGuard tGuard;
        pEasy.reset(); // it holds a connection of its own
    }
    else if (bInitialized)
    {
        CPool::Recycle(pEasy);
    }
    bBlocking = false;
    bInitialized = false;
    pHeaders.reset();
    ptSettings.reset();
    pfnWrite = nullptr;
    pWriteData = nullptr;
    bReporting = false;
    pfnProgress = nullptr;
    pProgressData = nullptr;
    pPrivate = nullptr;
    lTotalSeconds = 0;
    ptSockets = nullptr;
    pvecPaused = nullptr;
    strLastError.clear();
    szError[0] = '\0';
}

long WQCurlEasy::IMPL_t::BufferSize() const
{
    /* Who wants progress expects much data: fewer and larger reads. Old libcurls limit speed between reads only. */
    const long long nMost = ptSettings->tDefaults.nMostBytesPerSecond;
    return nMost > 0    ? static_cast<long>(std::min<long long>(nMost, USUAL_BUFFER))
           : bReporting ? LARGE_BUFFER
                        : USUAL_BUFFER;
}

void WQCurlEasy::IMPL_t::Begin()
{
    tResume.Begin(ptSettings->tDefaults, bReporting, lTotalSeconds);
    bBegunAgain = false;
    tCounts = {};
    BeginAttempt();
    curl_easy_setopt(pEasy.get(), CURLOPT_BUFFERSIZE, BufferSize());
    curl_easy_setopt(pEasy.get(), CURLOPT_OPENSOCKETFUNCTION, &OnOpenSocket);
    curl_easy_setopt(pEasy.get(), CURLOPT_OPENSOCKETDATA, this);
}

void WQCurlEasy::IMPL_t::BeginAttempt()
{
    bHeadersWhole = false;
    nHeaderBytes = 0;
    pszRefusal = nullptr;
    nOpenError = 0;
    nInTurn = 0;
    nCallsInTurn = 0;
    nSocket = -1;
    szError[0] = '\0';
}

CURLcode WQCurlEasy::IMPL_t::Reopen()
{
    /* Some libcurls must not make two transfers with one handle; see CPool::Recycle(). */
    EASY_PTR_t pNext(curl_easy_duphandle(pEasy.get()));
    if (pNext == nullptr)
    {
        return CURLE_OUT_OF_MEMORY;
    }
    curl_easy_setopt(pNext.get(), CURLOPT_SHARE, TransferShare());
    curl_easy_setopt(pNext.get(), CURLOPT_FRESH_CONNECT, 1L);
    tResume.SetTimeLeft(pNext.get());
    pEasy = std::move(pNext);
    BeginAttempt();
    return CURLE_OK;
}

CURLcode WQCurlEasy::IMPL_t::BeginRest()
{
    const CURLcode eResult = Reopen();
    return eResult == CURLE_OK ? tResume.AskForRest(pEasy.get(), pHeaders.get()) : eResult;
}

CURLcode WQCurlEasy::IMPL_t::BeginAgain()
{
    bBegunAgain = true;
    return Reopen();
}

/* libcurl does so itself, but gives up after five dead connections, and not for every error of HTTP/2. */
bool WQCurlEasy::IMPL_t::MayBeginAgain(int nCode) const
{
    const bool bDied =
        nCode == CURLE_HTTP2 || nCode == CURLE_GOT_NOTHING || nCode == CURLE_SEND_ERROR || nCode == CURLE_RECV_ERROR;
    return bDied && !bBegunAgain && nHeaderBytes == 0 && tResume.Received() == 0 && IsReused(pEasy.get());
}

CURLcode WQCurlEasy::IMPL_t::WaitForRest(CResume::Clock::time_point tNext) const
{
    constexpr std::chrono::seconds ASKING_INTERVAL(1);
    const unsigned nEpoch = NetworkEpoch();
    for (auto tNow = CResume::Clock::now(); tNow < tNext; tNow = CResume::Clock::now())
    {
        std::this_thread::sleep_until(std::min(tNext, tNow + ASKING_INTERVAL));
        if (bReporting && AskProgress() != 0)
        {
            return CURLE_ABORTED_BY_CALLBACK;
        }
        if (NetworkEpoch() != nEpoch)
        {
            break;
        }
    }
    return CURLE_OK;
}

bool WQCurlEasy::IMPL_t::Check(CURLcode eCode)
{
    if (eCode != CURLE_OK)
    {
        strLastError = ErrorText(eCode);
    }
    return eCode == CURLE_OK;
}

long WQCurlEasy::IMPL_t::Status() const
{
    long lStatus = 0;
    curl_easy_getinfo(pEasy.get(), CURLINFO_RESPONSE_CODE, &lStatus);
    return lStatus;
}

WQCurlMulti::MultiMsg WQCurlEasy::IMPL_t::Outcome(CURLcode eCode) const
{
    WQCurlMulti::MultiMsg tMsg;
    tMsg.pEasyHandle = ptOwner;
    tMsg.nResultCode = eCode;
    if (pszRefusal != nullptr)
    {
        tMsg.nResultCode = CURLE_FILESIZE_EXCEEDED;
        tMsg.strErrorMsg = pszRefusal;
    }
    else if (tResume.Reason() != nullptr)
    {
        tMsg.nResultCode = CURLE_RANGE_ERROR;
        tMsg.strErrorMsg = tResume.Reason();
    }
    else if (eCode == CURLE_OK && tResume.IsShort())
    {
        tMsg.nResultCode = CURLE_PARTIAL_FILE;
        tMsg.strErrorMsg = "The rest of the file is not as long as was announced";
    }
    else if (eCode == CURLE_OK && !bHeadersWhole)
    {
        tMsg.nResultCode = CURLE_PARTIAL_FILE;
        tMsg.strErrorMsg = "The answer ended within its header lines";
    }
    else if (eCode == CURLE_OK && !ptSettings->tDefaults.strProxy.empty() && Status() == PROXY_AUTHENTICATION_REQUIRED)
    {
        tMsg.nResultCode = CURLE_HTTP_RETURNED_ERROR;
        tMsg.strErrorMsg = "The proxy asks for a user and a password, or refuses them";
    }
    else if (eCode == CURLE_OK && ptSettings->tDefaults.bFailOnRedirect && Status() / 100 == 3)
    {
        tMsg.nResultCode = CURLE_HTTP_RETURNED_ERROR;
        tMsg.strErrorMsg = "The server redirects, which is not followed";
    }
    else if (eCode != CURLE_OK)
    {
        long lSystemError = 0;
        curl_easy_getinfo(pEasy.get(), CURLINFO_OS_ERRNO, &lSystemError);
        tMsg.nSystemError = nOpenError != 0 ? nOpenError : static_cast<int>(lSystemError);
        tMsg.strErrorMsg = ErrorText(eCode);
    }
    tMsg.bResult = tMsg.nResultCode == CURLE_OK;
    return tMsg;
}

std::string WQCurlEasy::IMPL_t::ErrorText(CURLcode eCode) const
{
    return szError[0] != '\0' ? szError : curl_easy_strerror(eCode);
}

/**
 * Opens a socket as libcurl does, with two differences: programs that the application starts do not inherit it, and a
 * peer that acknowledges nothing is given up within seconds.
 */
curl_socket_t WQCurlEasy::IMPL_t::OnOpenSocket(void* pImpl, curlsocktype /*ePurpose*/, curl_sockaddr* ptAddress)
{
    auto* ptImpl = static_cast<IMPL_t*>(pImpl);
    CDescriptor tSocket;
    tSocket.Reset(socket(ptAddress->family, ptAddress->socktype | SOCK_CLOEXEC, ptAddress->protocol));
    if (tSocket.Get() < 0)
    {
        ptImpl->nOpenError = errno;
        return CURL_SOCKET_BAD;
    }
    /* Sockets that are not TCP's refuse it. */
    setsockopt(tSocket.Get(), IPPROTO_TCP, TCP_USER_TIMEOUT, &UNACKNOWLEDGED_MILLISECONDS,
               sizeof UNACKNOWLEDGED_MILLISECONDS);
    try
    {
        if (ptImpl->ptSockets != nullptr)
        {
            ptImpl->ptSockets->OnOpened(tSocket.Get());
        }
    }
    catch (...) // must not unwind libcurl's frames
    {
        return CURL_SOCKET_BAD;
    }
    return tSocket.Release();
}

bool WQCurlEasy::IMPL_t::Refuse(const char* pszReason)
{
    pszRefusal = pszReason;
    return false;
}

bool WQCurlEasy::IMPL_t::CountHeader(size_t nBytes)
{
    nHeaderBytes += nBytes;
    return nHeaderBytes <= MOST_HEADER_BYTES || Refuse("The answer's header lines are larger than 300 KiB");
}

bool WQCurlEasy::IMPL_t::CountReceived(size_t nBytes)
{
    const TRANSFER_DEFAULTS_t& tDefaults = ptSettings->tDefaults;
    const long long nMost = bReporting ? tDefaults.nLargestFile : tDefaults.nLargestAnswer;
    tResume.Count(nBytes);
    return nMost == 0 || tResume.Received() <= nMost || Refuse("The answer is larger than the settings allow");
}

/**
 * Without a limit libcurl would read a hundred buffers before it returns, and a server that sends a body in tiny chunks
 * would cost a call for each. libcurl joins what arrives during a pause.
 */
void WQCurlEasy::IMPL_t::CountTurn(size_t nBytes)
{
    nInTurn += nBytes;
    ++nCallsInTurn;
    if (pvecPaused != nullptr && (nInTurn >= MOST_BYTES_IN_A_TURN || nCallsInTurn >= MOST_CALLS_IN_A_TURN))
    {
        nInTurn = 0;
        nCallsInTurn = 0;
        pvecPaused->push_back(this);
        curl_easy_pause(pEasy.get(), CURLPAUSE_RECV);
    }
}

bool WQCurlEasy::IMPL_t::TakesHeader(std::string_view strLine)
{
    if (!CountHeader(strLine.size()))
    {
        return false;
    }
    if (strLine.substr(0, 5) == "HTTP/")
    {
        bHeadersWhole = false;
    }
    else if (strLine == "\r\n" || strLine == "\n")
    {
        const long lStatus = Status();
        const bool bInterim = lStatus / 100 == 1 && lStatus != 101;
        const bool bTrailer = std::exchange(bHeadersWhole, !bInterim);
        return bInterim || bTrailer || tResume.TakesAnswer(pEasy.get());
    }
    return true;
}

/** libcurl calls it for each whole line, those of interim answers and the trailers behind a body included. */
size_t WQCurlEasy::IMPL_t::OnHeader(char* pData, size_t nSize, size_t nCount, void* pImpl)
{
    try
    {
        return static_cast<IMPL_t*>(pImpl)->TakesHeader({pData, nSize * nCount}) ? nSize * nCount : 0;
    }
    catch (...) // must not unwind libcurl's frames
    {
        return 0;
    }
}

size_t WQCurlEasy::IMPL_t::OnWrite(char* pData, size_t nSize, size_t nCount, void* pImpl)
{
    auto* ptImpl = static_cast<IMPL_t*>(pImpl);
    if (!ptImpl->CountReceived(nSize * nCount))
    {
        return CURL_WRITEFUNC_ERROR;
    }
    if (ptImpl->pfnWrite == nullptr)
    {
        return nSize * nCount;
    }
    try
    {
        ptImpl->CountTurn(nSize * nCount);
        const size_t nTaken = ptImpl->pfnWrite(pData, nSize, nCount, ptImpl->pWriteData);
        /* Some other numbers mean a pause to libcurl, which nobody would end. */
        return nTaken == nSize * nCount ? nTaken : CURL_WRITEFUNC_ERROR;
    }
    catch (...) // must not unwind libcurl's frames
    {
        return CURL_WRITEFUNC_ERROR;
    }
}

int WQCurlEasy::IMPL_t::OnProgress(void* pImpl, curl_off_t nTotal, curl_off_t nNow, curl_off_t nUpTotal,
                                   curl_off_t nUpNow)
{
    auto* ptImpl = static_cast<IMPL_t*>(pImpl);
    /* Of the whole, however many attempts that takes; a total that is unknown stays so. */
    const CResume& tResume = ptImpl->tResume;
    const curl_off_t nWhole = tResume.Attempts() > 1 ? tResume.Total() : nTotal;
    ptImpl->tCounts = {nWhole, tResume.Before() + nNow, nUpTotal, nUpNow};
    return ptImpl->AskProgress();
}

bool WQCurlEasy::IMPL_t::IsOverdue() const
{
    constexpr double GRACE_SECONDS = 1; // libcurl ends what has a connection, and says more of it
    return lTotalSeconds > 0 && tResume.SecondsSinceBegin() > static_cast<double>(lTotalSeconds) + GRACE_SECONDS;
}

int WQCurlEasy::IMPL_t::AskProgress() const
{
    if (pfnProgress == nullptr)
    {
        return 0;
    }
    try
    {
        return pfnProgress(pProgressData, static_cast<double>(tCounts.nTotal), static_cast<double>(tCounts.nNow),
                           static_cast<double>(tCounts.nUpTotal), static_cast<double>(tCounts.nUpNow));
    }
    catch (...) // must not unwind libcurl's frames
    {
        return 1;
    }
}

WQCurlEasy::WQCurlEasy() : m_pImpl(CPool::Instance().Take())
{
    m_pImpl->ptOwner = this;
}

WQCurlEasy::~WQCurlEasy()
{
    reset();
    CPool::Instance().Put(std::move(m_pImpl));
}

bool WQCurlEasy::Initialize()
{
    static const CURLcode s_eGlobalResult = curl_global_init(CURL_GLOBAL_DEFAULT);
    reset();
    m_pImpl->bInitialized = m_pImpl->Check(s_eGlobalResult) && m_pImpl->Check(m_pImpl->SetUp());
    return m_pImpl->bInitialized;
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, const long& lValue)
{
    const bool bSet = m_pImpl->Check(curl_easy_setopt(m_pImpl->Handle(), LongOption(eOption), lValue));
    if (bSet && eOption == TIMEOUT)
    {
        m_pImpl->lTotalSeconds = lValue;
    }
    if (bSet && eOption == NOPROGRESS)
    {
        m_pImpl->bReporting = lValue == 0;
    }
    return bSet;
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, const std::string& strValue)
{
    const CURLoption eCurlOption = eOption == URL          ? CURLOPT_URL
                                   : eOption == POSTFIELDS ? CURLOPT_POSTFIELDS
                                                           : CURLOPT_LASTENTRY;
    return m_pImpl->Check(curl_easy_setopt(m_pImpl->Handle(), eCurlOption, strValue.c_str()));
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, const std::list<std::string>& lstValue)
{
    SLIST_PTR_t pList;
    if (!BuildList(lstValue, pList))
    {
        return m_pImpl->Check(CURLE_OUT_OF_MEMORY);
    }
    const CURLoption eCurlOption = eOption == HTTPHEADER ? CURLOPT_HTTPHEADER : CURLOPT_LASTENTRY;
    const bool bSet = m_pImpl->Check(curl_easy_setopt(m_pImpl->Handle(), eCurlOption, pList.get()));
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
        return m_pImpl->Check(!m_pImpl->bInitialized ? CURLE_BAD_FUNCTION_ARGUMENT : CURLE_UNKNOWN_OPTION);
    }
    m_pImpl->pfnWrite = pfnWrite;
    return true;
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, PROGRESS_FUNCTION_t pfnProgress)
{
    if (!m_pImpl->bInitialized || eOption != PROGRESSFUNCTION)
    {
        return m_pImpl->Check(!m_pImpl->bInitialized ? CURLE_BAD_FUNCTION_ARGUMENT : CURLE_UNKNOWN_OPTION);
    }
    m_pImpl->pfnProgress = pfnProgress;
    return true;
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, void* pValue)
{
    if (!m_pImpl->bInitialized)
    {
        return m_pImpl->Check(CURLE_BAD_FUNCTION_ARGUMENT);
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
        return m_pImpl->Check(CURLE_UNKNOWN_OPTION);
    }
}

void WQCurlEasy::setTimeout(int nConnectSeconds, int nTotalSeconds)
{
    CURL* pEasy = m_pImpl->Handle();
    m_pImpl->lTotalSeconds = std::clamp(nTotalSeconds, 0, LONGEST_TIMEOUT);
    if (nConnectSeconds > 0)
    {
        curl_easy_setopt(pEasy, CURLOPT_CONNECTTIMEOUT, long{std::min(nConnectSeconds, LONGEST_TIMEOUT)});
    }
    curl_easy_setopt(pEasy, CURLOPT_TIMEOUT, m_pImpl->lTotalSeconds);
}

bool WQCurlEasy::send()
{
    if (!m_pImpl->bInitialized)
    {
        return m_pImpl->Check(CURLE_BAD_FUNCTION_ARGUMENT);
    }
    const CSignalGuard tGuard;
    m_pImpl->bBlocking = true;
    m_pImpl->Begin();
    WQCurlMulti::MultiMsg tMsg = m_pImpl->Outcome(curl_easy_perform(m_pImpl->pEasy.get()));
    while (const auto tNext = m_pImpl->tResume.NextAttempt(tMsg.nResultCode))
    {
        CURLcode eResult = m_pImpl->WaitForRest(*tNext);
        eResult = eResult == CURLE_OK ? m_pImpl->BeginRest() : eResult;
        tMsg = m_pImpl->Outcome(eResult == CURLE_OK ? curl_easy_perform(m_pImpl->pEasy.get()) : eResult);
    }
    m_pImpl->strLastError = tMsg.strErrorMsg;
    TellObserver(m_pImpl->pEasy.get(), m_pImpl->tResume, tMsg);
    return tMsg.bResult;
}

bool WQCurlEasy::getInfo(WQCURL_INFO_TYPE eInfo, double* pdValue)
{
    curl_off_t nSpeed = 0;
    if (eInfo != SPEED_DOWNLOAD || !m_pImpl->bInitialized ||
        curl_easy_getinfo(m_pImpl->Handle(), CURLINFO_SPEED_DOWNLOAD_T, &nSpeed) != CURLE_OK)
    {
        return false;
    }
    const CResume& tResume = m_pImpl->tResume;
    *pdValue = tResume.Attempts() > 1 ? static_cast<double>(tResume.Received()) / tResume.SecondsSinceBegin()
                                      : static_cast<double>(nSpeed);
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
    m_pImpl->Clear();
}

} // namespace WQCurl
