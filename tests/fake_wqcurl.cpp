#include "fake_wqcurl.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <semaphore.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

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
    const auto it = std::find(lstRefused.begin(), lstRefused.end(), "-" + strStep);
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

bool IsTempFileOpen()
{
    const std::filesystem::directory_iterator tOpen("/proc/self/fd");
    return std::any_of(begin(tOpen), end(tOpen),
                       [](const auto& tEntry)
                       {
                           std::error_code tGone;
                           return read_symlink(tEntry.path(), tGone).filename() == "f.bak";
                       });
}

} // namespace

/*
 * In place of the C library's. What they do as another process would: "-file" and "-look" put a file or a link where
 * there was none when it was looked for, "-link" puts a link in the place of the file that has just been opened.
 */

extern "C" int fsync(int /*nDescriptor*/)
{
    Note("fsync");
    return Permits("fsync", EIO) ? 0 : -1;
}

extern "C" int access(const char* pszPath, int nMode) noexcept
{
    const int nResult = faccessat(AT_FDCWD, pszPath, nMode, 0);
    if (!Permits("file", ENOENT))
    {
        std::ofstream(pszPath) << "precious";
    }
    return nResult;
}

extern "C" int lstat(const char* pszPath, struct stat* ptStat) noexcept
{
    const int nResult = fstatat(AT_FDCWD, pszPath, ptStat, AT_SYMLINK_NOFOLLOW);
    if (!Permits("look", errno))
    {
        std::ofstream("precious") << "precious";
        static_cast<void>(symlink("precious", "f.bak"));
    }
    return nResult;
}

extern "C" FILE* fdopen(int nDescriptor, const char* pszMode) noexcept
{
    static const auto s_pfnSystem = reinterpret_cast<decltype(&fdopen)>(dlsym(RTLD_NEXT, "fdopen"));
    if (!Permits("link", 0))
    {
        static_cast<void>(rename("f.bak", "precious"));
        static_cast<void>(symlink("precious", "f.bak"));
    }
    return Permits("fdopen", ENOMEM) ? s_pfnSystem(nDescriptor, pszMode) : nullptr;
}

/** A sanitizer, which may stand in between, sees no lock from here, but the atomic count and the timed wait. */
extern "C" int sem_wait(sem_t* ptSemaphore)
{
    if (g_nInterruptions > 0)
    {
        --g_nInterruptions;
        errno = EINTR;
        return -1;
    }
    const timespec tNever = {1LL << 40, 0};
    return sem_timedwait(ptSemaphore, &tNever);
}

namespace WQCurl
{

struct WQCurlEasy::IMPL_t : FAKE_TRANSFER_t
{
    /** Options are written down together with the step that follows them, by number. */
    bool Set(WQCURL_OPTION_TYPE eOption, const std::string& strValue)
    {
        const std::string strNumber = std::to_string(static_cast<int>(eOption));
        strOptions += strNumber + "=" + strValue + " ";
        strLastError = g_tFake->Allows(strNumber) ? "" : "no " + strNumber;
        return strLastError.empty();
    }

    void Step(const std::string& strStep)
    {
        Note(strOptions + strStep);
        strOptions.clear();
    }

