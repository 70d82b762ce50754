/* The functions of a transfer that libcurl calls. No exception may unwind libcurl's frames. */

#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "veltra/desktop/descriptor.h"
#include "veltra/desktop/transfer.h"

namespace WQCurl
{

/* Own functions from the start: libcurl's defaults would write bodies and a progress meter to standard streams. */
void TRANSFER_t::SetFunctions(CURL* pNewEasy)
{
    curl_easy_setopt(pNewEasy, CURLOPT_PRIVATE, this);
    curl_easy_setopt(pNewEasy, CURLOPT_ERRORBUFFER, szError);
    curl_easy_setopt(pNewEasy, CURLOPT_OPENSOCKETFUNCTION, &OnOpenSocket);
    curl_easy_setopt(pNewEasy, CURLOPT_OPENSOCKETDATA, this);
    curl_easy_setopt(pNewEasy, CURLOPT_HEADERFUNCTION, &OnHeader);
    curl_easy_setopt(pNewEasy, CURLOPT_HEADERDATA, this);
    curl_easy_setopt(pNewEasy, CURLOPT_WRITEFUNCTION, &OnWrite);
    curl_easy_setopt(pNewEasy, CURLOPT_WRITEDATA, this);
    curl_easy_setopt(pNewEasy, CURLOPT_XFERINFOFUNCTION, &OnProgress);
    curl_easy_setopt(pNewEasy, CURLOPT_XFERINFODATA, this);
}

/**
 * Opens a socket as libcurl does, with two differences: programs that the application starts do not inherit it, and a
 * peer that acknowledges nothing is given up within seconds.
 */
curl_socket_t TRANSFER_t::OnOpenSocket(void* pTransfer, curlsocktype /*ePurpose*/, curl_sockaddr* ptAddress)
{
    constexpr int UNACKNOWLEDGED_MILLISECONDS = 30000;
    auto& tTransfer = *static_cast<TRANSFER_t*>(pTransfer);
    CDescriptor tSocket;
    tSocket.Reset(socket(ptAddress->family, ptAddress->socktype | SOCK_CLOEXEC, ptAddress->protocol));
    if (tSocket.Get() < 0)
    {
        tTransfer.tAttempt.nOpenError = errno;
        return CURL_SOCKET_BAD;
    }
    /* Sockets that are not TCP's refuse it. */
    setsockopt(tSocket.Get(), IPPROTO_TCP, TCP_USER_TIMEOUT, &UNACKNOWLEDGED_MILLISECONDS,
               sizeof UNACKNOWLEDGED_MILLISECONDS);
    try
    {
        tTransfer.m_ptSockets->OnOpened(tSocket.Get());
    }
    catch (...)
    {
        return CURL_SOCKET_BAD;
    }
    return tSocket.Release();
}

/** Keeps why the wrapper itself ends the transfer. @return false */
bool TRANSFER_t::Refuse(const char* pszReason)
{
    tAttempt.pszRefusal = pszReason;
    return false;
}

/** @return false for a line that ends the transfer */
bool TRANSFER_t::TakeHeaderLine(std::string_view strLine)
{
    switch (tAttempt.tHeaderLines.Take(strLine, Status()))
    {
    case CHeaderLines::RESULT_TOO_LARGE:
        return Refuse("The answer's header lines are larger than 300 KiB");
    case CHeaderLines::RESULT_COMPLETE:
        return tResume.AcceptAnswer(pEasy.get());
    default:
        return true;
    }
}

/** libcurl calls it for each whole line, those of interim answers and the trailers behind a body included. */
size_t TRANSFER_t::OnHeader(char* pData, size_t nSize, size_t nCount, void* pTransfer)
{
    try
    {
        return static_cast<TRANSFER_t*>(pTransfer)->TakeHeaderLine({pData, nSize * nCount}) ? nSize * nCount : 0;
    }
    catch (...)
    {
        return 0;
    }
}

/** Counts bytes of the body. @return false when there are more than the settings allow */
bool TRANSFER_t::CountReceived(size_t nBytes)
{
    const TRANSFER_SETTINGS_t& tDefaults = ptSettings->tDefaults;
    const long long nMost = bReporting ? tDefaults.nLargestFile : tDefaults.nLargestAnswer;
    tResume.Count(nBytes);
    return nMost == 0 || tResume.Received() <= nMost || Refuse("The answer is larger than the settings allow");
}

/** Takes a piece of the body, or pauses the transfer until the next step if its time slice is used up. */
size_t TRANSFER_t::TakeBody(char* pData, size_t nSize, size_t nCount)
{
    const size_t nBytes = nSize * nCount;
    if (tAttempt.tTimeSlice.IsUsedUp())
    {
        /* libcurl keeps this piece, and joins it with all that arrive meanwhile. */
        m_pvecPaused->push_back(this);
        tAttempt.tTimeSlice = CTimeSlice();
        return CURL_WRITEFUNC_PAUSE;
    }
    tAttempt.tTimeSlice.Use(nBytes);
    if (!CountReceived(nBytes))
    {
        return CURL_WRITEFUNC_ERROR;
    }
    /* A function that names libcurl's number for a pause must not cause one, because nothing would end it. */
    const bool bTaken = pfnWrite == nullptr || pfnWrite(pData, nSize, nCount, pWriteData) == nBytes;
    return bTaken ? nBytes : CURL_WRITEFUNC_ERROR;
}

size_t TRANSFER_t::OnWrite(char* pData, size_t nSize, size_t nCount, void* pTransfer)
{
    try
    {
        return static_cast<TRANSFER_t*>(pTransfer)->TakeBody(pData, nSize, nCount);
    }
    catch (...)
    {
        return CURL_WRITEFUNC_ERROR;
    }
}

/** The counts are those of the whole transfer, however many attempts it takes. An unknown total stays unknown. */
int TRANSFER_t::OnProgress(void* pTransfer, curl_off_t nTotal, curl_off_t nNow, curl_off_t nUpTotal, curl_off_t nUpNow)
{
    auto& tTransfer = *static_cast<TRANSFER_t*>(pTransfer);
    const CResume& tResume = tTransfer.tResume;
    const curl_off_t nWhole = tResume.Attempts() > 1 ? tResume.Total() : nTotal;
    tTransfer.tCounts = {nWhole, tResume.Before() + nNow, nUpTotal, nUpNow};
    return tTransfer.AskProgress();
}

int TRANSFER_t::AskProgress() const
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
    catch (...)
    {
        return 1;
    }
}

} // namespace WQCurl
