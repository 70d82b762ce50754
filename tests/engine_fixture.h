#pragma once

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <mutex>
#include <vector>

#include "loopback_server.h"
#include "veltra/veltra.h"

/** An engine and a folder of its own for each test, which must leave no descriptor behind. */
class CEngineTest : public testing::Test
{
protected:
    void SetUp() override
    {
        CKVRDebug::SetSink([](unsigned int, const char*, void*) {}, nullptr);
        WQCurl::SetTransferDefaults({TestCaFile(), {}});
        std::string strPattern = (std::filesystem::temp_directory_path() / "veltra-test-XXXXXX").string();
        m_strFolder = mkdtemp(strPattern.data());
        WarmUp();
        m_nDescriptors = CountDescriptors();
        m_ptEngine = std::make_unique<CWebConnector>();
    }

    void TearDown() override
    {
        m_ptEngine.reset();
        EXPECT_EQ(CountDescriptors(), m_nDescriptors);
        std::filesystem::remove_all(m_strFolder);
    }

    /** One request, for what libcurl and GLib open at the first and keep. */
    static void WarmUp()
    {
        CWebConnector tEngine;
        tEngine.Create();
        _HTTP_REQ_INFO_t tRequest;
        tRequest.eMethod = HTTP_METHOD_GET;
        tEngine.Get(&tRequest, true);
    }

    static std::ptrdiff_t CountDescriptors()
    {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    }

    std::string Path(const std::string& strName) const { return m_strFolder + "/" + strName; }

    std::unique_ptr<CWebConnector> m_ptEngine;

private:
    std::string m_strFolder;
    std::ptrdiff_t m_nDescriptors = 0;
};

inline _HTTP_REQ_INFO_t GetRequest(const std::string& strUrl)
{
    _HTTP_REQ_INFO_t tRequest;
    tRequest.eMethod = HTTP_METHOD_GET;
    tRequest.strUrl = strUrl;
    return tRequest;
}

/** What the callback of one asynchronous request was told. */
struct OUTCOME_t
{
    static void OnEnd(bool bResult, std::string& strErrorMsg, std::string& strResponse, void* pUserData)
    {
        auto* ptOutcome = static_cast<OUTCOME_t*>(pUserData);
        ptOutcome->bResult = bResult;
        ptOutcome->strError = strErrorMsg;
        ptOutcome->strResponse = strResponse;
        ptOutcome->tThread = std::this_thread::get_id();
        ptOutcome->tEnded.Open();
    }

    bool Start(CWebConnector& tEngine, _HTTP_REQ_INFO_t tRequest)
    {
        tRequest.pfnRequestCB = &OnEnd;
        tRequest.pUserData = this;
        return tEngine.Get(&tRequest, false);
    }

    CGate tEnded;
    bool bResult = false;
    std::string strError;
    std::string strResponse;
    std::thread::id tThread;
};

/** What the callback of one download was told, and what it does then. */
struct DOWNLOAD_t
{
    static void OnEvent(int nId, DOWNLOAD_TYPE_e eType, int nPercent, double dSpeed, void* pUserData)
    {
        auto* ptDownload = static_cast<DOWNLOAD_t*>(pUserData);
        if (ptDownload->fnOnEvent)
        {
            ptDownload->fnOnEvent(nId, eType);
        }
        if (eType == DOWNLOAD_TYPE_PROGRESS)
        {
            ptDownload->vecPercent.push_back(nPercent);
            ptDownload->tProgress.Open();
            return;
        }
        ptDownload->eFinal = eType;
        ptDownload->dSpeed = dSpeed;
        ptDownload->tEnded.Open();
    }

    int Start(CWebConnector& tEngine, const std::string& strUrl, const std::string& strPath)
    {
        nId = tEngine.CreateDownloadId();
        return tEngine.StartDownload(nId, strUrl, strPath, &OnEvent, this);
    }

    int nId = 0;
    std::function<void(int, DOWNLOAD_TYPE_e)> fnOnEvent;
    std::vector<int> vecPercent;
    CGate tProgress;
    CGate tEnded;
    DOWNLOAD_TYPE_e eFinal{};
    double dSpeed = 0.0;
};

inline std::string ReadFile(const std::string& strPath)
{
    std::ifstream tFile(strPath, std::ios::binary);
    return {std::istreambuf_iterator<char>(tFile), {}};
}

inline bool Exists(const std::string& strPath)
{
    return std::filesystem::exists(std::filesystem::symlink_status(strPath));
}
