#include "session.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <curl/curl.h>
#include <sys/statvfs.h>
#include <system_error>
#include <utility>

#include "text.h"

namespace
{

constexpr unsigned int LEVEL_INFORMATION = 4;

bool IsFull(const std::string& strFolder)
{
    constexpr unsigned long long ALMOST_NOTHING = 65536; // the data that found no place is larger than what is left
    struct statvfs tStat = {};
    return statvfs(strFolder.c_str(), &tStat) == 0 &&
           static_cast<unsigned long long>(tStat.f_bavail) * tStat.f_frsize < ALMOST_NOTHING;
}

/** What libcurl's words do not say of a name with letters beyond ASCII. */
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

void PrintRecord(unsigned int /*level*/, const char* record, void* pVerbose)
{
    if (pVerbose != nullptr)
    {
        static_cast<void>(fputs(record, stderr));
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

std::optional<TRANSFER_END_t> CSession::TakeEnd()
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    return std::exchange(m_tLastEnd, std::nullopt);
}

void CSession::OnTransferEnd(const WQCurl::TRANSFER_REPORT_t& tReport, void* pUserData)
{
    auto& tSession = *static_cast<CSession*>(pUserData);
    /* Now, while the temporary file still takes the room. */
    const bool bDiskFull = tReport.nResultCode == CURLE_WRITE_ERROR &&
                           std::any_of(tSession.m_setFolder.begin(), tSession.m_setFolder.end(), &IsFull);
    const std::lock_guard<std::mutex> tGuard(tSession.m_tLock);
    tSession.m_tLastEnd = TRANSFER_END_t{tReport, bDiskFull};
}

std::string Reason(const std::optional<TRANSFER_END_t>& tEnd)
{
    if (!tEnd.has_value())
    {
        return "the transfer was not begun, or was ended";
    }
    const WQCurl::TRANSFER_REPORT_t& tReport = tEnd->tReport;
    if (tEnd->bDiskFull)
    {
        return SystemText(ENOSPC);
    }
    if (tReport.nResultCode == CURLE_WRITE_ERROR)
    {
        return "the file cannot be written";
    }
    if (tReport.nHttpStatus >= FIRST_HTTP_ERROR)
    {
        return "HTTP " + std::to_string(tReport.nHttpStatus);
    }
    if (!tReport.strRedirectUrl.empty())
    {
        return "HTTP " + std::to_string(tReport.nHttpStatus) + ", a redirect to " + tReport.strRedirectUrl +
               ", which is not followed";
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
