/* The engine over a fake wrapper: the exact settings, steps and records, and what the real wrapper will not produce. */

#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>

#include "fake_wqcurl.h"
#include "log_capture.h"
#include "veltra/veltra.h"

namespace
{

/** What the callbacks of one request were told. */
struct OUTCOME_t
{
    static void OnRequest(bool bResult, std::string& strErrorMsg, std::string& strResponse, void* pUserData)
    {
        auto* ptOutcome = static_cast<OUTCOME_t*>(pUserData);
        ptOutcome->strEvents += bResult ? strResponse : "failed: " + strErrorMsg;
        ptOutcome->nSelects = g_tFake->nSelects;
    }
    static void OnDownload(int nId, DOWNLOAD_TYPE_e eType, int nPercent, double dSpeed, void* pUserData)
    {
        std::ostringstream tEvent;
        tEvent << nId << ":" << eType << ":" << nPercent << ":" << dSpeed << " ";
        static_cast<OUTCOME_t*>(pUserData)->strEvents += tEvent.str();
    }

    std::string strEvents;
    int nSelects = 0;
};

/** Get() is called for the synchronous, Post() for the asynchronous: the record's method decides. */
bool StartHttp(CWebConnector& tEngine, int eMethod, bool bSync, const std::list<std::string>& lstHeader,
               OUTCOME_t& tOutcome)
{
    _HTTP_REQ_INFO_t tRequest;
    tRequest.eMethod = eMethod;
    tRequest.strUrl = "http://x/";
    tRequest.lstHeader = lstHeader;
    tRequest.strResponse = "old ";
    tRequest.pfnRequestCB = &OUTCOME_t::OnRequest;
    tRequest.pUserData = &tOutcome;
    const bool bResult = bSync ? tEngine.Get(&tRequest, true) : tEngine.Post(&tRequest, false);
    EXPECT_FALSE(tRequest.tSync.m_bCreated);
    EXPECT_TRUE(!bSync || tOutcome.strEvents.empty() ||
                tOutcome.strEvents == (bResult ? tRequest.strResponse : "failed: " + tRequest.strErrorReason));
    return bResult;
}

/** One kind of request, and what is expected of it: with success, and with each refusal. */
struct KIND_t
{
    bool (*pfnStart)(CWebConnector& tEngine, OUTCOME_t& tOutcome);
    std::string strOptions; /**< "number=value message of a refusal", a line each */
    std::string strSteps;   /**< after the options */
    std::string strInit;    /**< the operations that set it up */
    std::string strSet;
    std::string strBegin; /**< records, as all that follow: the first */
    std::string strReady; /**< all options are set */
    std::string strEnd;
    std::string strWorker; /**< within the pass; none for what runs on its caller's thread */
    std::string strOutcome;
    std::string strNotSet;   /**< after the record of a refused option */
    std::string strRefused;  /**< after any refusal of the set-up */
    std::string strNotAdded; /**< after a refused registration */
    bool bKept;              /**< the temporary file outlives a failure */
};

const std::string MULTI_STEPS = "addHandle\nremoveHandle\nreset\ndestroy\n";
const std::string HTTP_OPTIONS = "50=http://x/ Set WQCurl::URL error\n"
                                 "78=write Set WQCurl::WRITEFUNCTION error\n"
                                 "86=pointer SetWQCurl::WRITEDATA error\n"
                                 "30=30 Set WQCurl::TIMEOUT error\n"
                                 "92=pointer Set WQCurl::PRIVATE error\n"
                                 "3=1 Set WQCurl::NOSIGNAL error\n";
const std::string DOWNLOAD_OPTIONS = "17=1 Set WQCurl::HTTPGET error\n"
                                     "50=http://x/ Set WQCurl::URL error\n"
                                     "92=pointer Set WQCurl::PRIVATE error\n"
                                     "4=0 Set WQCurl::NOPROGRESS error\n"
                                     "3=1 Set WQCurl::NOSIGNAL error\n"
                                     "78=write Set WQCurl::WRITEFUNCTION error\n"
                                     "86=pointer Set WQCurl::WRITEDATA error\n";
const std::string LAST_DOWNLOAD_OPTIONS = "89=pointer Set WQCurl::PROGRESSDATA error\n"
                                          "31=1024 Set WQCurl::LOW_SPEED_LIMIT error\n"
                                          "32=30 Set WQCurl::LOW_SPEED_TIME error\n";
const std::string HTTP_READY = "4 m_SetEasyHandleOptions: WQCurl last error info = []\n"
                               "4 m_InitRequest: Init new request end.\n";
const std::string HTTP_NOT_SET = "0! m_InitRequest: Set curl easy option error!\n";
const std::string FILE_GONE = "0! StartDownload: Failed to add download request, rm file f.bak, ret is [0]\n";
const std::string LISTED = "4 m_PushRequest: New Request come!\n4 m_PushRequest: Add new request.\n";
const std::string NO_MULTI = "[WQCurl][WQCurlMulti][Initialize()] return false!!!\n";
const std::string RESULT = "4 m_HandleRequestResult: Https request result[1].\n";
const std::string RELEASED = "4 m_RemoveRequest: This https request is sync request.\n"
                             "4 m_HandleRequestResult: Give the sync https request semaphore.\n";

const KIND_t SYNC_POST{[](CWebConnector& tEngine, OUTCOME_t& tOutcome)
                       { return StartHttp(tEngine, HTTP_METHOD_POST, true, {}, tOutcome); },
                       "16=1 Set WQCurl::POST error\n"
                       "59= Set WQCurl::POSTFIELDS error\n"
                       "19=0 Set WQCurl::POSTFIELDSIZE error\n" +
                           HTTP_OPTIONS + "75= Set WQCurl::HTTPHEADER error\n",
                       MULTI_STEPS,
                       "m_InitRequest",
                       "m_SetEasyHandleOptions",
                       "4 Get: Start to get request, bSync[1]\n4 m_HttpSyncRequest: Start sync request.\n",
                       HTTP_READY,
                       "4 m_HttpSyncRequest: Take the sync https request semaphore.\n"
                       "4 m_HttpSyncRequest: Destroy CSync.\n"
                       "4 m_HttpSyncRequest: Http SyncRequest end, request result = [1]!\n",
                       RESULT + RELEASED,
                       "old body",
                       HTTP_NOT_SET,
                       "",
                       "",
                       false};
const KIND_t ASYNC_GET{[](CWebConnector& tEngine, OUTCOME_t& tOutcome) {
                           return StartHttp(tEngine, HTTP_METHOD_GET, false, {"A:1", "B:2"}, tOutcome);
                       },
                       "17=1 Set WQCurl::HTTPGET error\n" + HTTP_OPTIONS + "75=A:1|B:2| Set WQCurl::HTTPHEADER error\n",
                       MULTI_STEPS,
                       "m_InitRequest",
                       "m_SetEasyHandleOptions",
                       "",
                       HTTP_READY,
                       "4 m_HttpAsyncRequest: Start an async request.\n",
                       RESULT,
                       "old body",
                       HTTP_NOT_SET,
                       "",
                       "",
                       false};
const KIND_t DOWNLOAD{[](CWebConnector& tEngine, OUTCOME_t& tOutcome)
                      { return tEngine.StartDownload(7, "http://x/", "f", &OUTCOME_t::OnDownload, &tOutcome) == 1; },
                      DOWNLOAD_OPTIONS + "82=progress Set WQCurl::PROGRESSFUNCTION error\n" + LAST_DOWNLOAD_OPTIONS,
                      MULTI_STEPS,
                      "m_InitDownloadRequest",
                      "m_InitDownloadRequest",
                      "4 StartDownload: Start Download:\n",
                      "4 m_InitDownloadRequest: Init new download[7] request end.\n",
                      "0! StartDownload: Start to download file[f.bak], download id[7]\n",
                      "4 m_HandleDownloadRequest: Download[7] speed[1.500000]\n"
                      "4 m_HandleDownloadRequest: change name f.bak to f, ret is [0]\n"
                      "0! m_HandleDownloadRequest: Download[7] file[f] successfully\n",
                      "7:2:0:1.5 ",
                      "",
                      "0! StartDownload: Init download request error!\n" + FILE_GONE,
                      "0! StartDownload: AddEasyHandle error!\n" + FILE_GONE,
                      false};
const KIND_t SYNC_DOWNLOAD{[](CWebConnector& tEngine, OUTCOME_t&)
                           { return tEngine.SyncDownloadFile("http://x/", "f", 60, 3); },
                           DOWNLOAD_OPTIONS + LAST_DOWNLOAD_OPTIONS,
                           "setTimeout 3 60\nsend\nreset\ndestroy\n",
                           "m_InitDownloadRequest",
                           "m_InitDownloadRequest",
                           "4 SyncDownloadFile: Start sync request.\n",
                           "4 m_InitDownloadRequest: Init new download[1] request end.\n",
                           "4 SyncDownloadFile: change name from f.bak to f, ret is [0], Sync download end!\n",
                           "",
                           "",
                           "",
                           "",
                           "",
                           true};

const KIND_t* const ALL_KINDS[] = {&SYNC_POST, &ASYNC_GET, &DOWNLOAD, &SYNC_DOWNLOAD};

/** All that the worker logs of a pass. */
std::string Pass(const std::string& strWithin, int nRunning = 0)
{
    return "0! HandleRequest: Start http/https Request!\n" + strWithin + "0! HandleRequest: Left running handles = [" +
           std::to_string(nRunning) + "]\n4 HandleRequest: Have Handled all http/https Requests!\n";
}

void Deliver(FAKE_TRANSFER_t& tTransfer)
{
    char szData[] = "body";
    EXPECT_EQ(tTransfer.pfnWrite(nullptr, 1, 4, tTransfer.pWriteData), 0U);
    EXPECT_EQ(tTransfer.pfnWrite(szData, 1, 4, nullptr), 0U);
    EXPECT_EQ(tTransfer.pfnWrite(szData, 1, 1, tTransfer.pWriteData), 1U);
    EXPECT_EQ(tTransfer.pfnWrite(szData + 1, 1, 3, tTransfer.pWriteData), 3U);
}

/** One engine over a fresh fake, in a folder of its own, with all that came of it. */
struct RUN_t
{
    RUN_t()
    {
        std::string strPattern = (std::filesystem::temp_directory_path() / "veltra-test-XXXXXX").string();
        std::filesystem::current_path(mkdtemp(strPattern.data()));
        g_tFake.emplace().fnTransfer = &Deliver;
    }
    ~RUN_t()
    {
        const std::filesystem::path tFolder = std::filesystem::current_path();
        std::filesystem::current_path("/");
        std::filesystem::remove_all(tFolder);
    }

