/* GET, POST and the worker loop over the real wrapper, against a scripted server. */

#include <array>
#include <fcntl.h>

#include "engine_fixture.h"

namespace
{

long TimeSlices(pid_t nThread)
{
    long nSlices = 0;
    std::ifstream("/proc/self/task/" + std::to_string(nThread) + "/schedstat") >> nSlices >> nSlices >> nSlices;
    return nSlices;
}

} // namespace

TEST_F(CEngineTest, RequestSendsItsRecordAndAppendsTheAnswer)
{
    _HTTP_REQ_INFO_t tRequest = GetRequest(Url(HEAD));
    tRequest.lstHeader = {"DUID:1", "X-Two: b"};
    EXPECT_TRUE(m_ptEngine->Get(&tRequest, true));
    EXPECT_NE(tRequest.strResponse.find("\r\nDUID:1\r\nX-Two: b\r\n"), std::string::npos) << tRequest.strResponse;
    tRequest.strUrl = Url("/x?y=1");
    for (const std::string& strBody : {std::string(), std::string("a\0b\r\n", 5), std::string(900000, 'z')})
    {
        for (const bool bPost : {false, true})
        {
            const std::string strAnswer = bPost ? "POST /x?y=1 " + strBody : "GET /x?y=1 ";
            tRequest.eMethod = bPost ? HTTP_METHOD_POST : HTTP_METHOD_GET;
            tRequest.strPostData = strBody;
            tRequest.strResponse = "before ";
            EXPECT_TRUE(m_ptEngine->Get(&tRequest, true));
            EXPECT_EQ(tRequest.strResponse, "before " + strAnswer);
        }
    }
}

TEST_F(CEngineTest, PublicCallbacksRefuseNullArguments)
{
    char cData = 'a';
    std::string strText;
    _HTTP_REQ_FILE_t tRecord; // has no callback
    EXPECT_EQ(CWebConnector::HandleRequest(nullptr), 0);
    EXPECT_EQ(CWebConnector::WriteDataCBFunc(nullptr, 1, 1, &strText), 0U);
    EXPECT_EQ(CWebConnector::WriteDataCBFunc(&cData, 1, 1, nullptr), 0U);
    EXPECT_EQ(CWebConnector::WriteDataToFileCBFunc(nullptr, 1, 1, stderr), 0U);
    EXPECT_EQ(CWebConnector::WriteDataToFileCBFunc(&cData, 1, 1, nullptr), 0U);
    EXPECT_EQ(CWebConnector::ProgressCBFunc(&tRecord, 100, 50, 0, 0), 0);
}

TEST_F(CEngineTest, FailedRequestHasItsReason)
{
    setenv("http_proxy", "http://127.0.0.1:1", 1); // must not matter
    const std::string OK = "HTTP/1.1 200 OK\r\n";
    const std::string MOVED = "HTTP/1.1 302 Found\r\nLocation: /cut\r\nContent-Length: 5\r\n\r\nmoved";
    const std::array<std::string, 4> arrCases[] = {
        {Url(RAW), OK + "Content-Length: 9\r\n\r\npart", "5 bytes", "part"},
        {Url(RAW), "\r\n\r\n", "HTTP/0.9", ""},
        {"file:///etc/hostname", "", "Protocol \"file\"", ""},
        {"ftp://127.0.0.1/x", "", "Protocol \"ftp\"", ""},
        {"", "", "URL", ""},
        {"http://127.0.0.1:1/", "", "Failed to connect", ""},
        {Url(RAW), MOVED, "", "moved"},
    };
    for (const auto& [strUrl, strRaw, strReason, strResponse] : arrCases)
    {
        m_strRaw = strRaw;
        _HTTP_REQ_INFO_t tRequest = GetRequest(strUrl);
        EXPECT_EQ(m_ptEngine->Get(&tRequest, true), strReason.empty()) << strUrl;
        EXPECT_NE(tRequest.strErrorReason.find(strReason), std::string::npos) << tRequest.strErrorReason;
        EXPECT_EQ(tRequest.strResponse, strResponse);
    }
    m_strRaw = OK + " folded: 1\r\n\r\n";
    Get(Url(RAW)); // a sanitizer notices if libcurl appends to header lines of an earlier answer
}

TEST_F(CEngineTest, OnlyNamedAuthoritiesAndHostNamesAreTrusted)
{
    CLoopbackServer tServer(m_fnServe, true);
    g_tCalls.pszAuthorities = TEST_CERTIFICATES;
    /* It also resets the libcurl handle, which the next request takes. */
    EXPECT_FALSE(Get("https://localhost:" + std::to_string(tServer.Port()))) << "another name than the certificate's";
    const std::tuple<std::string, std::string, bool> arrCases[] = {
        {"", "", true}, // the system knows it
        {TEST_CERTIFICATES "/other.pem", "", false},
        {"", Path(""), false}, // an empty folder
    };
    for (const auto& [strFile, strFolder, bTrusted] : arrCases)
    {
        m_tSettings.strCaFile = strFile;
        m_tSettings.strCaFolder = strFolder;
        EXPECT_EQ(Get(tServer.Url()), bTrusted) << strFile << strFolder;
    }
    g_tCalls.pszAuthorities = nullptr;
}

