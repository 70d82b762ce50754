#include "fake_wqcurl.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <fcntl.h>
#include <numeric>
#include <sys/stat.h>
#include <utility>

#include "veltra/platform/kvr_debug.h"

std::optional<FAKE_WQCURL_t> g_tFake;

void Note(const std::string& strStep)
{
    CKVRDebug::PrintLog(0, "- %s\f\n", strStep.c_str());
}

bool Takes(const std::string& strWord)
{
    const std::lock_guard<std::mutex> tGuard(g_tFake->tLock);
    const auto it = std::find(g_tFake->lstWords.begin(), g_tFake->lstWords.end(), strWord);
    const bool bFound = it != g_tFake->lstWords.end();
    g_tFake->lstWords.erase(it, bFound ? std::next(it) : it);
    return bFound;
}

extern "C" int lstat(const char* pszPath, struct stat* ptStat) noexcept
{
    g_tFake.has_value() ? g_tFake->fnBeforeLstat() : void();
    return fstatat(AT_FDCWD, pszPath, ptStat, AT_SYMLINK_NOFOLLOW);
}

namespace WQCurl
{

typedef WQCURL_OPTION_TYPE OPTION_t;

struct TRANSFER_t : FAKE_TRANSFER_t
{
    ~TRANSFER_t() { Note("destroy"); }

    bool Set(OPTION_t eOption, const std::string& strValue)
    {
#define NAMED(OPTION) std::pair<const int, std::string>(OPTION, #OPTION)
        static const std::map<int, std::string> s_mapNames{
            NAMED(NOSIGNAL),       NAMED(NOPROGRESS), NAMED(POST),         NAMED(HTTPGET),
            NAMED(POSTFIELDSIZE),  NAMED(TIMEOUT),    NAMED(URL),          NAMED(LOW_SPEED_LIMIT),
            NAMED(LOW_SPEED_TIME), NAMED(POSTFIELDS), NAMED(HTTPHEADER),   NAMED(WRITEFUNCTION),
            NAMED(WRITEDATA),      NAMED(PRIVATE),    NAMED(PROGRESSDATA), NAMED(PROGRESSFUNCTION)};
        const std::string& strName = s_mapNames.at(eOption);
        strSetUp += " " + strName + "=" + strValue;
        strLastError = Takes(strName) ? "no " + strName : "";
        return strLastError.empty();
    }