    bool Start(const KIND_t& tKind)
    {
        if (ptEngine == nullptr)
        {
            ptEngine = std::make_unique<CWebConnector>();
            ptEngine->Create();
        }
        return tKind.pfnStart(*ptEngine, tOutcome);
    }
    /** Waits for the end of the pass that goes on and returns what it logged. */
    std::string WaitForPass()
    {
        EXPECT_TRUE(tLog.WaitForOthers("Have Handled all http/https Requests!"));
        return tLog.TakeOthers();
    }

    CLogCapture tLog{"WebConnector"};
    OUTCOME_t tOutcome;
    std::unique_ptr<CWebConnector> ptEngine;
};

} // namespace

TEST(EngineFaults, EachKindIsSetUpRunAndLoggedInOrder)
{
    for (const KIND_t* ptKind : ALL_KINDS)
    {
        RUN_t tRun;
        EXPECT_TRUE(tRun.Start(*ptKind));
        const bool bOnWorker = !ptKind->strWorker.empty();
        const std::string strAdded = "4 m_AddEasyHandle: Add easy handle to multi successfully.\n";
        EXPECT_EQ(tRun.tLog.TakeOwn(),
                  ptKind->strBegin + ptKind->strReady + (bOnWorker ? LISTED + strAdded : "") + ptKind->strEnd);
        EXPECT_EQ(bOnWorker ? tRun.WaitForPass() : "", bOnWorker ? Pass(ptKind->strWorker) : tRun.tLog.TakeOthers());
        EXPECT_EQ(tRun.tOutcome.strEvents, ptKind->strOutcome);
        EXPECT_FALSE(std::filesystem::exists("f.bak"));
        std::string strSteps = "Initialize\n";
        std::istringstream tOptions(ptKind->strOptions);
        for (std::string strOption; std::getline(tOptions, strOption);)
        {
            strSteps += strOption.substr(0, strOption.find(' ')) + "\n";
        }
        EXPECT_EQ(g_tFake->strJournal, strSteps + ptKind->strSteps);
    }
}

