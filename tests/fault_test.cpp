/* Refusals of the system: the n-th call of a function in calls.cpp fails, for every n. */

#include <cerrno>
#include <set>

#include "engine_fixture.h"

/** Runs an operation whose allocations are calls of "new", which may fail. @return false also if one throws */
bool Try(const std::function<bool()>& fnOperation);

namespace
{

const std::string NEW = "GET / ";
/* A file does not count as written if a call of these fails. */
const std::set<std::string> OF_FILES{"fopen64", "open64", "fdopen", "fwrite", "fflush", "fsync", "fclose", "new"};
const std::set<std::string> OF_ENGINES{"eventfd",  "epoll_create1",  "epoll_ctl",         "epoll_wait",
                                       "write",    "socket",         "connect",           "close",
                                       "sem_init", "pthread_create", "curl_slist_append", "curl_multi_add_handle",
                                       "new"};

} // namespace

class CFaultTest : public CEngineTest
{
protected:
    /**
     * Runs an operation on a file that holds "old" with the first, second, third … call of each function failing, until
     * it ends without meeting the failure. A success leaves NEW in the file, a failure "old".
     */
    void FailEach(const std::set<std::string>& setNames, const std::function<bool()>& fnOperation)
    {
        m_ptEngine.reset();
        m_tServer.reset();
        for (const std::string& strName : setNames)
        {
            for (const int nError : {EINTR, EIO})
            {
                int nCall = 0;
                for (; Fail(strName, nError, nCall, fnOperation); ++nCall)
                {
                }
                EXPECT_GT(nCall, 0) << strName << " is never called";
            }
        }
    }

    /** Runs the operation with one call failing. @return whether there has been such a call */
    bool Fail(const std::string& strName, int nError, int nCall, const std::function<bool()>& fnOperation)
    {
        SCOPED_TRACE("call " + std::to_string(nCall) + " of " + strName + ": " + strerror(nError));
        std::ofstream(Path("file")) << "old";
        std::filesystem::remove(Path("file.bak"));
        if (m_bKeeps)
        {
            std::ofstream(Path("file.bak"));
        }
        m_tServer.emplace(m_fnServe);
        g_tCalls.Fail(strName.c_str(), nError, nCall);
        bool bDone = false;
        EXPECT_LT(SecondsOf([&] { bDone = fnOperation(); }), 25) << "waited for a time-out";
        const bool bMet = g_tCalls.nUntilFailure < 0;
        g_tCalls.pszFailing = "";
        EXPECT_FALSE(bMet && bDone && (OF_FILES.count(strName) > 0 || strName == "curl_slist_append"));
        EXPECT_TRUE(bDone || (bMet && strName != "rename")) << "a move that fails is no failure";
        EXPECT_EQ(ReadFile(Path("file")), bDone && !(bMet && strName == "rename") ? NEW : "old");
        EXPECT_TRUE(!std::filesystem::exists(Path("file.bak")) || m_bKeeps || strName == "rename");
        m_tServer.reset();
        EXPECT_EQ(CountDescriptors(), m_nDescriptors);
        return bMet;
    }

    bool Keep(bool bDone, const std::string& strAnswer)
    {
        std::ofstream(Path("file")) << (bDone ? strAnswer : "old");
        return bDone;
    }

    /** Starts a transfer in an engine of its own, which must be of use afterwards. @return whether it succeeds */
    bool Run(const std::function<bool(OUTCOME_t&)>& fnStart)
    {
        OUTCOME_t tOutcome;
        const auto fnBegin = [&]
        {
            m_ptEngine = std::make_unique<CWebConnector>();
            return m_ptEngine->Create() && fnStart(tOutcome);
        };
        const bool bStarted = Try(fnBegin);
        EXPECT_TRUE(!bStarted || tOutcome.tEnded.Wait());
        if (m_ptEngine != nullptr && g_tCalls.nUntilFailure < 0)
        {
            m_ptEngine->Create(); // if the first call has failed
            EXPECT_TRUE(Get(Url())) << "a lock left held would hang here";
        }
        m_ptEngine.reset();
        EXPECT_EQ(tOutcome.tEnded.Count(), int{bStarted}) << "ends";
        if (tOutcome.nId != 0)
        {
            return bStarted && tOutcome.eType == DOWNLOAD_TYPE_SUCCESS;
        }
        EXPECT_TRUE(!bStarted || tOutcome.bResult == tOutcome.strError.empty());
        return Keep(tOutcome.bResult, tOutcome.strResponse);
    }

