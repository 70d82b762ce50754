#include "messages.h"

#include <cstdio>
#include <curl/curl.h>
#include <set>
#include <system_error>

#include "text.h"
#include "url.h"

namespace
{

/** Returns the cause of a transfer's failure, which may hold the redirect that was not followed. */
std::string Cause(const WQCurl::TRANSFER_REPORT_t& tReport)
{
    const std::string strStatus = "HTTP " + std::to_string(tReport.nHttpStatus);
    if (tReport.nResultCode == CURLE_FILESIZE_EXCEEDED)
    {
        return tReport.strErrorMsg + " (--max-size)";
    }
    if (tReport.nHttpStatus >= FIRST_HTTP_ERROR)
    {
        return strStatus + (tReport.nRetryAfter > 0 ? Format(", retry after %d s", tReport.nRetryAfter) : "");
    }
    if (!tReport.strRedirectUrl.empty())
    {
        return strStatus + ", a redirect to " + WithoutCredentials(tReport.strRedirectUrl) + ": " + tReport.strErrorMsg;
    }
    return tReport.strErrorMsg + (tReport.nSystemError != 0 ? ": " + SystemText(tReport.nSystemError) : "");
}

} // namespace

int PrintError(const std::string& strSubject, const std::string& strCause)
{
    static_cast<void>(fflush(stdout));
    static_cast<void>(fprintf(stderr, "veltra: %s: %s\n", Printable(strSubject).c_str(), Printable(strCause).c_str()));
    return 1;
}

int PrintUsageError(const std::string& strFault, const std::string& strCommand)
{
    static_cast<void>(fprintf(stderr, "veltra: %s\nTry 'veltra %s%s--help'.\n", Printable(strFault).c_str(),
                              strCommand.c_str(), strCommand.empty() ? "" : " "));
    return 2;
}

std::string Reason(const WQCurl::TRANSFER_REPORT_t& tReport)
{
    if (tReport.nHttpStatus == 0 && tReport.nResultCode == 0)
    {
        return "the transfer was not started, or was ended early";
    }
    const bool bRedirected = tReport.strFinalUrl != tReport.strUrl;
    return Cause(tReport) + (bRedirected ? " (redirected to " + WithoutCredentials(tReport.strFinalUrl) + ")" : "");
}

int ExitStatus(const WQCurl::TRANSFER_REPORT_t& tReport)
{
    const int nCode = tReport.nResultCode;
    if (nCode == CURLE_HTTP_RETURNED_ERROR || nCode == CURLE_TOO_MANY_REDIRECTS || nCode == WQCurl::RESULT_UNEXPECTED)
    {
        return nCode == WQCurl::RESULT_UNEXPECTED && tReport.nHttpStatus < FIRST_HTTP_ERROR ? 5 : 4;
    }
    const std::set<int> setLocal{CURLE_OK,
                                 CURLE_UNSUPPORTED_PROTOCOL,
                                 CURLE_FAILED_INIT,
                                 CURLE_WRITE_ERROR,
                                 CURLE_ABORTED_BY_CALLBACK,
                                 CURLE_URL_MALFORMAT,
                                 CURLE_OUT_OF_MEMORY,
                                 CURLE_SSL_CERTPROBLEM,
                                 CURLE_FILESIZE_EXCEEDED,
                                 CURLE_SSL_CACERT_BADFILE};
    return setLocal.count(nCode) != 0 ? 1 : 3;
}

std::string SystemText(int nError)
{
    return std::generic_category().message(nError);
}
