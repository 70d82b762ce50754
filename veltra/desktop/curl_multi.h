#pragma once

#include <chrono>
#include <memory>
#include <optional>

#include "veltra/desktop/socket_set.h"
#include "veltra/desktop/transfer.h"

namespace WQCurl
{

/**
 * libcurl's multi handle, with the sockets and the moment that it waits for. An epoll descriptor waits for them, so
 * that the cost of a step follows the number of transfers that have something to do. Driving thread only. The signal
 * guard is the caller's.
 */
class CCurlMulti
{
public:
    typedef std::chrono::steady_clock Clock;

    bool Open();

    /**
     * Replaces libcurl's handle, whose connections and look-ups go with it. No transfer may run.
     * @return false if there is no other, and the old one stays
     */
    bool Renew();

    /** Has libcurl drive a transfer. @return false if it refuses */
    bool Add(TRANSFER_t& tTransfer);

    /** Takes a transfer from libcurl, finished or not. */
    bool Remove(const TRANSFER_t& tTransfer);

    void SetLimit(CURLMoption eOption, long lMost) { curl_multi_setopt(m_pMulti.get(), eOption, lMost); }

    /** Has libcurl check its time-outs. @return false for an error of the multi handle, as the next two */
    bool CheckTimeouts() { return SocketAction(CURL_SOCKET_TIMEOUT, 0); }

    /** Does so if the moment that libcurl waits for has come. */
    bool RunExpired();

    /** Has libcurl handle an event of one of its sockets. */
    bool HandleEvent(const epoll_event& tEvent);

    /** Returns the next transfer that libcurl has finished, with its result code; null if there is none. */
    std::pair<TRANSFER_t*, CURLcode> NextFinished();

    /** Returns the moment that libcurl waits for; none if there is none. */
    std::optional<Clock::time_point> Timer() const { return m_tTimer; }

    CSocketSet& Sockets() { return m_tSockets; }

private:
    struct DELETER_t
    {
        void operator()(CURLM* pMulti) const;
    };

    bool SocketAction(curl_socket_t nSocket, int nEvents) const;

    static int OnCloseSocket(void* pThis, curl_socket_t nSocket);
    static int OnSocket(CURL* pEasy, curl_socket_t nSocket, int nWhat, void* pThis, void* pUnused);
    static int OnTimer(CURLM* pMulti, long lMilliseconds, void* pThis);

    CSocketSet m_tSockets;
    std::optional<Clock::time_point> m_tTimer;
    std::unique_ptr<CURLM, DELETER_t> m_pMulti; /**< destroyed before the others, which its callbacks still use */
};

} // namespace WQCurl