TEST(EngineFaults, EachRefusalOfTheSetUpIsLoggedAndLeavesNothing)
{
    for (const KIND_t* ptKind : ALL_KINDS)
    {
        std::string strFailure = "0! " + ptKind->strInit + ": [WQCurl][WQCurlEasy][Initialize()] return false!\n";
        std::string strSteps = "Initialize\n";
        std::string strOption;
        for (std::istringstream tOptions(ptKind->strOptions); tOptions; std::getline(tOptions, strOption))
        {
            RUN_t tRun;
            g_tFake->bInitialize = !strOption.empty();
            if (!strOption.empty())
            {
                g_tFake->nRefusedOption = std::stoi(strOption);
                const size_t nMessage = strOption.find(' ');
                strSteps += strOption.substr(0, nMessage) + "\n";
                strFailure = "0! " + ptKind->strSet + ":" + strOption.substr(nMessage) + " = [no " +
                             std::to_string(g_tFake->nRefusedOption) + "]\n" + ptKind->strNotSet;
            }
            EXPECT_FALSE(tRun.Start(*ptKind));
            EXPECT_EQ(tRun.tLog.TakeOwn(), ptKind->strBegin + strFailure + ptKind->strRefused);
            EXPECT_EQ(tRun.tLog.TakeOthers(), "");
            EXPECT_EQ(tRun.tOutcome.strEvents, "");
            EXPECT_EQ(std::filesystem::exists("f.bak"), ptKind->bKept);
            const std::string& strJournal = g_tFake->strJournal;
            EXPECT_TRUE(strJournal == strSteps + "destroy\n" || strJournal == strSteps + "reset\ndestroy\n")
                << strJournal;
        }
    }
}

