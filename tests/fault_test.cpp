/* What happens when the system refuses: the n-th of the calls in calls.cpp fails, for every n. */

#include <cerrno>
#include <set>

#include "calls.h"
#include "engine_fixture.h"

class CFaultTest : public CEngineTest
{
protected:
    /**
     * Runs an operation over a file that holds "old" with its first, second, third … call failing, until it ends
     * without meeting the failure. A success leaves NEW in the file, a failure "old".
     * @param setNames what must have failed meanwhile, among others
     */
    void FailEveryCall(const std::set<std::string>& setNames, const std::function<bool()>& fnOperation)
    {
        std::set<std::string> setMissing = setNames;
        m_ptEngine.reset();
        m_tServer.reset();
        const auto nDescriptors = CountDescriptors();
        for (const int nError : {EINTR, EIO})
        {
            std::string strFailed = "none yet";
            for (int nCall = 0; !strFailed.empty(); ++nCall)
            {
                std::ofstream(Path("file")) << "old";
                std::filesystem::remove(Path("file.bak"));
                m_tServer.emplace(m_fnServe);
                bool bDone = false;
                g_tCalls.pszFailed = "";
                g_tCalls.nError = nError;
                g_tCalls.nUntilFailure = nCall;
                const double dSeconds = SecondsOf([&] { bDone = fnOperation(); });
                g_tCalls.nUntilFailure = -1;
                strFailed = g_tCalls.pszFailed;
                setMissing.erase(strFailed);
                SCOPED_TRACE("call " + std::to_string(nCall) + ", " + strFailed + ", fails by " +
                             std::to_string(nError));
                EXPECT_LT(dSeconds, 25) << "waited for a time-out";
                EXPECT_EQ(ReadFile(Path("file")), bDone && strFailed != "rename" ? NEW : "old");
                EXPECT_TRUE(bDone || !strFailed.empty());
                EXPECT_TRUE(!std::filesystem::exists(Path("file.bak")) || strFailed == "rename" || m_bKeeps);
                m_tServer.reset();
                EXPECT_EQ(CountDescriptors(), nDescriptors);
            }
        }
        EXPECT_EQ(setMissing, std::set<std::string>());
    }

    /** In an engine of its own. @return whether it succeeded */
    bool Run(bool bDownload)
    {
        OUTCOME_t tOutcome;
        m_ptEngine = std::make_unique<CWebConnector>();
        m_ptEngine->Create();
        const bool bStarted = bDownload ? Start(tOutcome, Url(), "file") == 1 : Start(tOutcome, Url());
        EXPECT_TRUE(!bStarted || tOutcome.tEnded.Wait());
        m_ptEngine.reset();
        EXPECT_EQ(tOutcome.tEnded.Count(), int{bStarted}) << "ends";
        if (bStarted && !bDownload)
        {
            EXPECT_EQ(tOutcome.strError.empty(), tOutcome.bResult);
            EXPECT_EQ(tOutcome.strResponse, tOutcome.bResult ? NEW : "");
            std::ofstream(Path("file")) << (tOutcome.bResult ? NEW : "old");
        }
        return bStarted && (bDownload ? tOutcome.eType == DOWNLOAD_TYPE_SUCCESS : tOutcome.bResult);
    }

    const std::string NEW = "GET / ";
    bool m_bKeeps = false; /**< a failed download may leave its temporary file */
    const std::set<std::string> m_setEngine{"eventfd", "epoll_create1", "epoll_ctl", "epoll_wait",
                                            "write",   "socket",        "connect",   "close"};
};

TEST_F(CFaultTest, RequestEndsOnce)
{
    FailEveryCall(m_setEngine, [this] { return Run(false); });
}

TEST_F(CFaultTest, DownloadEndsOnceAndReplacesOrKeepsItsTarget)
{
    FailEveryCall({"open64", "fdopen", "fwrite", "fclose", "rename"}, [this] { return Run(true); });
}

TEST_F(CFaultTest, SynchronousDownloadReplacesOrKeepsItsTarget)
{
    CWebConnector tEngine;
    m_bKeeps = true;
    FailEveryCall({"open64", "fdopen", "fwrite", "fflush", "fsync", "fclose", "rename", "socket", "connect", "close"},
                  [&] { return tEngine.SyncDownloadFile(Url(), Path("file"), 0, 0); });
}

TEST_F(CFaultTest, BringingToStorageSaysWhenItHasFailed)
{
    const auto fnSync = [this]
    {
        std::ofstream(Path("file")) << NEW;
        const bool bDone = SyncToStorage(Path("file"));
        EXPECT_TRUE(bDone || errno == g_tCalls.nError);
        std::ofstream(Path("file")) << (bDone ? NEW : "old");
        return bDone;
    };
    FailEveryCall({"open64", "fsync"}, fnSync);
    EXPECT_FALSE(SyncToStorage(Path("none")));
    EXPECT_EQ(errno, ENOENT);
}
