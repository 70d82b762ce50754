/* What happens when the system refuses: the n-th call of calls.cpp fails, or the n-th allocation, for every n. */

#include <cerrno>
#include <set>

#include "calls.h"
#include "engine_fixture.h"

namespace
{

const std::string NEW = "GET / ";
/* Those without which a file may not count as written. */
const std::set<std::string> OF_FILES{"open64", "fdopen", "fwrite", "fflush", "fsync", "fclose"};
const std::set<std::string> OF_ENGINES{"eventfd", "epoll_create1", "epoll_ctl", "epoll_wait",
                                       "write",   "socket",        "connect",   "close"};

} // namespace

class CFaultTest : public CEngineTest
{
protected:
    /**
     * Runs an operation over a file that holds "old" with its first, second, third … call failing, until it ends
     * without meeting the failure; then the same for its thread's allocations. A success leaves NEW in the file, a
     * failure "old".
     * @param setNames what must have failed meanwhile, among others
     */
    void FailEach(std::set<std::string> setNames, const std::function<bool()>& fnOperation)
    {
        m_ptEngine.reset();
        m_tServer.reset();
        const auto nDescriptors = CountDescriptors();
        for (const int nError : {EINTR, EIO, ENOMEM})
        {
            std::string strFailed = "none yet";
            for (int nCall = 0; !strFailed.empty(); ++nCall)
            {
                std::ofstream(Path("file")) << "old";
                std::filesystem::remove(Path("file.bak"));
                m_tServer.emplace(m_fnServe);
                bool bDone = false;
                g_pszFailed = "";
                g_nError = nError;
                m_fnArm = [=]
                {
                    g_nUntilFailure = nError != ENOMEM ? nCall : -1;
                    t_nAllocationsToFailure = nError == ENOMEM ? nCall : -1;
                };
                const double dSeconds = SecondsOf([&] { bDone = fnOperation(); });
                strFailed = m_bMemory ? "new" : g_pszFailed.load();
                SCOPED_TRACE("call " + std::to_string(nCall) + ", " + strFailed + ": " + strerror(nError));
                EXPECT_LT(dSeconds, 25) << "waited for a time-out";
                EXPECT_FALSE(bDone && (OF_FILES.count(strFailed) > 0 || m_bMemory));
                EXPECT_TRUE(bDone || !strFailed.empty());
                EXPECT_EQ(ReadFile(Path("file")), bDone && strFailed != "rename" ? NEW : "old");
                EXPECT_TRUE(!std::filesystem::exists(Path("file.bak")) || strFailed == "rename" || m_bKeeps);
                m_tServer.reset();
                EXPECT_EQ(CountDescriptors(), nDescriptors);
                setNames.erase(strFailed);
            }
        }
        EXPECT_EQ(setNames, std::set<std::string>());
    }

    /** A part of the operation that may meet the failure. @return false when it throws that */
    bool Try(const std::function<bool()>& fnPart)
    {
        bool bDone = false;
        m_bMemory = false;
        m_fnArm();
        try
        {
            bDone = fnPart();
        }
        catch (const std::bad_alloc&)
        {
            m_bMemory = true;
        }
        t_nAllocationsToFailure = -1;
        return bDone;
    }

    bool Keep(bool bDone, const std::string& strAnswer)
    {
        std::ofstream(Path("file")) << (bDone ? strAnswer : "old");
        return bDone;
    }

    /** In an engine of its own, which must be of use afterwards. */
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
        if (m_ptEngine != nullptr && (m_bMemory || *g_pszFailed != 0))
        {
            m_ptEngine->Create(); // if that was it
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

    std::function<void()> m_fnArm;
    bool m_bMemory = false; /**< the operation ran out of it */
    bool m_bKeeps = false;  /**< a failed download may leave its temporary file */
};

TEST_F(CFaultTest, RequestEndsOnceAndLeavesTheEngineUsable)
{
    std::set<std::string> setNames = OF_ENGINES;
    setNames.insert("new");
    FailEach(setNames, [this] { return Run([this](OUTCOME_t& tOutcome) { return Start(tOutcome, Url()); }); });
    const auto fnSynchronous = [this]
    {
        _HTTP_REQ_INFO_t tRequest = GetRequest(Url());
        const auto fnGet = [&](OUTCOME_t&)
        {
            tRequest.strErrorReason = "stale";
            m_ptEngine->Get(&tRequest, true);
            return false; // there is no callback
        };
        Run(fnGet);
        EXPECT_NE(tRequest.strErrorReason, "stale");
        return Keep(tRequest.bResult, tRequest.strResponse);
    };
    FailEach(setNames, fnSynchronous);
}

TEST_F(CFaultTest, DownloadEndsOnceAndReplacesOrKeepsItsTarget)
{
    FailEach({"open64", "fdopen", "fwrite", "fclose", "rename", "new"},
             [this] { return Run([this](OUTCOME_t& tOutcome) { return Start(tOutcome, Url(), "file") == 1; }); });
}

TEST_F(CFaultTest, SynchronousDownloadReplacesOrKeepsItsTarget)
{
    CWebConnector tEngine;
    m_bKeeps = true;
    std::set<std::string> setNames = OF_FILES;
    setNames.insert({"rename", "socket", "connect", "close", "new"});
    FailEach(setNames, [&] { return Try([&] { return tEngine.SyncDownloadFile(Url(), Path("file"), 0, 0); }); });
}

TEST_F(CFaultTest, BringingToStorageSaysWhenItHasFailed)
{
    const auto fnSync = [this]
    {
        const bool bDone = Try([this] { return SyncToStorage(Path("file")); });
        EXPECT_TRUE(bDone || m_bMemory || errno == g_nError);
        return Keep(bDone, NEW);
    };
    FailEach({"open64", "fsync", "new"}, fnSync);
    EXPECT_FALSE(SyncToStorage(Path("none")));
    EXPECT_EQ(errno, ENOENT);
}