TEST(EngineFaults, RefusedRegistrationIsTakenBack)
{
    for (const KIND_t* ptKind : {&SYNC_POST, &ASYNC_GET, &DOWNLOAD})
    {
        for (const bool bReady : {false, true})
        {
            RUN_t tRun;
            g_tFake->nMultiRefusals = bReady ? 0 : 2;
            g_tFake->bAdd = !bReady;
            EXPECT_FALSE(tRun.Start(*ptKind));
            EXPECT_EQ(tRun.tLog.TakeOwn(),
                      (bReady ? "" : "0! CWebConnector: " + NO_MULTI) + ptKind->strBegin + ptKind->strReady + LISTED +
                          "0! m_AddEasyHandle: " +
                          (bReady ? "[WQCurl][WQCurlMulti][addHandle()] return false!\n" : NO_MULTI) +
                          ptKind->strNotAdded);
            EXPECT_EQ(tRun.WaitForPass(), Pass(""));
            EXPECT_EQ(tRun.tOutcome.strEvents, "");
            EXPECT_FALSE(std::filesystem::exists("f.bak"));

            g_tFake->bAdd = true;
            EXPECT_TRUE(tRun.Start(*ptKind));
            EXPECT_EQ(tRun.WaitForPass(), Pass(ptKind->strWorker));
            EXPECT_EQ(tRun.tOutcome.strEvents, ptKind->strOutcome);
        }
    }
}

