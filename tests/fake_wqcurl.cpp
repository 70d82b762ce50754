#include "fake_wqcurl.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <dlfcn.h>
#include <fcntl.h>
#include <fstream>
#include <map>
#include <numeric>
#include <semaphore.h>
#include <sys/stat.h>
#include <unistd.h>

#include "veltra/platform/kvr_debug.h"

std::optional<FAKE_WQCURL_t> g_tFake;
std::atomic<int> g_nInterruptions{0};

void Note(const std::string& strStep)
{
    CKVRDebug::PrintLog(0, "- %s\n", strStep.c_str());
}

bool FAKE_WQCURL_t::Allows(const std::string& strStep)
{
    const std::lock_guard<std::mutex> tGuard(tLock);
    const auto it = std::find(lstRefused.begin(), lstRefused.end(), strStep);
    const bool bAllowed = it == lstRefused.end();
    lstRefused.erase(it, bAllowed ? it : std::next(it));
    return bAllowed;
}

namespace
{

/** @return false for a call of the C library that is to fail with nError */
bool Permits(const std::string& strCall, int nError)
{
    errno = nError;
    return !g_tFake.has_value() || g_tFake->Allows(strCall);
}

bool IsInterrupted()
{
    errno = EINTR;
    return g_nInterruptions > 0 && g_nInterruptions-- > 0;
}

} // namespace

/* In place of the C library's. */

extern "C" int fsync(int /*nDescriptor*/)
{
    Note("fsync");
    return Permits("fsync", EIO) ? 0 : -1;
}

/** Does what another process might: "-link" puts a link in the place of the file that has just been opened, "-look" and
 * "-file" put a link or a file where there was none when it was looked for. */
extern "C" int lstat(const char* pszPath, struct stat* ptStat) noexcept
{
    const auto fnPutLink = [] { return symlink("precious", "f.bak"); };
    if (access("f.bak", F_OK) == 0 && !Permits("link", 0))
    {
        static_cast<void>(rename("f.bak", "precious") + fnPutLink());
    }
    const int nResult = fstatat(AT_FDCWD, pszPath, ptStat, AT_SYMLINK_NOFOLLOW);
    const int nError = errno;
    if (!Permits("look", nError))
    {
        std::ofstream("precious") << "precious";
        static_cast<void>(fnPutLink());
    }
    if (!Permits("file", nError))
    {
        std::ofstream("f.bak") << "precious";
    }
    return nResult;
}

extern "C" int sem_init(sem_t* ptSemaphore, int nShared, unsigned nValue) noexcept
{
    static const auto s_pfnSystem = reinterpret_cast<decltype(&sem_init)>(dlsym(RTLD_NEXT, "sem_init"));
    return Permits("sem_init", ENOSPC) ? s_pfnSystem(ptSemaphore, nShared, nValue) : -1;
}

extern "C" ssize_t write(int nDescriptor, const void* pData, size_t nSize)
{
    static const auto s_pfnSystem = reinterpret_cast<decltype(&write)>(dlsym(RTLD_NEXT, "write"));
    return IsInterrupted() ? -1 : s_pfnSystem(nDescriptor, pData, nSize);
}

/** A sanitizer, which may stand in between, sees no lock from here, but the atomic count and the timed wait. */
extern "C" int sem_wait(sem_t* ptSemaphore)
{
    if (IsInterrupted())
    {
        return -1;
    }
    const timespec tNever = {1LL << 40, 0};
    return sem_timedwait(ptSemaphore, &tNever);
}

namespace WQCurl
{

typedef std::list<std::string> LIST_t;

struct TRANSFER_t : FAKE_TRANSFER_t
{
    explicit TRANSFER_t(WQCurlEasy* ptEasy) : ptOwner(ptEasy) {}
    ~TRANSFER_t() { Step("destroy"); }

    /* What an option is set to: kept where a transfer needs it, and as text. */
    static std::string Keep(int, long lValue) { return std::to_string(lValue); }
    static std::string Keep(int, const std::string& strValue) { return strValue; }
    static std::string Keep(int, const LIST_t& lstValue)
    {
        return std::accumulate(lstValue.begin(), lstValue.end(), std::string(),
                               [](const auto& strAll, const auto& strOne) { return strAll + strOne + ";"; });
    }
    std::string Keep(int, WRITE_FUNCTION_t pfnValue) { return (pfnWrite = pfnValue, "write"); }
    std::string Keep(int, PROGRESS_FUNCTION_t pfnValue) { return (pfnProgress = pfnValue, "progress"); }
    std::string Keep(int eOption, void* pValue)
    {
        (eOption == WRITEDATA ? pWriteData : eOption == PROGRESSDATA ? pProgressData : pPrivate) = pValue;
        return "pointer";
    }

