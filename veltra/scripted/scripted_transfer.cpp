#include "veltra/scripted/scripted_transfer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "veltra/scripted/full_disk.h"

namespace
{

constexpr size_t LARGEST_PIECE = CURL_MAX_WRITE_SIZE;

SCRIPTED_REQUEST_t Describe(const SCRIPTED_OPTIONS_t& tOptions, const SCRIPTED_URL_t& tUrl)
{
    SCRIPTED_REQUEST_t tRequest{tUrl.strKey, tOptions.bPost ? "POST" : "GET", {}, ""};
    for (const curl_slist* pLine = tOptions.pHeader; pLine != nullptr; pLine = pLine->next)
    {
        tRequest.lstHeader.emplace_back(pLine->data);
    }
    if (!tOptions.strRange.empty())
    {
        tRequest.lstHeader.push_back("Range: bytes=" + tOptions.strRange);
    }
    if (!tOptions.strUserAgent.empty())
    {
        tRequest.lstHeader.push_back("User-Agent: " + tOptions.strUserAgent);
    }
    if (tOptions.bPost && tOptions.pszPostFields != nullptr)
    {
        const long lSize = tOptions.lPostFieldSize;
        tRequest.strBody.assign(tOptions.pszPostFields,
                                lSize >= 0 ? static_cast<size_t>(lSize) : std::strlen(tOptions.pszPostFields));
    }
    return tRequest;
}

} // namespace

void CScriptedTransfer::Begin()
{
    m_tRun = RUN_t();
}

CScriptedTransfer::STATE_e CScriptedTransfer::Step() noexcept
{
    if (m_tRun.bPaused)
    {
        return STATE_PAUSED;
    }
    try
    {
        const STATE_e eState = Proceed();
        return eState == STATE_ENDED || MayGoOn() ? eState : End(CURLE_ABORTED_BY_CALLBACK, "Callback aborted");
    }
    catch (...)
    {
        m_tRun.eResult = CURLE_OUT_OF_MEMORY;
        return STATE_ENDED;
    }
}

CScriptedTransfer::STATE_e CScriptedTransfer::Proceed()
{
    if (!m_tRun.bRequested)
    {
        return Request();
    }
    std::optional<size_t> optUntilHold;
    if (m_tRun.ptScripts != nullptr)
    {
        optUntilHold = m_tRun.ptScripts->UntilHold(m_tRun.tUrl.strKey, m_tRun.nReceived);
    }
    if (optUntilHold == size_t{0})
    {
        return STATE_HELD;
    }
    if (m_tRun.ptScript == nullptr)
    {
        return End(CURLE_COULDNT_RESOLVE_HOST, "Could not resolve host: " + m_tRun.tUrl.strHost);
    }
    if (!m_tRun.ptScript->optAnswer.has_value())
    {
        return EndAsScripted();
    }
    return m_tRun.nFirstByte == 0 ? SendHeader()
                                  : SendBody(std::min(LARGEST_PIECE, optUntilHold.value_or(LARGEST_PIECE)));
}

CScriptedTransfer::STATE_e CScriptedTransfer::Request()
{
    m_tRun.bRequested = true;
    m_tRun.tUrl = SCRIPTED_URL_t(tOptions.strUrl);
    if (!m_tRun.tUrl.IsHttp())
    {
        return End(m_tRun.tUrl.strScheme.empty() ? CURLE_URL_MALFORMAT : CURLE_UNSUPPORTED_PROTOCOL);
    }
    m_tRun.tRequest = Describe(tOptions, m_tRun.tUrl);
    m_tRun.ptScripts = CScripts::Current();
    m_tRun.ptScript = m_tRun.ptScripts != nullptr ? m_tRun.ptScripts->Take(m_tRun.tRequest) : nullptr;
    m_tRun.nSent = Elapsed();
    return STATE_READY;
}

CScriptedTransfer::STATE_e CScriptedTransfer::SendHeader()
{
    m_tRun.nFirstByte = Elapsed();
    m_tRun.tAnswer = MakeAnswer(*m_tRun.ptScript->optAnswer, m_tRun.tRequest.lstHeader);
    const SENT_ANSWER_t& tAnswer = m_tRun.tAnswer;
    m_tRun.strContentType = HeaderValue(tAnswer.lstHeader, "Content-Type:");
    const std::string strLocation = HeaderValue(tAnswer.lstHeader, "Location:");
    if (tAnswer.nStatus / 100 == 3 && !strLocation.empty())
    {
        m_tRun.strRedirectUrl = ResolveReference(m_tRun.tUrl.strUrl, strLocation);
    }
    bool bTaken = TakeHeaderLine("HTTP/1.1 " + std::to_string(tAnswer.nStatus));
    for (const std::string& strLine : tAnswer.lstHeader)
    {
        bTaken = bTaken && TakeHeaderLine(strLine);
    }
    if (!bTaken || !TakeHeaderLine(""))
    {
        return End(CURLE_WRITE_ERROR);
    }
    constexpr int FIRST_ERROR = 400;
    return tOptions.bFailOnError && tAnswer.nStatus >= FIRST_ERROR
               ? End(CURLE_HTTP_RETURNED_ERROR, "The requested URL returned error: " + std::to_string(tAnswer.nStatus))
               : STATE_READY;
}

bool CScriptedTransfer::TakeHeaderLine(std::string strLine) const
{
    strLine += "\r\n";
    return tOptions.pfnHeader == nullptr ||
           tOptions.pfnHeader(strLine.data(), 1, strLine.size(), tOptions.pHeaderData) == strLine.size();
}

