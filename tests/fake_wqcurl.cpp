#include "fake_wqcurl.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <map>
#include <numeric>

#include "veltra/platform/kvr_debug.h"

std::optional<FAKE_WQCURL_t> g_tFake;

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

/** In place of the C library's. */
extern "C" int fsync(int /*nDescriptor*/)
{
    Note("fsync");
    errno = EIO;
    return g_tFake->Allows("fsync") ? 0 : -1;
}

namespace WQCurl
{

typedef std::list<std::string> LIST_t;

struct WQCurlEasy::IMPL_t : FAKE_TRANSFER_t
{
    explicit IMPL_t(WQCurlEasy* ptEasy) : ptOwner(ptEasy) {}
    ~IMPL_t() { Step("destroy"); }

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
#define NAMED(OPTION)   \
    {                   \
        OPTION, #OPTION \
    }
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

WQCurlEasy::WQCurlEasy() : m_pImpl(std::make_unique<IMPL_t>(this)) {}
WQCurlEasy::~WQCurlEasy() = default;
OPERATION(bool WQCurlEasy::Initialize(), return m_pImpl->Become(g_tFake->Allows("Initialize"), "Initialize"))
OPERATION(bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE e, const long& l), return m_pImpl->Set(e, l))
OPERATION(bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE e, const std::string& str), return m_pImpl->Set(e, str))
OPERATION(bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE e, const LIST_t& lst), return m_pImpl->Set(e, lst))
OPERATION(bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE e, WRITE_FUNCTION_t pfn), return m_pImpl->Set(e, pfn))
OPERATION(bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE e, PROGRESS_FUNCTION_t pfn), return m_pImpl->Set(e, pfn))
OPERATION(bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE e, void* p), return m_pImpl->Set(e, p))
OPERATION(void WQCurlEasy::setTimeout(int n, int nAll),
          m_pImpl->Step("setTimeout " + std::to_string(n) + " " + std::to_string(nAll)))
OPERATION(bool WQCurlEasy::send(), return m_pImpl->Send())
OPERATION(bool WQCurlEasy::getInfo(WQCURL_INFO_TYPE e, double* p), return e == SPEED_DOWNLOAD && (*p = 1.5, true))
OPERATION(bool WQCurlEasy::getInfo(WQCURL_INFO_TYPE e, void** pp), return m_pImpl->Private(e, pp))
OPERATION(std::string WQCurlEasy::getLastError(), return m_pImpl->strLastError)
OPERATION(void WQCurlEasy::reset(), m_pImpl->Step("reset"); m_pImpl->Become(false, ""))

WQCurlMulti::WQCurlMulti() : m_pImpl(std::make_unique<IMPL_t>()) {}
WQCurlMulti::~WQCurlMulti() = default;
OPERATION(bool WQCurlMulti::Initialize(), return m_pImpl->bReady = g_tFake->Allows("multi"))
OPERATION(bool WQCurlMulti::Perform(int& n), Note("Perform"); n = 3; return g_tFake->Allows("Perform"))

bool WQCurlMulti::addHandle(const WQCurlEasy* pEasyHandle)
{
    if (pEasyHandle == nullptr)
    {
        return false;
    }
    WQCurlEasy::IMPL_t& tEasy = *pEasyHandle->m_pImpl;
    tEasy.Step("addHandle");
    if (!m_pImpl->bReady || !tEasy.bReady || tEasy.pMulti != nullptr || !g_tFake->Allows("addHandle"))
    {
        return false;
    }
    const std::lock_guard<std::mutex> tGuard(g_tFake->tLock);
    tEasy.pMulti = this;
    m_pImpl->lstRunning.push_back(tEasy.ptOwner);
    m_pImpl->tAdded.notify_all();
    return true;
}

bool WQCurlMulti::removeHandle(const WQCurlEasy* pEasyHandle)
{
    Note("removeHandle");
    const bool bHere = pEasyHandle != nullptr && pEasyHandle->m_pImpl->pMulti == this;
    const bool bAllowed = bHere && g_tFake->Allows("removeHandle");
    const std::lock_guard<std::mutex> tGuard(g_tFake->tLock);
    bHere ? void(pEasyHandle->m_pImpl->pMulti = nullptr) : void();
    m_pImpl->lstFinished.remove_if([=](const MultiMsg& tMsg) { return tMsg.pEasyHandle == pEasyHandle; });
    m_pImpl->lstRunning.remove_if([=](const WQCurlEasy* pEasy) { return pEasy == pEasyHandle; });
    return bAllowed;
}

/** Only waits that have something to tell are written down: how many there are without is a matter of time. */
bool WQCurlMulti::fdSelect(int& nRunningHandles)
{
    nRunningHandles = 3;
    if (!g_tFake->Allows("fdSelect"))
    {
        return false;
    }
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
        g_tFake->fnTransfer(*ptEasy->m_pImpl);
        const bool bResult = g_tFake->Allows("transfer");
        m_pImpl->lstFinished.push_back({ptEasy, bResult, bResult ? "" : "broken", 0, 0});
    }
    m_pImpl->lstFinished.empty() ? void() : Note("fdSelect finishes " + std::to_string(m_pImpl->lstFinished.size()));
    return true;
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