    /** Options are written down before the step that follows them; what came before a refused one is known. */
    template <class VALUE> bool Set(WQCURL_OPTION_TYPE eOption, const VALUE& tValue)
    {
#define NAMED(OPTION) std::pair<const int, std::string>(OPTION, #OPTION)
        static const std::map<int, std::string> s_mapNames{
            NAMED(NOSIGNAL),       NAMED(NOPROGRESS), NAMED(POST),         NAMED(HTTPGET),
            NAMED(POSTFIELDSIZE),  NAMED(TIMEOUT),    NAMED(URL),          NAMED(LOW_SPEED_LIMIT),
            NAMED(LOW_SPEED_TIME), NAMED(POSTFIELDS), NAMED(HTTPHEADER),   NAMED(WRITEFUNCTION),
            NAMED(WRITEDATA),      NAMED(PRIVATE),    NAMED(PROGRESSDATA), NAMED(PROGRESSFUNCTION)};
        const std::string& strName = s_mapNames.at(eOption);
        const bool bAllowed = bReady && g_tFake->Allows(strName);
        strOptions = bAllowed ? strOptions + " " + strName + "=" + Keep(eOption, tValue) : "Initialize …";
        return Ended(bAllowed, "no " + strName);
    }

    void Step(const std::string& strStep)
    {
        strOptions.empty() ? void() : Note(strOptions);
        strOptions.clear();
        Note(strStep);
    }

    bool Ended(bool bResult, const std::string& strError)
    {
        strLastError = bResult ? strLastError : strError;
        return bResult;
    }

    bool Send()
    {
        Step("send");
        bReady ? g_tFake->fnTransfer(*this) : void();
        return Ended(bReady && g_tFake->Allows("transfer"), "broken");
    }

    bool Private(WQCURL_INFO_TYPE eInfo, void** ppValue) const
    {
        const bool bKnown = eInfo == PRIVATE_INFO && g_tFake->Allows("getInfo");
        *ppValue = !bKnown ? *ppValue : g_tFake->Allows("private") ? pPrivate : nullptr;
        return bKnown;
    }

    bool Become(bool bInitialized, const std::string& strWritten)
    {
        strOptions = strWritten;
        strLastError.clear();
        return bReady = bInitialized;
    }

    WQCurlEasy* const ptOwner;
    const void* pMulti = nullptr; /**< where it is registered */
    bool bReady = false;
    std::string strOptions;
    std::string strLastError;
};

struct WQCurlMulti::IMPL_t
{
    bool bReady = false;
    std::condition_variable tAdded;
    std::list<WQCurlEasy*> lstRunning;
    std::list<MultiMsg> lstFinished;
};

/* An operation in one line. */
#define OPERATION(SIGNATURE, BODY) \
    SIGNATURE                      \
    {                              \
        BODY;                      \
    }

WQCurlEasy::WQCurlEasy() : m_ptTransfer(std::make_unique<TRANSFER_t>(this)) {}
WQCurlEasy::~WQCurlEasy() = default;
OPERATION(bool WQCurlEasy::Initialize(), return m_ptTransfer->Become(g_tFake->Allows("Initialize"), "Initialize"))
OPERATION(bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE e, const long& l), return m_ptTransfer->Set(e, l))
OPERATION(bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE e, const std::string& str), return m_ptTransfer->Set(e, str))
OPERATION(bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE e, const LIST_t& lst), return m_ptTransfer->Set(e, lst))
OPERATION(bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE e, WRITE_FUNCTION_t pfn), return m_ptTransfer->Set(e, pfn))
OPERATION(bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE e, PROGRESS_FUNCTION_t pfn), return m_ptTransfer->Set(e, pfn))
OPERATION(bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE e, void* p), return m_ptTransfer->Set(e, p))
OPERATION(void WQCurlEasy::setTimeout(int n, int nAll),
          m_ptTransfer->Step("setTimeout " + std::to_string(n) + " " + std::to_string(nAll)))