/** Sends the next piece of the body, or ends the transfer behind the last one. */
CScriptedTransfer::STATE_e CScriptedTransfer::SendBody(size_t nMost)
{
    const SCRIPT_t& tScript = *m_tRun.ptScript;
    const size_t nEnd = tScript.nResultCode != 0 ? std::min(tScript.nAfterBytes, m_tRun.tAnswer.strBody.size())
                                                 : m_tRun.tAnswer.strBody.size();
    if (m_tRun.nReceived == nEnd)
    {
        return EndAsScripted();
    }
    const int nChunk = tScript.optAnswer->nChunk;
    nMost = nChunk > 0 ? std::min(nMost, static_cast<size_t>(nChunk)) : nMost;
    std::string strPiece(m_tRun.tAnswer.strBody.substr(m_tRun.nReceived, std::min(nMost, nEnd - m_tRun.nReceived)));
    const CFullDisk tDisk(m_tRun.ptScripts->RefusesWrites(m_tRun.tUrl.strKey));
    const size_t nTaken = tOptions.pfnWrite == nullptr
                              ? strPiece.size()
                              : tOptions.pfnWrite(strPiece.data(), 1, strPiece.size(), tOptions.pWriteData);
    if (nTaken == CURL_WRITEFUNC_PAUSE)
    {
        m_tRun.bPaused = true; // the piece is sent again
        return STATE_PAUSED;
    }
    if (nTaken != strPiece.size())
    {
        return End(CURLE_WRITE_ERROR);
    }
    m_tRun.nReceived += strPiece.size();
    return STATE_READY;
}

/** Ends the transfer as its script does. */
CScriptedTransfer::STATE_e CScriptedTransfer::EndAsScripted()
{
    const SCRIPT_t& tScript = *m_tRun.ptScript;
    const curl_off_t nMissing = m_tRun.tAnswer.nLength - static_cast<curl_off_t>(m_tRun.nReceived);
    if (tScript.nResultCode == 0 && nMissing > 0)
    {
        return End(CURLE_PARTIAL_FILE, "transfer closed with " + std::to_string(nMissing) + " bytes remaining to read");
    }
    return End(static_cast<CURLcode>(tScript.nResultCode), tScript.strErrorMsg);
}

CScriptedTransfer::STATE_e CScriptedTransfer::End(CURLcode eResult, const std::string& strMessage)
{
    m_tRun.eResult = eResult;
    m_tRun.nEnd = Elapsed();
    if (tOptions.pszError != nullptr && eResult != CURLE_OK)
    {
        tOptions.pszError[strMessage.copy(tOptions.pszError, CURL_ERROR_SIZE - 1)] = '\0';
    }
    return STATE_ENDED;
}

bool CScriptedTransfer::MayGoOn() const
{
    return !tOptions.bProgress || tOptions.pfnProgress == nullptr ||
           tOptions.pfnProgress(tOptions.pProgressData, std::max(m_tRun.tAnswer.nLength, 0LL),
                                static_cast<curl_off_t>(m_tRun.nReceived), 0, 0) == 0;
}

curl_off_t CScriptedTransfer::Elapsed() const
{
    const auto tElapsed = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - m_tRun.tBegin);
    return std::max<curl_off_t>(tElapsed.count(), 1);
}

const char* CScriptedTransfer::Text(CURLINFO eInfo) const
{
    switch (eInfo)
    {
    case CURLINFO_PRIVATE:
        return tOptions.pPrivate;
    case CURLINFO_EFFECTIVE_URL:
        return m_tRun.bRequested ? m_tRun.tUrl.strUrl.c_str() : tOptions.strUrl.c_str();
    case CURLINFO_CONTENT_TYPE:
        return m_tRun.strContentType.empty() ? nullptr : m_tRun.strContentType.c_str();
    case CURLINFO_REDIRECT_URL:
        return m_tRun.strRedirectUrl.empty() ? nullptr : m_tRun.strRedirectUrl.c_str();
    default:
        return nullptr;
    }
}

long CScriptedTransfer::Number(CURLINFO eInfo) const
{
    switch (eInfo)
    {
    case CURLINFO_RESPONSE_CODE:
        return m_tRun.tAnswer.nStatus;
    case CURLINFO_HTTP_VERSION:
        return m_tRun.nFirstByte > 0 ? CURL_HTTP_VERSION_1_1 : CURL_HTTP_VERSION_NONE;
    case CURLINFO_OS_ERRNO:
        return m_tRun.eResult == CURLE_COULDNT_CONNECT ? ECONNREFUSED : 0;
    default:
        return 0;
    }
}

curl_off_t CScriptedTransfer::Count(CURLINFO eInfo) const
{
    const curl_off_t nTotal = m_tRun.nEnd > 0 ? m_tRun.nEnd : Elapsed();
    switch (eInfo)
    {
    case CURLINFO_CONTENT_LENGTH_DOWNLOAD_T:
        return m_tRun.tAnswer.nLength;
    case CURLINFO_SPEED_DOWNLOAD_T:
        return static_cast<curl_off_t>(m_tRun.nReceived) * 1000000 / nTotal;
    case CURLINFO_PRETRANSFER_TIME_T:
        return m_tRun.nSent;
    case CURLINFO_STARTTRANSFER_TIME_T:
        return m_tRun.nFirstByte;
    case CURLINFO_TOTAL_TIME_T:
        return nTotal;
    default:
        return 0;
    }
}
