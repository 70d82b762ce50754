/* The functions of a transfer that libcurl calls. No exception may unwind libcurl's frames. */

#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "veltra/desktop/descriptor.h"
#include "veltra/desktop/reported_transfer.h"
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

/** Keeps why the wrapper itself ends the attempt. @return false if there is a reason */
bool TRANSFER_t::Accept(const FAULT_t& tFault)
{
    tAttempt.tFault = tFault;
    return !tFault;
}

/** @return false for a line that ends the transfer */
bool TRANSFER_t::TakeHeaderLine(std::string_view strLine)
{
    switch (tAttempt.tHeaderLines.Take(strLine, pEasy.get()))
    {
    case CHeaderLines::RESULT_TOO_LARGE:
        return Accept({CURLE_FILESIZE_EXCEEDED, "The answer's header lines are larger than 300 KiB"});
    case CHeaderLines::RESULT_COMPLETE:
        return Accept(CheckAnswer());
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

/** Checks an answer by its header lines. @return why its body is not the requested one */
FAULT_t TRANSFER_t::CheckAnswer()
{
    const CHeaderLines& tHeader = tAttempt.tHeaderLines;
    tAttempt.bRedirected = tResume.Before() == 0 && tRedirects.IsRedirect(Status());
    if (tAttempt.bRedirected)
    {
        return tRedirects.Take(pEasy.get(), tHeader);
    }
    const FAULT_t tFault = tResume.Check(tHeader, Status());
    curl_off_t nLength = -1;
    curl_easy_getinfo(pEasy.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &nLength);
    const bool bDecoded = ptSettings->tRecord.bCompressed && !tHeader.Values("Content-Encoding").empty();
    const bool bKnown = nLength >= 0 && !bDecoded && !FailsByStatus();
    return tFault ? tFault : tExpected.CheckAnnounced(bKnown ? tResume.Before() + nLength : -1);
}

/** Counts and checks a piece of the body. @return why it is not taken */
FAULT_t TRANSFER_t::CheckBody(const char* pData, size_t nBytes)
{
    const TRANSFER_SETTINGS_t& tSettings = ptSettings->tRecord;
    const long long nMost = bReporting ? tSettings.nLargestFile : tSettings.nLargestAnswer;
    tResume.Count(nBytes);
    if (nMost > 0 && tResume.Received() > nMost)
    {
        return {CURLE_FILESIZE_EXCEEDED, "The answer is larger than the settings allow"};
    }
    return FailsByStatus() ? FAULT_t() : tExpected.Take(pData, nBytes, tResume.Received());
}

/** Takes a piece of the body, or pauses the transfer if its time slice is used up or if it has to wait for bandwidth.
 */
size_t TRANSFER_t::TakeBody(char* pData, size_t nSize, size_t nCount)
{
    constexpr size_t MOST_DISCARDED = 16384; // a short body costs less than another connection to the same server
    const size_t nBytes = nSize * nCount;
    if (tAttempt.bRedirected)
    {
        tAttempt.nDiscarded += nBytes;
        return tAttempt.nDiscarded <= MOST_DISCARDED ? nBytes : CURL_WRITEFUNC_ERROR;
    }
    /* libcurl keeps a piece for which the transfer is paused, and joins it with all that arrive meanwhile. */
    if (tAttempt.tTimeSlice.IsUsedUp())
    {
        m_ptPaused->AddUsedUp(*this);
        return CURL_WRITEFUNC_PAUSE;
    }
    if (bReporting && !CBandwidth::Instance().Take(tShare, nBytes))
    {
        m_ptPaused->AddHeldBack(*this);
        tAttempt.bHeldBack = true;
        return CURL_WRITEFUNC_PAUSE;
    }
    tAttempt.tTimeSlice.Use(nBytes);
    if (!Accept(CheckBody(pData, nBytes)))
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
    if (!tTransfer.tAttempt.bRedirected)
    {
        const curl_off_t nWhole = tResume.Before() > 0 ? tResume.Total() : nTotal;
        tTransfer.tCounts = {nWhole, tResume.Before() + nNow, nUpTotal, nUpNow};
    }
    return tTransfer.AskProgress();
}

int TRANSFER_t::AskProgress() const
{
    if (pfnProgress == nullptr)
    {
        return 0;
    }
    const CCallbackScope tScope(this);
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