TEST(EngineFaults, FailuresOfTheMultiHandleEndNoPass)
{
    RUN_t tRun;
    g_tFake->bPerform = false;
    g_tFake->bRemove = false;
    g_tFake->nSelectFailures = 2;
    g_tFake->nRunning = 3;
    EXPECT_TRUE(tRun.Start(DOWNLOAD));
    const std::string strSelect = "0! m_CurlMultiSelect: [WQCurl][WQCurlMulti][fdSelect()] return false!\n"
                                  "0! m_CurlMultiSelect: RunningHandles = [3]\n";
    EXPECT_EQ(tRun.WaitForPass(),
              Pass("0! m_DoMultiPerform: [WQCurl][WQCurlMulti][Perform()] return false, runningHandles[3]!\n" +
                       strSelect + strSelect + DOWNLOAD.strWorker +
                       "0! m_RemoveEasyHandle: [WQCurl][WQCurlMulti][removeHandle()] return false!\n",
                   3));
}

TEST(EngineFaults, FailedTransfersEndWithTheirReason)
{
    const std::string strUnread = "The finished transfer's request could not be read back";
    const std::string strGetInfo = "0! m_HandleCompletedRequest: [WQCurl][WQCurlEasy][getInfo()] return false!\n";
    const std::string strResult = "4 m_HandleRequestResult: Https request result[0].\n"
                                  "0! m_HandleRequestResult: Https request error reason = [";
    struct
    {
        const KIND_t& tKind;
        void (*pfnTransfer)(FAKE_TRANSFER_t& tTransfer);
        std::string strRecords; /* within the pass, or the caller's last */
        std::string strOutcome;
    } const arrCases[] = {
        {SYNC_POST, [](FAKE_TRANSFER_t& tTransfer) { tTransfer.bReadable = false; },
         strGetInfo + strResult + strUnread + "]\n" + RELEASED, "failed: " + strUnread},
        {SYNC_POST, [](FAKE_TRANSFER_t& tTransfer) { tTransfer.pPrivate = nullptr; },
         strGetInfo + strResult + strUnread + "]\n" + RELEASED, "failed: " + strUnread},
        {SYNC_POST, [](FAKE_TRANSFER_t& tTransfer) { tTransfer.strError = "broken"; },
         strResult + "broken]\n" + RELEASED, "failed: broken"},
        {DOWNLOAD, [](FAKE_TRANSFER_t& tTransfer) { tTransfer.strError = "broken"; },
         "4 m_HandleDownloadRequest: Download[7] speed[1.500000]\n"
         "4 m_HandleDownloadRequest: rm file f.bak, ret is [0]\n"
         "0! m_HandleDownloadRequest: Failed to download[7] file[f], ErrorMsg[broken].\n",
         "7:3:0:1.5 "},
        {SYNC_DOWNLOAD, [](FAKE_TRANSFER_t& tTransfer) { tTransfer.strError = "broken"; },
         "0! SyncDownloadFile: [WQCurl][WQCurlEasy][send()] return false = [broken]!\n", ""},
    };
    for (const auto& tCase : arrCases)
    {
        RUN_t tRun;
        g_tFake->fnTransfer = tCase.pfnTransfer;
        EXPECT_EQ(tRun.Start(tCase.tKind), &tCase.tKind == &DOWNLOAD);
        if (tCase.tKind.strWorker.empty())
        {
            EXPECT_EQ(tRun.tLog.TakeOwn(), tCase.tKind.strBegin + tCase.tKind.strReady + tCase.strRecords);
        }
        else
        {
            EXPECT_EQ(tRun.WaitForPass(), Pass(tCase.strRecords));
        }
        EXPECT_EQ(tRun.tOutcome.strEvents, tCase.strOutcome);
        EXPECT_EQ(std::filesystem::exists("f.bak"), tCase.tKind.bKept);
    }
}