    bool m_bKeeps = false; /**< a failed download leaves its temporary file */
};

TEST_F(CFaultTest, RequestEndsOnceAndLeavesTheEngineUsable)
{
    std::set<std::string> setReasons;
    for (const bool bSync : {false, true})
    {
        _HTTP_REQ_INFO_t tRequest;
        const auto fnStart = [&](OUTCOME_t& tOutcome)
        {
            tRequest = GetRequest(Url());
            tRequest.lstHeader = {"A: 1"};
            tRequest.strErrorReason = "stale";
            m_tSettings.lstConnectTo = {"a:1:b:2"};
            const bool bSet = WQCurl::SetTransferDefaults(m_tSettings);
            if (!bSync)
            {
                return bSet && tOutcome.Start(*m_ptEngine, tRequest);
            }
            m_ptEngine->Get(&tRequest, true);
            setReasons.insert(tRequest.strErrorReason);
            return false; // there is no callback
        };
        const auto fnRun = [&]
        {
            tRequest = {};
            const bool bDone = Run(fnStart);
            return bSync ? Keep(tRequest.bResult, tRequest.strResponse) : bDone;
        };
        FailEach(OF_ENGINES, fnRun);
    }
    EXPECT_EQ(setReasons.count("stale"), 0U);
    EXPECT_EQ(setReasons.count("No semaphore to wait on!"), 1U);
}

TEST_F(CFaultTest, DownloadEndsOnceAndReplacesOrKeepsItsTarget)
{
    FailEach({"fopen64", "fwrite", "fclose", "rename", "new"},
             [this] { return Run([this](OUTCOME_t& tOutcome) { return Start(tOutcome, Url(), "file") == 1; }); });
}

TEST_F(CFaultTest, SynchronousDownloadReplacesOrKeepsItsTarget)
{
    m_bKeeps = true;
    std::set<std::string> setNames = OF_FILES;
    setNames.insert({"rename", "socket", "connect", "close"});
    const auto fnDownload = [this]
    {
        CWebConnector tEngine;
        return Try([&] { return tEngine.SyncDownloadFile(Url(), Path("file"), 0, 0); });
    };
    FailEach(setNames, fnDownload);
}

TEST_F(CFaultTest, SyncToStorageReportsEachFailure)
{
    const auto fnSync = [this]
    {
        const bool bDone = Try([this] { return SyncToStorage(Path("file")); });
        EXPECT_TRUE(bDone || std::string(g_tCalls.pszFailing) == "new" || errno == g_tCalls.nError);
        return Keep(bDone, NEW);
    };
    FailEach({"open64", "fsync", "new"}, fnSync);
    EXPECT_FALSE(SyncToStorage(Path("none")));
    EXPECT_EQ(errno, ENOENT);
}

TEST(Platform, RecordsUpToTheLevelGoToStandardError)
{
    CKVRDebug::SetSink(nullptr, nullptr);
    testing::internal::CaptureStderr();
    CKVRDebug::PrintLog(4, "information\n");
    g_tCalls.Fail("write", EINTR);
    CKVRDebug::PrintLog(0, "milestone\n");
    CKVRDebug::PrintLog(4, "information without an end");
    CKVRDebug::PrintLog(0, "error\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "milestone\nerror\n");
    EXPECT_LT(g_tCalls.nUntilFailure, 0);
    CKVRDebug::PrintLog(4, "\n");
}

TEST(Platform, SemaphoreIsNeitherCopiedNorInterrupted)
{
    CSync tSync;
    EXPECT_TRUE(tSync.Create() && !CSync(tSync).m_bCreated);
    std::atomic<bool> bGiven{false};
    g_tCalls.Fail("sem_wait", EINTR);
    std::thread tGiver([&] { bGiven = WaitUntil([] { return g_tCalls.nUntilFailure < 0; }), tSync.Give(); });
    tSync.Take();
    EXPECT_TRUE(bGiven) << "an interrupted wait goes on";
    tGiver.join();
}
