#pragma once

#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <thread>
#include <vector>

#include "loopback_server.h"
#include "test_helpers.h"
#include "veltra/veltra.h"

inline _HTTP_REQ_INFO_t GetRequest(const std::string& strUrl)
{
    _HTTP_REQ_INFO_t tRequest;
    tRequest.eMethod = HTTP_METHOD_GET;
    tRequest.strUrl = strUrl;
    return tRequest;
}

/** What the callbacks of one asynchronous request or download were told, and what they do then. */
struct OUTCOME_t
{
    /** Dies after its last event. If not, the test has failed, and the engine must end before it tells a dead one. */
    ~OUTCOME_t()
    {
        if (ptEngine != nullptr && tEnded.Count() == 0)
        {
            ADD_FAILURE() << (nId != 0 ? "download " + std::to_string(nId) : "a request") << " has not ended";
            ptEngine.load()->Destroy();
        }
    }

    static void OnRequest(bool bResult, std::string& strErrorMsg, std::string& strResponse, void* pUserData)
    {
        auto* ptOutcome = static_cast<OUTCOME_t*>(pUserData);
        ptOutcome->bResult = bResult;
        ptOutcome->strError = strErrorMsg;
        ptOutcome->strResponse = strResponse;
        ptOutcome->fnOnEvent();
        ptOutcome->tEnded.Open();
    }

    static void OnDownload(int /*nId*/, DOWNLOAD_TYPE_e eType, int nPercent, double dSpeed, void* pUserData)
    {
        auto* ptOutcome = static_cast<OUTCOME_t*>(pUserData);
        ptOutcome->eType = eType;
        ptOutcome->dSpeed = dSpeed;
        ptOutcome->fnOnEvent();
        if (eType == DOWNLOAD_TYPE_PROGRESS)
        {
            ptOutcome->vecPercent.push_back(nPercent);
        }
        (eType == DOWNLOAD_TYPE_PROGRESS ? ptOutcome->tProgress : ptOutcome->tEnded).Open();
    }

    bool Start(CWebConnector& tEngine, _HTTP_REQ_INFO_t tRequest)
    {
        tRequest.pfnRequestCB = &OnRequest;
        tRequest.pUserData = this;
        const bool bStarted = tEngine.Get(&tRequest, false);
        ptEngine = bStarted ? &tEngine : nullptr;
        return bStarted;
    }

    int Download(CWebConnector& tEngine, const std::string& strUrl, const std::string& strPath, int nOldId = 0)
    {
        nId = nOldId != 0 ? nOldId : tEngine.CreateDownloadId();
        const int nStarted = tEngine.StartDownload(nId, strUrl, strPath, &OnDownload, this);
        ptEngine = nStarted == 1 ? &tEngine : nullptr;
        return nStarted;
    }

    std::atomic<CWebConnector*> ptEngine{nullptr}; /**< which owes the last event; null when there will be none */
    std::function<void()> fnOnEvent = [] {};
    CGate tEnded;
    bool bResult = false;
    std::string strError;
    std::string strResponse;

    CGate tProgress;
    int nId = 0;
    std::vector<int> vecPercent;
    DOWNLOAD_TYPE_e eType{}; /**< the last event's */
    double dSpeed = 0.0;
};

/** An engine and a folder of its own for each test, which must leave no descriptor behind. */
class CEngineTest : public testing::Test
{
protected:
    CEngineTest()
    {
        CKVRDebug::SetSink([](unsigned int, const char*, void*) {}, nullptr);
        WQCurl::SetTransferDefaults({TEST_CERTIFICATES "/ca.pem", {}});
        EXPECT_NE(mkdtemp(m_strFolder.data()), nullptr);
        /* One request, for what libcurl and GLib open at the first and keep. */
        m_ptEngine->Create();
        Get("");
        m_ptEngine.reset();
        m_nDescriptors = CountDescriptors();
        m_ptEngine = std::make_unique<CWebConnector>();
    }

    ~CEngineTest() override
    {
        m_ptEngine.reset();
        EXPECT_EQ(CountDescriptors(), m_nDescriptors);
        std::filesystem::remove_all(m_strFolder);
    }

    static std::ptrdiff_t CountDescriptors()
    {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    }

    /** The descriptors of this process's connections to a port of this machine. */
    static std::vector<int> SocketsTo(int nPort)
    {
        std::vector<int> vecSockets;
        for (const auto& tEntry : std::filesystem::directory_iterator("/proc/self/fd"))
        {
            sockaddr_in tPeer{};
            socklen_t nSize = sizeof tPeer;
            const int nSocket = std::stoi(tEntry.path().filename());
            if (getpeername(nSocket, reinterpret_cast<sockaddr*>(&tPeer), &nSize) == 0 &&
                ntohs(tPeer.sin_port) == nPort)
            {
                vecSockets.push_back(nSocket);
            }
        }
        return vecSockets;
    }

    bool Get(const std::string& strUrl)
    {
        _HTTP_REQ_INFO_t tRequest = GetRequest(strUrl);
        return m_ptEngine->Get(&tRequest, true);
    }

    std::string Path(const std::string& strName) const { return m_strFolder + "/" + strName; }

    std::unique_ptr<CWebConnector> m_ptEngine = std::make_unique<CWebConnector>();

private:
    std::string m_strFolder = (std::filesystem::temp_directory_path() / "veltra-test-XXXXXX").string();
    std::ptrdiff_t m_nDescriptors = 0;
};