TEST(EngineFaults, OneThatCannotBeFinishedHoldsUpNoOther)
{
    const std::string strHalf = "0! m_HandleRequestResult: ptReqInfo OR pEasyHandle is NULL!\n";
    struct
    {
        const KIND_t& tKind;
        void (*pfnAlter)(_REQ_HANDLER_t& tHandler);
        std::string strRecord;
        int nLater; /* the waits until those that ended with it are looked at */
    } const arrCases[] = {
        {ASYNC_GET, [](_REQ_HANDLER_t& tHandler) { tHandler.eReqType = 7; },
         "0! m_HandleCompletedRequest: Unknow request type[7]!\n", 1},
        {ASYNC_GET, [](_REQ_HANDLER_t& tHandler) { tHandler.ptReqInfo = nullptr; }, strHalf, 0},
        {ASYNC_GET, [](_REQ_HANDLER_t& tHandler) { tHandler.pEasyHandle = nullptr; }, strHalf, 0},
        {DOWNLOAD, [](_REQ_HANDLER_t& tHandler) { tHandler.ptReqInfo = nullptr; },
         "4 m_HandleDownloadRequest: ptReqInfo or pEasyHandle is NULL!\n", 0},
    };
    for (const auto& tCase : arrCases)
    {
        RUN_t tRun;
        std::unique_ptr<_REQ_HANDLER_t> ptOrphan;
        _REQ_HANDLER_t tBefore;
        int nSelects = 0;
        g_tFake->nTogether = 2;
        g_tFake->fnTransfer = [&](FAKE_TRANSFER_t& tTransfer)
        {
            nSelects = g_tFake->nSelects;
            if (ptOrphan == nullptr)
            {
                ptOrphan.reset(static_cast<_REQ_HANDLER_t*>(tTransfer.pPrivate));
                tBefore = *ptOrphan;
                tCase.pfnAlter(*ptOrphan);
            }
        };
        EXPECT_TRUE(tRun.Start(tCase.tKind));
        EXPECT_TRUE(tRun.Start(ASYNC_GET));
        EXPECT_EQ(tRun.WaitForPass(), Pass(tCase.strRecord + RESULT));
        EXPECT_EQ(tRun.tOutcome.strEvents, "old ");
        EXPECT_EQ(tRun.tOutcome.nSelects - nSelects, tCase.nLater);
        EXPECT_NE(g_tFake->strJournal.find("addHandle\nremoveHandle\nremoveHandle\nreset\ndestroy\n"),
                  std::string::npos);

        /* Nobody else knows what it owned. */
        delete tBefore.pEasyHandle;
        if (tBefore.eReqType == REQ_TYPE_HTTP)
        {
            delete static_cast<_HTTP_REQ_INFO_t*>(tBefore.ptReqInfo);
            continue;
        }
        const std::unique_ptr<_HTTP_REQ_FILE_t> ptFile(static_cast<_HTTP_REQ_FILE_t*>(tBefore.ptReqInfo));
        fclose(ptFile->pFile);
    }
}

