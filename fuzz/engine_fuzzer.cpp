/* The engine against hostile bytes: a GET and a download of whatever the fuzzer makes the server say. */

#include <arpa/inet.h>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <sys/socket.h>
#include <unistd.h>

#include "veltra/veltra.h"

namespace
{

/** Answers one connection after the other with the same bytes, whatever it is asked. */
class CHostileServer
{
public:
    CHostileServer() : m_nListener(socket(AF_INET, SOCK_STREAM, 0))
    {
        sockaddr_in tAddress{};
        tAddress.sin_family = AF_INET;
        tAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t nSize = sizeof tAddress;
        auto* pAddress = reinterpret_cast<sockaddr*>(&tAddress);
        if (bind(m_nListener, pAddress, nSize) != 0 || listen(m_nListener, 16) != 0 ||
            getsockname(m_nListener, pAddress, &nSize) != 0)
        {
            abort();
        }
        m_strUrl = "http://127.0.0.1:" + std::to_string(ntohs(tAddress.sin_port)) + "/";
        std::thread([this] { Run(); }).detach();
    }

    std::string m_strUrl;
    std::string m_strAnswer; /**< changed only between requests */

private:
    void Run()
    {
        for (;;)
        {
            const int nSocket = accept(m_nListener, nullptr, nullptr);
            char arrRequest[4096];
            recv(nSocket, arrRequest, sizeof arrRequest, 0);
            send(nSocket, m_strAnswer.data(), m_strAnswer.size(), MSG_NOSIGNAL);
            close(nSocket);
        }
    }

    int m_nListener;
};

struct ENDED_t
{
    void Add() // a second end of the same transfer throws, which ends the process
    {
        tPromise.set_value();
    }
    std::promise<void> tPromise;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* pData, size_t nSize)
{
    static auto* const s_ptServer = new CHostileServer;
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
    s_ptServer->m_strAnswer.assign(reinterpret_cast<const char*>(pData), nSize);

    ENDED_t tGet;
    _HTTP_REQ_INFO_t tRequest;
    tRequest.eMethod = HTTP_METHOD_GET;
    tRequest.strUrl = s_ptServer->m_strUrl;
    tRequest.pUserData = &tGet;
    tRequest.pfnRequestCB = [](bool, std::string&, std::string&, void* pUserData)
    { static_cast<ENDED_t*>(pUserData)->Add(); };
    ENDED_t tDownload;
    const auto pfnDownload = [](int, DOWNLOAD_TYPE_e eType, int, double, void* pUserData)
    {
        if (eType != DOWNLOAD_TYPE_PROGRESS)
        {
            static_cast<ENDED_t*>(pUserData)->Add();
        }
    };
    const std::string strFile = s_strFolder + "/file";
    if (!s_ptEngine->Get(&tRequest, false) ||
        s_ptEngine->StartDownload(1, s_ptServer->m_strUrl, strFile, pfnDownload, &tDownload) != 1 ||
        tGet.tPromise.get_future().wait_for(std::chrono::seconds(20)) != std::future_status::ready ||
        tDownload.tPromise.get_future().wait_for(std::chrono::seconds(20)) != std::future_status::ready ||
        std::filesystem::exists(strFile + ".bak"))
    {
        abort();
    }
    return 0;
}