    WQCurlEasy* ptOwner = nullptr;
    std::string strOptions;
    std::string strLastError;
};

WQCurlEasy::WQCurlEasy() : m_pImpl(std::make_unique<IMPL_t>())
{
    m_pImpl->ptOwner = this;
}

WQCurlEasy::~WQCurlEasy()
{
    m_pImpl->Step("destroy");
}

bool WQCurlEasy::Initialize()
{
    m_pImpl->strOptions = "Initialize ";
    return g_tFake->Allows("Initialize");
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, const long& lValue)
{
    return m_pImpl->Set(eOption, std::to_string(lValue));
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, const std::string& strValue)
{
    return m_pImpl->Set(eOption, strValue);
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, const std::list<std::string>& lstValue)
{
    std::string strValue;
    for (const std::string& strItem : lstValue)
    {
        strValue += strItem + "|";
    }
    return m_pImpl->Set(eOption, strValue);
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, WRITE_FUNCTION_t pfnWrite)
{
    m_pImpl->pfnWrite = pfnWrite;
    return m_pImpl->Set(eOption, "write");
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, PROGRESS_FUNCTION_t pfnProgress)
{
    m_pImpl->pfnProgress = pfnProgress;
    return m_pImpl->Set(eOption, "progress");
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, void* pValue)
{
    (eOption == WRITEDATA      ? m_pImpl->pWriteData
     : eOption == PROGRESSDATA ? m_pImpl->pProgressData
                               : m_pImpl->pPrivate) = pValue;
    return m_pImpl->Set(eOption, "pointer");
}

void WQCurlEasy::setTimeout(int nConnectSeconds, int nTotalSeconds)
{
    m_pImpl->Step("setTimeout " + std::to_string(nConnectSeconds) + " " + std::to_string(nTotalSeconds));
}

bool WQCurlEasy::send()
{
    m_pImpl->Step("send");
    g_tFake->fnTransfer(*m_pImpl);
    m_pImpl->strLastError = g_tFake->Allows("transfer") ? "" : "broken";
    return m_pImpl->strLastError.empty();
}

bool WQCurlEasy::getInfo(WQCURL_INFO_TYPE eInfo, double* pdValue)
{
    *pdValue = 1.5;
    return eInfo == SPEED_DOWNLOAD;
}

bool WQCurlEasy::getInfo(WQCURL_INFO_TYPE eInfo, void** ppValue)
{
    *ppValue = g_tFake->Allows("private") ? m_pImpl->pPrivate : nullptr;
    return eInfo == PRIVATE_INFO && g_tFake->Allows("getInfo");
}

std::string WQCurlEasy::getLastError()
{
    return m_pImpl->strLastError;
}

void WQCurlEasy::reset()
{
    m_pImpl->Step(IsTempFileOpen() ? "reset with the file open" : "reset");
}

struct WQCurlMulti::IMPL_t
{
    bool bReady = false;
    std::condition_variable tAdded;
    std::vector<WQCurlEasy*> vecRunning;
    std::deque<MultiMsg> dqFinished;
};

WQCurlMulti::WQCurlMulti() : m_pImpl(std::make_unique<IMPL_t>()) {}

WQCurlMulti::~WQCurlMulti() = default;

bool WQCurlMulti::Initialize()
{
    m_pImpl->bReady = g_tFake->Allows("multi");
    return m_pImpl->bReady;
}

bool WQCurlMulti::addHandle(const WQCurlEasy* pEasyHandle)
{
    pEasyHandle->m_pImpl->Step("addHandle");
    if (!m_pImpl->bReady || !g_tFake->Allows("addHandle"))
    {
        return false;
    }
    const std::lock_guard<std::mutex> tGuard(g_tFake->tLock);
    m_pImpl->vecRunning.push_back(pEasyHandle->m_pImpl->ptOwner);
    m_pImpl->tAdded.notify_all();
    return true;
}

bool WQCurlMulti::removeHandle(const WQCurlEasy* /*pEasyHandle*/)
{
    Note("removeHandle");
    return g_tFake->Allows("removeHandle");
}

bool WQCurlMulti::Perform(int& nRunningHandles)
{
    Note("Perform");
    nRunningHandles = 3;
    return g_tFake->Allows("Perform");
}

/** Only waits that have something to tell are written down: how many there are without is a matter of time. */
bool WQCurlMulti::fdSelect(int& nRunningHandles)
{
    nRunningHandles = 3;
    std::vector<WQCurlEasy*> vecDriven;
    {
        std::unique_lock<std::mutex> tGuard(g_tFake->tLock);
        const auto fnEnough = [this] { return m_pImpl->vecRunning.size() >= g_tFake->nTogether; };
        if (m_pImpl->dqFinished.empty() && m_pImpl->tAdded.wait_for(tGuard, std::chrono::milliseconds(20), fnEnough))
        {
            vecDriven.swap(m_pImpl->vecRunning);
        }
    }
    for (WQCurlEasy* ptEasy : vecDriven)
    {
        g_tFake->fnTransfer(*ptEasy->m_pImpl);
        const bool bResult = g_tFake->Allows("transfer");
        m_pImpl->dqFinished.push_back({ptEasy, bResult, bResult ? "" : "broken", 0, 0});
    }
    if (!m_pImpl->dqFinished.empty())
    {
        Note("fdSelect, finished " + std::to_string(m_pImpl->dqFinished.size()));
    }
    return m_pImpl->dqFinished.empty() || g_tFake->Allows("fdSelect"); // what has finished waits for the next
}

WQCurlMulti::MultiMsg WQCurlMulti::InfoRead()
{
    MultiMsg tMsg;
    if (!m_pImpl->dqFinished.empty())
    {
        tMsg = m_pImpl->dqFinished.front();
        m_pImpl->dqFinished.pop_front();
    }
    return tMsg;
}

} // namespace WQCurl