TEST(EngineFaults, TellsProgressInStepsOfFivePercentUntilCancelled)
{
    struct
    {
        double dTotal;
        std::vector<double> vecNow;
        std::string strEvents;
    } const arrCases[] = {
        {1000,
         {0, 30, 60, 90, 120, 150, 150, 270, 300, 420, 450, 480, 600, 720, 750, 900, 990, 1000, 1000},
         "7:1:0:0 7:1:15:0 7:1:30:0 7:1:45:0 7:1:60:0 7:1:75:0 7:1:90:0 7:1:100:0 "},
        {1000, {44, 45, 54, 70, 949, 945}, "7:1:5:0 7:1:95:0 "},
        {0, {0, 0, 1, 500}, "7:1:0:0 "},
        {0, {500}, ""},
    };
    for (const auto& tCase : arrCases)
    {
        RUN_t tRun;
        g_tFake->fnTransfer = [&](FAKE_TRANSFER_t& tTransfer)
        {
            for (const double dNow : tCase.vecNow)
            {
                EXPECT_EQ(tTransfer.pfnProgress(tTransfer.pProgressData, tCase.dTotal, dNow, 9, 9), 0);
            }
            EXPECT_EQ(tTransfer.pfnProgress(nullptr, 100, 5, 0, 0), 1);
            EXPECT_TRUE(tRun.ptEngine->CancelDownload(7, true));
            EXPECT_EQ(tTransfer.pfnProgress(tTransfer.pProgressData, 100, 25, 0, 0), 1);
        };
        EXPECT_TRUE(tRun.Start(DOWNLOAD));
        EXPECT_EQ(tRun.WaitForPass(), Pass("0! ProgressCBFunc: Progress input user point is NULL!\n"
                                           "4 ProgressCBFunc: Downloading[7] file[f.bak] is canceled.\n"
                                           "4 m_HandleDownloadRequest: Download[7] speed[1.500000]\n"
                                           "4 m_HandleDownloadRequest: change name f.bak to f, ret is [0]\n"
                                           "0! m_HandleDownloadRequest: Downloading[7] file[f] is canceled.\n"));
        EXPECT_EQ(tRun.tOutcome.strEvents, tCase.strEvents + "7:4:0:1.5 ");
    }
}

TEST(EngineFaults, InputThatIsNoRequestIsRefused)
{
    struct
    {
        bool (*pfnStart)(CWebConnector& tEngine, _HTTP_REQ_INFO_t& tRequest);
        std::string strRecords;
    } const arrCases[] = {
        {[](CWebConnector& tEngine, _HTTP_REQ_INFO_t&) { return tEngine.Get(nullptr, false); },
         "4 Get: Start to get request, bSync[0]\n0! Get: Input parameter(ptReqInfo) is NULL.\n"},
        {[](CWebConnector& tEngine, _HTTP_REQ_INFO_t&) { return tEngine.Post(nullptr, false); },
         "0! Post: Input parameter(ptReqInfo) is NULL.\n"},
        {[](CWebConnector& tEngine, _HTTP_REQ_INFO_t& tRequest) { return tEngine.Post(&tRequest, false); }, ""},
        {[](CWebConnector& tEngine, _HTTP_REQ_INFO_t& tRequest) { return tEngine.Post(&tRequest, true); },
         "4 m_HttpSyncRequest: Start sync request.\n"
         "0! m_SetEasyHandleOptions: Http Request Method Error: 0\n"
         "0! m_InitRequest: Set curl easy option error!\n"},
        {[](CWebConnector& tEngine, _HTTP_REQ_INFO_t&)
         { return tEngine.StartDownload(1, "u", "/x", nullptr, nullptr) != -6; },
         "4 StartDownload: Start Download:\n0! StartDownload: Input parameter error!\n"},
        {[](CWebConnector& tEngine, _HTTP_REQ_INFO_t&) { return tEngine.SyncDownloadFile("", "/x", 0, 0); },
         "0! SyncDownloadFile: Input parameter error!\n"},
    };
    for (const auto& tCase : arrCases)
    {
        RUN_t tRun;
        tRun.ptEngine = std::make_unique<CWebConnector>();
        tRun.ptEngine->Create();
        _HTTP_REQ_INFO_t tRequest;
        EXPECT_FALSE(tCase.pfnStart(*tRun.ptEngine, tRequest));
        EXPECT_EQ(tRun.tLog.TakeOwn(), tCase.strRecords);
    }
}
