/*
 * Tests the engine against hostile bytes: a GET and a download of an answer that the fuzzer makes. The bytes behind a
 * byte of 255 answer requests for the rest of a file. A redirect leads to the same server. The last byte selects the
 * write to the file that fails.
 */

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <unistd.h>

#include "loopback_server.h"
#include "tests/test_helpers.h"
#include "veltra/veltra.h"

namespace
{

std::atomic<int> g_nUntilFailure{-1}; // negative: it has failed, or none is to

/** The end of a download. A second end throws, which ends the process. */
struct END_t
{
    bool Wait() { return tEnded.get_future().wait_for(std::chrono::seconds(20)) == std::future_status::ready; }

    std::promise<void> tEnded;
    bool bSuccess = false;
    long long nBytes = 0;
};

void OnDownload(int /*nId*/, DOWNLOAD_TYPE_e eType, int /*nPercent*/, double /*dSpeed*/, void* pUserData)
{
    auto* ptEnd = static_cast<END_t*>(pUserData);
    WQCurl::TRANSFER_REPORT_t tReport;
    ptEnd->bSuccess = eType == DOWNLOAD_TYPE_SUCCESS && WQCurl::TransferReport(tReport);
    ptEnd->nBytes = tReport.nBytes;
    eType == DOWNLOAD_TYPE_PROGRESS ? void() : ptEnd->tEnded.set_value();
}

} // namespace

/* The linker replaces the first by the second. */
extern "C" size_t __real_fwrite(const void* pData, size_t nSize, size_t nCount, FILE* pFile);
extern "C" size_t __wrap_fwrite(const void* pData, size_t nSize, size_t nCount, FILE* pFile)
{
    return g_nUntilFailure >= 0 && g_nUntilFailure-- == 0 ? 0 : __real_fwrite(pData, nSize, nCount, pFile);
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* pData, size_t nSize)
{
    static const std::string s_strFolder = std::filesystem::temp_directory_path() / ("fuzz" + std::to_string(getpid()));
    static CWebConnector* const s_ptEngine = []
    {
        CKVRDebug::SetSink([](unsigned int, const char*, void*) {}, nullptr);
        std::filesystem::create_directory(s_strFolder);
        atexit([] { std::filesystem::remove_all(s_strFolder); });
        auto* ptEngine = new CWebConnector;
        ptEngine->Create();
        return ptEngine;
    }();
    static std::string s_strAnswers;
    static CLoopbackServer s_tServer( // one for all inputs: the ports would not suffice for one each
        [](CConnection& tConnection, const REQUEST_t& tRequest)
        {
            const size_t nRest = std::min(s_strAnswers.find('\xff'), s_strAnswers.size() - 1);
            const bool bRest = tRequest.strHead.find("\r\nRange: ") != std::string::npos;
            tConnection.Send(bRest ? s_strAnswers.substr(nRest + 1) : s_strAnswers.substr(0, nRest));
            tConnection.Shutdown();
        });
    WQCurl::TRANSFER_SETTINGS_t tSettings;
    tSettings.nRetries = tSettings.nMostRedirects = 2;
    tSettings.bCompressed = nSize % 2 == 0; // bodies of requests then differ from those of downloads
    tSettings.lstHeader = {"X-Token: t"};
    tSettings.lstConnectTo = {"::127.0.0.1:" + std::to_string(s_tServer.Port())}; // redirects reach no other server
    const WQCurl::CTransferScope tScope(tSettings);
    s_strAnswers.assign(reinterpret_cast<const char*>(pData), nSize);
    s_strAnswers += '\xff';

    _HTTP_REQ_INFO_t tRequest{HTTP_METHOD_GET, s_tServer.Url()};
    END_t tDownload;
    const std::string strFile = s_strFolder + "/file";
    g_nUntilFailure = nSize > 0 ? pData[nSize - 1] % 8 : -1;
    const bool bToFail = g_nUntilFailure >= 0;
    bool bHolds = s_ptEngine->StartDownload(1, tRequest.strUrl, strFile, &OnDownload, &tDownload) == 1 &&
                  s_ptEngine->Get(&tRequest, true) == tRequest.strErrorReason.empty() && tDownload.Wait() &&
                  !std::filesystem::exists(strFile + ".bak");
    const bool bWriteFailed = bToFail && g_nUntilFailure.exchange(-1) < 0;
    bHolds = bHolds && !(bWriteFailed && tDownload.bSuccess);
    if (bHolds && tDownload.bSuccess)
    {
        const std::string strWritten = ReadFile(strFile);
        bHolds = static_cast<long long>(strWritten.size()) == tDownload.nBytes &&
                 (!tRequest.bResult || tSettings.bCompressed || strWritten == tRequest.strResponse);
    }
    if (!bHolds)
    {
        abort();
    }
    return 0;
}
