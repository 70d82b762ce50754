#include "veltra/desktop/transfer_report.h"

#include "veltra/desktop/header_values.h"
#include "veltra/desktop/reported_transfer.h"
#include "veltra/desktop/transfer_observer.h"

namespace WQCurl
{

namespace
{

template <class VALUE> VALUE Info(CURL* pEasy, CURLINFO eInfo)
{
    VALUE tValue{};
    curl_easy_getinfo(pEasy, eInfo, &tValue);
    return tValue;
}

std::string Text(CURL* pEasy, CURLINFO eInfo)
{
    const char* pszText = Info<char*>(pEasy, eInfo);
    return pszText != nullptr ? pszText : "";
}

const char* HttpVersion(CURL* pEasy)
{
    switch (Info<long>(pEasy, CURLINFO_HTTP_VERSION))
    {
    case CURL_HTTP_VERSION_1_0:
        return "1.0";
    case CURL_HTTP_VERSION_1_1:
        return "1.1";
    case CURL_HTTP_VERSION_2_0:
        return "2";
    case CURL_HTTP_VERSION_3:
        return "3";
    default:
        return "";
    }
}

double Seconds(CURL* pEasy, CURLINFO eInfo)
{
    return static_cast<double>(Info<curl_off_t>(pEasy, eInfo)) / 1e6;
}

} // namespace

TRANSFER_REPORT_t Describe(const TRANSFER_t& tTransfer)
{
    CURL* pEasy = tTransfer.pEasy.get();
    const CHeaderLines& tHeader = tTransfer.tAttempt.tHeaderLines;
    const CResume& tResume = tTransfer.tResume;
    const bool bFirst = tTransfer.tAttempts.Count() == 1 && tTransfer.tRedirects.FirstUrl().empty();
    TRANSFER_REPORT_t tReport;
    tReport.strFinalUrl = Text(pEasy, CURLINFO_EFFECTIVE_URL);
    tReport.strUrl = tTransfer.tRedirects.FirstUrl().empty() ? tReport.strFinalUrl : tTransfer.tRedirects.FirstUrl();
    tReport.nHttpStatus = static_cast<int>(tTransfer.Status());
    tReport.nBytes = tResume.Received();
    tReport.nAttempts = tTransfer.tAttempts.Count();
    tReport.dLookUp = Seconds(pEasy, CURLINFO_NAMELOOKUP_TIME_T);
    tReport.dConnect = Seconds(pEasy, CURLINFO_CONNECT_TIME_T);
    tReport.dTls = Seconds(pEasy, CURLINFO_APPCONNECT_TIME_T);
    tReport.dFirstByte = Seconds(pEasy, CURLINFO_STARTTRANSFER_TIME_T);
    tReport.dTotal = bFirst ? Seconds(pEasy, CURLINFO_TOTAL_TIME_T) : tTransfer.tAttempts.SecondsSinceBegin();
    tReport.strPeer = Text(pEasy, CURLINFO_PRIMARY_IP);
    tReport.bReused = tTransfer.IsReused();
    if (tTransfer.optEnd.has_value())
    {
        tReport.nResultCode = tTransfer.optEnd->nResultCode;
        tReport.nSystemError = tTransfer.optEnd->nSystemError;
        tReport.strErrorMsg = tTransfer.optEnd->strErrorMsg;
    }
    tReport.strHttpVersion = HttpVersion(pEasy);
    tReport.strContentType = Text(pEasy, CURLINFO_CONTENT_TYPE);
    tReport.strRedirectUrl =
        tTransfer.tAttempt.bRedirected ? tTransfer.tRedirects.NextUrl() : Text(pEasy, CURLINFO_REDIRECT_URL);
    tReport.nContentLength =
        tResume.Before() > 0 ? tResume.Total() : Info<curl_off_t>(pEasy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T);
    tReport.strEtag = tHeader.Value("ETag");
    tReport.strLastModified = tHeader.Value("Last-Modified");
    tReport.nRetryAfter = RetryAfter(tHeader);
    for (const std::string_view strLine : tHeader.All())
    {
        tReport.lstHeader.emplace_back(strLine);
    }
    return tReport;
}

bool TransferReport(TRANSFER_REPORT_t& tReport)
{
    const TRANSFER_t* ptTransfer = ReportedTransfer();
    if (ptTransfer != nullptr)
    {
        tReport = Describe(*ptTransfer);
    }
    return ptTransfer != nullptr;
}

} // namespace WQCurl
