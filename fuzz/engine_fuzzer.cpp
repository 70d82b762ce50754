/* The engine against hostile bytes: a GET and a download of whatever the fuzzer makes the server say. */

#include <cstdlib>
#include <filesystem>
#include <future>
#include <unistd.h>

#include "loopback_server.h"
#include "veltra/veltra.h"

namespace
{

/** Notes the end of a transfer; a second one throws, which ends the process. */
void End(void* pEnded)
{
    static_cast<std::promise<void>*>(pEnded)->set_value();
}

bool Wait(std::promise<void>& tEnded)
{
    return tEnded.get_future().wait_for(std::chrono::seconds(20)) == std::future_status::ready;
}

} // namespace

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

    std::promise<void> tGet;
    _HTTP_REQ_INFO_t tRequest;
    tRequest.eMethod = HTTP_METHOD_GET;
    tRequest.strUrl = tServer.Url();
    tRequest.pUserData = &tGet;
    tRequest.pfnRequestCB = [](bool, std::string&, std::string&, void* pUserData) { End(pUserData); };
    std::promise<void> tDownload;
    const auto pfnDownload = [](int, DOWNLOAD_TYPE_e eType, int, double, void* pUserData)
    { eType == DOWNLOAD_TYPE_PROGRESS ? void() : End(pUserData); };
    const std::string strFile = s_strFolder + "/file";
    if (!s_ptEngine->Get(&tRequest, false) ||
        s_ptEngine->StartDownload(1, tRequest.strUrl, strFile, pfnDownload, &tDownload) != 1 || !Wait(tGet) ||
        !Wait(tDownload) || std::filesystem::exists(strFile + ".bak"))
    {
        abort();
    }
    return 0;
}
