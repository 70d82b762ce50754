#include "veltra/desktop/curl_multi.h"

#include <unistd.h>

#include "veltra/desktop/signal_guard.h"

namespace WQCurl
{

void CCurlMulti::DELETER_t::operator()(CURLM* pMulti) const
{
    const CSignalGuard tGuard;
    curl_multi_cleanup(pMulti);
}

bool CCurlMulti::Open()
{
    return m_tSockets.Open() && Renew();
}

bool CCurlMulti::Renew()
{
    std::unique_ptr<CURLM, DELETER_t> pNew(curl_multi_init());
    if (pNew == nullptr || curl_multi_setopt(pNew.get(), CURLMOPT_SOCKETFUNCTION, &OnSocket) != CURLM_OK ||
        curl_multi_setopt(pNew.get(), CURLMOPT_SOCKETDATA, this) != CURLM_OK ||
        curl_multi_setopt(pNew.get(), CURLMOPT_TIMERFUNCTION, &OnTimer) != CURLM_OK ||
        curl_multi_setopt(pNew.get(), CURLMOPT_TIMERDATA, this) != CURLM_OK)
    {
        return false;
    }
    m_pMulti = std::move(pNew);
    m_tTimer.reset();
    return true;
}

bool CCurlMulti::Add(TRANSFER_t& tTransfer)
{
    CURL* pEasy = tTransfer.pEasy.get();
    curl_easy_setopt(pEasy, CURLOPT_CLOSESOCKETFUNCTION, &OnCloseSocket);
    curl_easy_setopt(pEasy, CURLOPT_CLOSESOCKETDATA, this);
    return curl_multi_add_handle(m_pMulti.get(), pEasy) == CURLM_OK;
}

bool CCurlMulti::Remove(const TRANSFER_t& tTransfer)
{
    return curl_multi_remove_handle(m_pMulti.get(), tTransfer.pEasy.get()) == CURLM_OK;
}

bool CCurlMulti::RunExpired()
{
    if (!m_tTimer.has_value() || Clock::now() < *m_tTimer)
    {
        return true;
    }
    m_tTimer.reset();
    return CheckTimeouts();
}

bool CCurlMulti::HandleEvent(const epoll_event& tEvent)
{
    if (!m_tSockets.IsWanted(tEvent.data.fd))
    {
        return true;
    }
    const int nEvents = ((tEvent.events & EPOLLIN) != 0 ? CURL_CSELECT_IN : 0) |
                        ((tEvent.events & EPOLLOUT) != 0 ? CURL_CSELECT_OUT : 0) |
                        ((tEvent.events & (EPOLLERR | EPOLLHUP)) != 0 ? CURL_CSELECT_ERR : 0);
    return SocketAction(tEvent.data.fd, nEvents);
}

std::pair<TRANSFER_t*, CURLcode> CCurlMulti::NextFinished()
{
    int nLeft = 0;
    const CURLMsg* ptMsg = curl_multi_info_read(m_pMulti.get(), &nLeft);
    return ptMsg != nullptr ? std::pair(TRANSFER_t::Of(ptMsg->easy_handle), ptMsg->data.result)
                            : std::pair<TRANSFER_t*, CURLcode>(nullptr, CURLE_OK);
}

bool CCurlMulti::SocketAction(curl_socket_t nSocket, int nEvents) const
{
    int nUnused = 0;
    return curl_multi_socket_action(m_pMulti.get(), nSocket, nEvents, &nUnused) == CURLM_OK;
}

int CCurlMulti::OnCloseSocket(void* pThis, curl_socket_t nSocket)
{
    static_cast<CCurlMulti*>(pThis)->m_tSockets.OnClosing(nSocket);
    return close(nSocket);
}

int CCurlMulti::OnSocket(CURL* pEasy, curl_socket_t nSocket, int nWhat, void* pThis, void* /*pUnused*/)
{
    const uint32_t nEvents =
        ((nWhat & CURL_POLL_IN) != 0 ? EPOLLIN : 0U) | ((nWhat & CURL_POLL_OUT) != 0 ? EPOLLOUT : 0U);
    static_cast<CCurlMulti*>(pThis)->m_tSockets.Want(nSocket, nEvents);
    TRANSFER_t* ptTransfer = nEvents != 0 ? TRANSFER_t::Of(pEasy) : nullptr;
    if (ptTransfer != nullptr)
    {
        ptTransfer->tAttempt.nSocket = nSocket;
    }
    return 0;
}

int CCurlMulti::OnTimer(CURLM* /*pMulti*/, long lMilliseconds, void* pThis)
{
    std::optional<Clock::time_point>& tTimer = static_cast<CCurlMulti*>(pThis)->m_tTimer;
    tTimer.reset();
    if (lMilliseconds == 0)
    {
        tTimer = Clock::time_point(); // long ago; the clock is not read for every new transfer
    }
    else if (lMilliseconds > 0)
    {
        tTimer = Clock::now() + std::chrono::milliseconds(lMilliseconds);
    }
    return 0;
}

} // namespace WQCurl
