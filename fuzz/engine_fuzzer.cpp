/*
 * The engine against hostile bytes: a GET and a download of whatever the fuzzer makes the server say. One write to the
 * file fails, if there are so many: the one that the last byte names.
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

/** How a transfer ended; a second end throws, which ends the process. */
struct END_t
{
    bool Wait() { return tEnded.get_future().wait_for(std::chrono::seconds(20)) == std::future_status::ready; }

    std::promise<void> tEnded;
    bool bSuccess = false;
    std::string strBody;
};

void OnRequest(bool bResult, std::string& /*strErrorMsg*/, std::string& strResponse, void* pUserData)
{
    auto* ptEnd = static_cast<END_t*>(pUserData);
    ptEnd->bSuccess = bResult;
    ptEnd->strBody = strResponse;
    ptEnd->tEnded.set_value();
}

void OnDownload(int /*nId*/, DOWNLOAD_TYPE_e eType, int /*nPercent*/, double /*dSpeed*/, void* pUserData)
{
    auto* ptEnd = static_cast<END_t*>(pUserData);
    ptEnd->bSuccess = eType == DOWNLOAD_TYPE_SUCCESS;
    eType == DOWNLOAD_TYPE_PROGRESS ? void() : ptEnd->tEnded.set_value();
}

} // namespace

/* The linker puts the second in the place of the first. */
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
    const std::string strAnswer(reinterpret_cast<const char*>(pData), nSize);
    CLoopbackServer tServer(
        [&strAnswer](CConnection& tConnection, const REQUEST_t&)
        {
            tConnection.Send(strAnswer);
            tConnection.Shutdown();
        });

    END_t tGet;
    _HTTP_REQ_INFO_t tRequest;
    tRequest.eMethod = HTTP_METHOD_GET;
    tRequest.strUrl = tServer.Url();
    tRequest.pUserData = &tGet;
    tRequest.pfnRequestCB = &OnRequest;
    END_t tDownload;
    const std::string strFile = s_strFolder + "/file";
    g_nUntilFailure = nSize > 0 ? pData[nSize - 1] % 8 : -1;
    const bool bToFail = g_nUntilFailure >= 0;
    bool bHolds = s_ptEngine->Get(&tRequest, false) &&
                  s_ptEngine->StartDownload(1, tRequest.strUrl, strFile, &OnDownload, &tDownload) == 1 && tGet.Wait() &&
                  tDownload.Wait() && !std::filesystem::exists(strFile + ".bak");
    const bool bWriteFailed = bToFail && g_nUntilFailure.exchange(-1) < 0;
    bHolds = bHolds && (bWriteFailed ? !tDownload.bSuccess
                                     : !tDownload.bSuccess || !tGet.bSuccess || ReadFile(strFile) == tGet.strBody);
    if (!bHolds)
    {
        abort();
    }
    return 0;
}