OPERATION(bool WQCurlEasy::send(), return m_ptTransfer->Send())
OPERATION(bool WQCurlEasy::getInfo(WQCURL_INFO_TYPE e, double* p), return e == SPEED_DOWNLOAD && (*p = 1.5, true))
OPERATION(bool WQCurlEasy::getInfo(WQCURL_INFO_TYPE e, void** pp), return m_ptTransfer->Private(e, pp))
OPERATION(std::string WQCurlEasy::getLastError(), std::string str; str.swap(m_ptTransfer->strLastError);
          return str) // once
OPERATION(void WQCurlEasy::reset(), m_ptTransfer->Step("reset"); m_ptTransfer->Become(false, ""))

WQCurlMulti::WQCurlMulti() : m_pImpl(std::make_unique<IMPL_t>()) {}
WQCurlMulti::~WQCurlMulti() = default;
OPERATION(bool WQCurlMulti::Initialize(), return m_pImpl->bReady = g_tFake->Allows("multi"))
OPERATION(bool WQCurlMulti::Perform(int& n), Note("Perform"); n = 3; return g_tFake->Allows("Perform"))

bool WQCurlMulti::addHandle(const WQCurlEasy* pEasyHandle)
{
    TRANSFER_t* ptEasy = pEasyHandle != nullptr ? pEasyHandle->m_ptTransfer.get() : nullptr;
    ptEasy != nullptr ? ptEasy->Step("addHandle") : void();
    if (ptEasy == nullptr || !m_pImpl->bReady || !ptEasy->bReady || ptEasy->pMulti != nullptr ||
        !g_tFake->Allows("addHandle"))
    {
        return false;
    }
    const std::lock_guard<std::mutex> tGuard(g_tFake->tLock);
    ptEasy->pMulti = this;
    m_pImpl->lstRunning.push_back(ptEasy->ptOwner);
    m_pImpl->tAdded.notify_all();
    return true;
}

bool WQCurlMulti::removeHandle(const WQCurlEasy* pEasyHandle)
{
    Note("removeHandle");
    const bool bHere = pEasyHandle != nullptr && pEasyHandle->m_ptTransfer->pMulti == this;
    const bool bAllowed = bHere && g_tFake->Allows("removeHandle");
    const std::lock_guard<std::mutex> tGuard(g_tFake->tLock);
    bHere ? void(pEasyHandle->m_ptTransfer->pMulti = nullptr) : void();
    m_pImpl->lstFinished.remove_if([=](const MultiMsg& tMsg) { return tMsg.pEasyHandle == pEasyHandle; });
    m_pImpl->lstRunning.remove_if([=](const WQCurlEasy* pEasy) { return pEasy == pEasyHandle; });
    return bAllowed;
}

/** Only waits that have something to tell are written down: how many there are without is a matter of time. */
bool WQCurlMulti::fdSelect(int& nRunningHandles)
{
    nRunningHandles = 3;
    std::list<WQCurlEasy*> lstDriven;
    {
        std::unique_lock<std::mutex> tGuard(g_tFake->tLock);
        const auto fnEnough = [this] { return m_pImpl->lstRunning.size() >= g_tFake->nTogether; };
        if (m_pImpl->lstFinished.empty() && m_pImpl->tAdded.wait_for(tGuard, std::chrono::milliseconds(20), fnEnough))
        {
            lstDriven.swap(m_pImpl->lstRunning);
        }
    }
    for (WQCurlEasy* ptEasy : lstDriven)
    {
        g_tFake->fnTransfer(*ptEasy->m_ptTransfer);
        const bool bResult = g_tFake->Allows("transfer");
        m_pImpl->lstFinished.push_back({ptEasy, bResult, bResult ? "" : "broken", 0, 0});
    }
    m_pImpl->lstFinished.empty() ? void() : Note("fdSelect finishes " + std::to_string(m_pImpl->lstFinished.size()));
    return m_pImpl->lstFinished.empty() || g_tFake->Allows("fdSelect"); // what has finished waits for the next
}

WQCurlMulti::MultiMsg WQCurlMulti::InfoRead()
{
    if (m_pImpl->lstFinished.empty())
    {
        return {};
    }
    MultiMsg tMsg = m_pImpl->lstFinished.front();
    m_pImpl->lstFinished.pop_front();
    return tMsg;
}

} // namespace WQCurl