    std::string strSetUp; /**< the calls that set up the transfer, noted when it starts */
    std::string strLastError;
};

struct WQCurlMulti::IMPL_t
{
    std::list<const WQCurlEasy*> lstRunning;
    std::list<MultiMsg> lstFinished;
    std::condition_variable tAdded;
};

#define OPERATION(SIGNATURE, BODY) \
    SIGNATURE                      \
    {                              \
        BODY;                      \
    }

WQCurlEasy::WQCurlEasy() : m_ptTransfer(std::make_unique<TRANSFER_t>()) {}
WQCurlEasy::~WQCurlEasy() = default;
OPERATION(bool WQCurlEasy::Initialize(), m_ptTransfer->strSetUp += " Initialize"; return !Takes("Initialize"))
OPERATION(bool WQCurlEasy::setOption(OPTION_t e, const long& l), return m_ptTransfer->Set(e, std::to_string(l)))
OPERATION(bool WQCurlEasy::setOption(OPTION_t e, const std::string& str), return m_ptTransfer->Set(e, str))
OPERATION(bool WQCurlEasy::setOption(OPTION_t e, const std::list<std::string>& lst),
          return m_ptTransfer->Set(e, std::accumulate(lst.begin(), lst.end(), std::string(),
                                                      [](auto a, auto b) { return a + b + ";"; })))
OPERATION(bool WQCurlEasy::setOption(OPTION_t e, WRITE_FUNCTION_t pfn), m_ptTransfer->pfnWrite = pfn;
          return m_ptTransfer->Set(e, "write"))
OPERATION(bool WQCurlEasy::setOption(OPTION_t e, PROGRESS_FUNCTION_t pfn), m_ptTransfer->pfnProgress = pfn;
          return m_ptTransfer->Set(e, "progress"))
OPERATION(bool WQCurlEasy::setOption(OPTION_t e, void* p), m_ptTransfer->mapPointers[e] = p;
          return m_ptTransfer->Set(e, "pointer"))
OPERATION(void WQCurlEasy::setTimeout(int n, int nAll),
          m_ptTransfer->strSetUp += " setTimeout(" + std::to_string(n) + "," + std::to_string(nAll) + ")")
OPERATION(bool WQCurlEasy::send(), Note("send" + m_ptTransfer->strSetUp); g_tFake->fnTransfer(*m_ptTransfer);
          m_ptTransfer->strLastError = Takes("transfer") ? "broken" : ""; return m_ptTransfer->strLastError.empty())
OPERATION(bool WQCurlEasy::getInfo(WQCURL_INFO_TYPE e, double* p), return e == SPEED_DOWNLOAD && (*p = 1.5, true))
OPERATION(bool WQCurlEasy::getInfo(WQCURL_INFO_TYPE e, void** pp),
          *pp = Takes("getInfo-null") ? nullptr : m_ptTransfer->mapPointers[PRIVATE];
          return e == PRIVATE_INFO && !Takes("getInfo"))
OPERATION(std::string WQCurlEasy::getLastError(), return std::exchange(m_ptTransfer->strLastError, "")) // given once
OPERATION(void WQCurlEasy::reset(), m_ptTransfer->strSetUp.clear(); Note("reset"))

WQCurlMulti::WQCurlMulti() : m_pImpl(std::make_unique<IMPL_t>()) {}
WQCurlMulti::~WQCurlMulti() = default;
OPERATION(bool WQCurlMulti::Initialize(), return !Takes("multi-Initialize"))
OPERATION(bool WQCurlMulti::Perform(int& n), Note("Perform"); n = 3; return !Takes("Perform"))
OPERATION(bool WQCurlMulti::removeHandle(const WQCurlEasy*), Note("removeHandle"); return !Takes("removeHandle"))
OPERATION(WQCurlMulti::MultiMsg WQCurlMulti::InfoRead(), std::list<MultiMsg>& lst = m_pImpl->lstFinished;
          const MultiMsg tMsg = lst.empty() ? MultiMsg() : lst.front(); lst.empty() ? void() : lst.pop_front();
          return tMsg)

bool WQCurlMulti::addHandle(const WQCurlEasy* pEasyHandle)
{
    Note("addHandle" + pEasyHandle->m_ptTransfer->strSetUp);
    if (Takes("addHandle"))
    {
        return false;
    }
    const std::lock_guard<std::mutex> tGuard(g_tFake->tLock);
    m_pImpl->lstRunning.push_back(pEasyHandle);
    m_pImpl->tAdded.notify_all();
    return true;
}

/** Notes only waits that finish transfers: the number of the others depends on the machine's speed. */
bool WQCurlMulti::fdSelect(int& nRunningHandles)
{
    nRunningHandles = 3;
    std::unique_lock<std::mutex> tGuard(g_tFake->tLock);
    const auto fnRuns = [this] { return !m_pImpl->lstRunning.empty() && !g_tFake->bHold; };
    std::list<const WQCurlEasy*> lstDriven;
    if (m_pImpl->lstFinished.empty() && m_pImpl->tAdded.wait_for(tGuard, std::chrono::milliseconds(20), fnRuns))
    {
        lstDriven.swap(m_pImpl->lstRunning);
    }
    tGuard.unlock();
    for (const WQCurlEasy* ptEasy : lstDriven)
    {
        g_tFake->fnTransfer(*ptEasy->m_ptTransfer);
        const bool bResult = !Takes("transfer");
        m_pImpl->lstFinished.push_back({const_cast<WQCurlEasy*>(ptEasy), bResult, bResult ? "" : "broken", 0, 0});
    }
    m_pImpl->lstFinished.empty() ? void() : Note("fdSelect finishes " + std::to_string(m_pImpl->lstFinished.size()));
    return m_pImpl->lstFinished.empty() || !Takes("fdSelect"); // the next call reports them again
}

} // namespace WQCurl