TEST_F(CEngineTest, WorkerStartsTransfersAtOnceAndSleepsOtherwise)
{
    pid_t nWorker = 0;
    OUTCOME_t tFirst, tStalled, tCut;
    tFirst.fnOnEvent = [&nWorker] { nWorker = gettid(); };
    ASSERT_TRUE(Start(tFirst, Url()));
    ASSERT_TRUE(tFirst.tEnded.Wait());
    std::this_thread::sleep_for(100ms); // the pass ends; a later end fails the test and hides no fault
    const long nIdle = TimeSlices(nWorker);
    std::this_thread::sleep_for(1500ms);
    EXPECT_EQ(TimeSlices(nWorker), nIdle);
    EXPECT_GT(nIdle, 0);

    ASSERT_TRUE(Start(tStalled, Url(STALL)));
    /* Each takes most of a second if it does not end the worker's wait. */
    const auto fnAsk = [&]
    {
        for (int i = 0; i < 40; ++i)
        {
            ASSERT_TRUE(Get(Url()));
        }
    };
    EXPECT_LT(SecondsOf(fnAsk), 10);
    EXPECT_EQ(tStalled.tEnded.Count(), 0);

    std::vector<int> vecCopies; // of sockets, as a forked process has them
    tCut.fnOnEvent = [&]
    {
        if (vecCopies.empty() && tCut.tReport.nBytes > 0)
        {
            vecCopies = SocketsTo(*m_tServer);
            std::transform(vecCopies.begin(), vecCopies.end(), vecCopies.begin(), &dup);
        }
    };
    EXPECT_EQ(Download(tCut, Url("/1000000/cut")), DOWNLOAD_TYPE_FAIL);
    EXPECT_FALSE(vecCopies.empty());
    m_strRaw = "HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nanswer";
    EXPECT_TRUE(Get(Url(RAW)));
    const long nStalled = TimeSlices(nWorker);
    std::this_thread::sleep_for(2s);
    EXPECT_LE(TimeSlices(nWorker) - nStalled, 9)
        << "beside a stall, a copy of a closed connection, and an idle one that ends";
    m_ptEngine->Destroy();
    std::for_each(vecCopies.begin(), vecCopies.end(), &close);
}

TEST_F(CEngineTest, WorkerBlocksAllSignalsButFaults)
{
    OUTCOME_t tRequest;
    tRequest.fnOnEvent = []
    {
        EXPECT_TRUE(IsBlocked(SIGRTMIN + 5)) << "the application's handlers run on its own threads";
        for (const int nFault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS})
        {
            EXPECT_FALSE(IsBlocked(nFault)) << nFault << ", whose handler runs on the thread of the fault";
        }
    };
    ASSERT_TRUE(Start(tRequest, Url()));
    EXPECT_TRUE(tRequest.tEnded.Wait());
}

TEST_F(CEngineTest, DestroyEndsEverythingInFlightOnce)
{
    m_ptEngine = std::make_unique<CWebConnector>();
    const auto fnIsInherited = [](const auto& tEntry)
    { return (fcntl(std::stoi(tEntry.path().filename()), F_GETFD) & FD_CLOEXEC) == 0; };
    const auto fnCount = [&]
    { return std::count_if(std::filesystem::directory_iterator("/proc/self/fd"), {}, fnIsInherited); };
    const std::ptrdiff_t nInherited = fnCount();
    m_ptEngine->Create();
    std::vector<OUTCOME_t> vecOutcomes(25);
    for (size_t i = 0; i < vecOutcomes.size(); ++i)
    {
        ASSERT_TRUE(i < 20 ? Start(vecOutcomes[i], Url(STALL))
                           : Start(vecOutcomes[i], Url(STALL), std::to_string(i)) == 1);
    }
    std::thread tCaller([&] { EXPECT_FALSE(Get(Url(STALL))); });
    ASSERT_TRUE(m_tArrived.Wait(26));
    EXPECT_EQ(fnCount(), nInherited);
    /* The transfers' own time-outs take twice as long. */
    EXPECT_LT(SecondsOf([&] { m_ptEngine->Destroy(); }), 15);
    tCaller.join();
    for (OUTCOME_t& tOutcome : vecOutcomes)
    {
        EXPECT_EQ(tOutcome.tEnded.Count(), 1);
        EXPECT_EQ(tOutcome.strError, tOutcome.nId != 0 ? "" : "The engine was destroyed before the transfer had ended");
        EXPECT_EQ(tOutcome.eType, tOutcome.nId == 0 ? 0 : DOWNLOAD_TYPE_FAIL);
        EXPECT_FALSE(tOutcome.bResult);
    }
    EXPECT_TRUE(std::filesystem::is_empty(Path("")));
}
