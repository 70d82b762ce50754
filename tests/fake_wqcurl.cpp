#include "fake_wqcurl.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <vector>

std::optional<FAKE_WQCURL_t> g_tFake;

namespace WQCurl
{

struct WQCurlEasy::IMPL_t : FAKE_TRANSFER_t
{
    bool NoteOption(WQCURL_OPTION_TYPE eOption, const std::string& strValue)
    {
        const std::string strNumber = std::to_string(static_cast<int>(eOption));
        g_tFake->Note(strNumber + "=" + strValue);
        strLastError = g_tFake->nRefusedOption == static_cast<int>(eOption) ? "no " + strNumber : "";
        return strLastError.empty();
    }

    WQCurlEasy* ptOwner = nullptr;
};

WQCurlEasy::WQCurlEasy() : m_pImpl(std::make_unique<IMPL_t>())
{
    m_pImpl->ptOwner = this;
}

WQCurlEasy::~WQCurlEasy()
{
    g_tFake->Note("destroy");
}

bool WQCurlEasy::Initialize()
{
    g_tFake->Note("Initialize");
    return g_tFake->bInitialize;
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, const long& lValue)
{
    return m_pImpl->NoteOption(eOption, std::to_string(lValue));
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, const std::string& strValue)
{
    return m_pImpl->NoteOption(eOption, strValue);
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, const std::list<std::string>& lstValue)
{
    std::string strValue;
    for (const std::string& strItem : lstValue)
    {
        strValue += strItem + "|";
    }
    return m_pImpl->NoteOption(eOption, strValue);
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, WRITE_FUNCTION_t pfnWrite)
{
    m_pImpl->pfnWrite = pfnWrite;
    return m_pImpl->NoteOption(eOption, "write");
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, PROGRESS_FUNCTION_t pfnProgress)
{
    m_pImpl->pfnProgress = pfnProgress;
    return m_pImpl->NoteOption(eOption, "progress");
}

bool WQCurlEasy::setOption(WQCURL_OPTION_TYPE eOption, void* pValue)
{
    (eOption == WRITEDATA      ? m_pImpl->pWriteData
     : eOption == PROGRESSDATA ? m_pImpl->pProgressData
                               : m_pImpl->pPrivate) = pValue;
    return m_pImpl->NoteOption(eOption, "pointer");
}

void WQCurlEasy::setTimeout(int nConnectSeconds, int nTotalSeconds)
{
    g_tFake->Note("setTimeout " + std::to_string(nConnectSeconds) + " " + std::to_string(nTotalSeconds));
}

bool WQCurlEasy::send()
{
    g_tFake->Note("send");
    g_tFake->fnTransfer(*m_pImpl);
    m_pImpl->strLastError = m_pImpl->strError;
    return m_pImpl->strError.empty();
}

bool WQCurlEasy::getInfo(WQCURL_INFO_TYPE eInfo, double* pdValue)
{
    *pdValue = 1.5;
    return eInfo == SPEED_DOWNLOAD;
}

bool WQCurlEasy::getInfo(WQCURL_INFO_TYPE eInfo, void** ppValue)
{
    *ppValue = m_pImpl->pPrivate;
    return eInfo == PRIVATE_INFO && m_pImpl->bReadable;
}

std::string WQCurlEasy::getLastError()
{
    return m_pImpl->strLastError;
}

void WQCurlEasy::reset()
{
    g_tFake->Note("reset");
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
    m_pImpl->bReady = g_tFake->nMultiRefusals-- <= 0;
    return m_pImpl->bReady;
}

bool WQCurlMulti::addHandle(const WQCurlEasy* pEasyHandle)
{
    g_tFake->Note("addHandle");
    const std::lock_guard<std::mutex> tGuard(g_tFake->tLock);
    if (!g_tFake->bAdd || !m_pImpl->bReady)
    {
        return false;
    }
    m_pImpl->vecRunning.push_back(pEasyHandle->m_pImpl->ptOwner);
    m_pImpl->tAdded.notify_all();
    return true;
}

bool WQCurlMulti::removeHandle(const WQCurlEasy* /*pEasyHandle*/)
{
    g_tFake->Note("removeHandle");
    return g_tFake->bRemove;
}

bool WQCurlMulti::Perform(int& nRunningHandles)
{
    nRunningHandles = g_tFake->nRunning;
    return g_tFake->bPerform;
}

bool WQCurlMulti::fdSelect(int& nRunningHandles)
{
    nRunningHandles = g_tFake->nRunning;
    ++g_tFake->nSelects;
    if (g_tFake->nSelectFailures-- > 0)
    {
        return false;
    }
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
        FAKE_TRANSFER_t& tTransfer = *ptEasy->m_pImpl;
        g_tFake->fnTransfer(tTransfer);
        m_pImpl->dqFinished.push_back({ptEasy, tTransfer.strError.empty(), tTransfer.strError, 0, 0});
    }
    return true;
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
