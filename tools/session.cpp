#include "session.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <curl/curl.h>
#include <system_error>
#include <utility>

#include "text.h"
#include "url.h"
#include "veltra/log.h"

namespace
{

constexpr unsigned int LEVEL_INFORMATION = 4;

/** Explains a failure that a host name with letters beyond ASCII has caused; empty for any other. */
std::string HintAtName(const WQCurl::TRANSFER_REPORT_t& tReport)
{
    const bool bInternational = std::any_of(tReport.strUrl.begin(), tReport.strUrl.end(),
                                            [](char c) { return static_cast<unsigned char>(c) > 0x7f; });
    const bool bName = tReport.nResultCode == CURLE_URL_MALFORMAT || tReport.nResultCode == CURLE_COULDNT_RESOLVE_HOST;
    if (!bInternational || !bName)
    {
        return "";
    }
    if ((curl_version_info(CURLVERSION_NOW)->features & CURL_VERSION_IDN) == 0)
    {
        return "; this libcurl takes an international host name only in its form that begins with xn--";
    }
    return tReport.nResultCode == CURLE_URL_MALFORMAT
               ? "; an international host name takes a locale of its encoding, such as LC_ALL=C.UTF-8"
               : "";
}

/** A log record whose text cannot drive a terminal. Of an error record the library's own colours stay. */
std::string PrintableRecord(unsigned int nLevel, const std::string& strRecord)
{
    const std::string strBegin = VELTRA_LOG_FRAME_BEGIN;
    const size_t nText = strRecord.find(strBegin) + strBegin.size();
    const size_t nTextEnd = strRecord.rfind(VELTRA_LOG_FRAME_END);
    if (nLevel != 0 || nText < strBegin.size() || nTextEnd == std::string::npos || nTextEnd < nText)
    {
        return Printable(strRecord.substr(0, strRecord.size() - 1)) + "\n";
    }
    return strRecord.substr(0, nText) + Printable(strRecord.substr(nText, nTextEnd - nText)) +
           VELTRA_LOG_FRAME_END "\n";
}

void PrintRecord(unsigned int level, const char* record, void* pVerbose)
{
    if (pVerbose != nullptr)
    {
        CLogSinks::WriteToStandardError(level, PrintableRecord(level, record).c_str(), nullptr);
    }
}

} // namespace

CSession::CSession(bool bVerbose)
{
    CKVRDebug::SetSink(&PrintRecord, bVerbose ? this : nullptr);
    CKVRDebug::SetLevel(bVerbose ? LEVEL_INFORMATION : 0);
    WQCurl::SetTransferObserver(&OnTransferEnd, this);
    /* The engine's threads inherit the mask. */
    sigset_t tAll;
    sigset_t tBefore;
    sigfillset(&tAll);
    pthread_sigmask(SIG_BLOCK, &tAll, &tBefore);
    Engine().Create();
    pthread_sigmask(SIG_SETMASK, &tBefore, nullptr);
}

CSession::~CSession()
{
    End();
    WQCurl::SetTransferObserver(nullptr, nullptr);
    CKVRDebug::SetSink(nullptr, nullptr);
}

void CSession::End()
{
    Engine().Destroy();
}

TRANSFER_END_t CSession::TakeEnd()
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    return std::exchange(m_tLastEnd, std::nullopt);
}

void CSession::OnTransferEnd(const WQCurl::TRANSFER_REPORT_t& tReport, void* pUserData)
{
    auto& tSession = *static_cast<CSession*>(pUserData);
    const std::lock_guard<std::mutex> tGuard(tSession.m_tLock);
    tSession.m_tLastEnd = tReport;
}

std::string Reason(const TRANSFER_END_t& tEnd)
{
    if (!tEnd.has_value())
    {
        return "the transfer was not begun, or was ended";
    }
    const WQCurl::TRANSFER_REPORT_t& tReport = *tEnd;
    if (tReport.nResultCode == CURLE_FILESIZE_EXCEEDED)
    {
        return tReport.strErrorMsg + " (--max-size)";
    }
    if (tReport.nHttpStatus >= FIRST_HTTP_ERROR)
    {
        return "HTTP " + std::to_string(tReport.nHttpStatus);
    }
    if (!tReport.strRedirectUrl.empty())
    {
        return "HTTP " + std::to_string(tReport.nHttpStatus) + ", a redirect to " +
               WithoutCredentials(tReport.strRedirectUrl) + ", which is not followed";
    }
    return tReport.strErrorMsg + (tReport.nSystemError != 0 ? ": " + SystemText(tReport.nSystemError) : "") +
           HintAtName(tReport);
}

int PrintError(const std::string& strWhat, const std::string& strCause)
{
    static_cast<void>(fflush(stdout));
    static_cast<void>(fprintf(stderr, "veltra: %s: %s\n", Printable(strWhat).c_str(), Printable(strCause).c_str()));
    return 1;
}

std::string SystemText(int nError)
{
    return std::generic_category().message(nError);
}
