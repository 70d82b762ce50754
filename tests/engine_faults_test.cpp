/* The engine over a fake wrapper: the exact settings, steps and records, and what the real wrapper will not produce. */

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>

#include "fake_wqcurl.h"
#include "log_capture.h"
#include "veltra/veltra.h"

namespace
{

typedef std::vector<LOG_RECORD_t> RECORDS_t;
typedef std::vector<std::string> TEXTS_t;

LOG_RECORD_t E(const std::string& strOperation, const std::string& strText)
{
    return ErrorRecord("WebConnector::" + strOperation, strText);
}

LOG_RECORD_t I(const std::string& strOperation, const std::string& strText)
{
    return InfoRecord("WebConnector::" + strOperation, strText);
}

template <class T> std::vector<T> operator+(std::vector<T> vecLeft, const std::vector<T>& vecRight)
{
    vecLeft.insert(vecLeft.end(), vecRight.begin(), vecRight.end());
    return vecLeft;
}

template <class T> std::vector<T>& operator+=(std::vector<T>& vecLeft, const std::vector<T>& vecRight)
{
    return vecLeft = vecLeft + vecRight;
}

/** What a callback was told last, and all it was told. */
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

struct OPTION_t
{
    int nOption;
    std::string strValue;
    std::string strMessage; /**< of a refusal, up to the reason */
};

const std::string NOT_INIT = "[WQCurl][WQCurlEasy][Initialize()] return false!";
const std::string NO_MULTI = "[WQCurl][WQCurlMulti][Initialize()] return false!!!";
const std::string NOT_ADDED = "[WQCurl][WQCurlMulti][addHandle()] return false!";
const std::string PASS_END = "Have Handled all http/https Requests!";
const RECORDS_t LISTED{I("m_PushRequest", "New Request come!"), I("m_PushRequest", "Add new request.")};

/** One kind of request, and what is expected of it: with success, and with each refusal. */
struct KIND_t
{
    bool (*pfnStart)(CWebConnector& tEngine, const std::string& strPath, OUTCOME_t& tOutcome);
    std::vector<OPTION_t> vecOptions;
    TEXTS_t vecSteps{"addHandle", "removeHandle", "reset", "destroy"}; /**< after the options */
    std::string strInit;                                               /**< the operations that set it up */
    std::string strSet;
    RECORDS_t vecBegin;
    RECORDS_t vecSet;
    RECORDS_t vecEnd;
    RECORDS_t vecWorker; /**< within the pass; none for what runs on its caller's thread */
    std::string strOutcome;
    RECORDS_t vecNotSet;   /**< after the record of a refused option */
    RECORDS_t vecRefused;  /**< after any refusal of the set-up */
    RECORDS_t vecNotAdded; /**< after a refused registration */
    bool bKept = false;    /**< the temporary file outlives a failure */
};

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
    return bResult;
}

TEXTS_t Steps(const std::vector<OPTION_t>& vecOptions)
{
    TEXTS_t vecSteps{"Initialize"};
    for (const OPTION_t& tOption : vecOptions)
    {
        vecSteps.push_back(std::to_string(tOption.nOption) + "=" + tOption.strValue);
    }
    return vecSteps;
}

std::vector<OPTION_t> HttpOptions(const std::vector<OPTION_t>& vecMethod, const std::string& strHeaders)
{
    return vecMethod + std::vector<OPTION_t>{{50, "http://x/", "Set WQCurl::URL error = ["},
                                             {78, "write", "Set WQCurl::WRITEFUNCTION error = ["},
                                             {86, "pointer", "SetWQCurl::WRITEDATA error = ["},
                                             {30, "30", "Set WQCurl::TIMEOUT error = ["},
                                             {92, "pointer", "Set WQCurl::PRIVATE error = ["},
                                             {3, "1", "Set WQCurl::NOSIGNAL error = ["},
                                             {75, strHeaders, "Set WQCurl::HTTPHEADER error = ["}};
}

std::vector<OPTION_t> DownloadOptions(const std::vector<OPTION_t>& vecProgress)
{
    return std::vector<OPTION_t>{
               {17, "1", "Set WQCurl::HTTPGET error = ["},        {50, "http://x/", "Set WQCurl::URL error = ["},
               {92, "pointer", "Set WQCurl::PRIVATE error = ["},  {4, "0", "Set WQCurl::NOPROGRESS error = ["},
               {3, "1", "Set WQCurl::NOSIGNAL error = ["},        {78, "write", "Set WQCurl::WRITEFUNCTION error = ["},
               {86, "pointer", "Set WQCurl::WRITEDATA error = ["}} +
           vecProgress +
           std::vector<OPTION_t>{{89, "pointer", "Set WQCurl::PROGRESSDATA error = ["},
                                 {31, "1024", "Set WQCurl::LOW_SPEED_LIMIT error = ["},
                                 {32, "30", "Set WQCurl::LOW_SPEED_TIME error = ["}};
}

std::vector<KIND_t> Kinds(const std::string& strPath)
{
    const std::string strTemp = strPath + ".bak";
    KIND_t tGet;
    tGet.pfnStart = [](CWebConnector& tEngine, const std::string&, OUTCOME_t& tOutcome) {
        return StartHttp(tEngine, HTTP_METHOD_GET, true, {"A: 1", "B: 2"}, tOutcome);
    };
    tGet.vecOptions = HttpOptions({{17, "1", "Set WQCurl::HTTPGET error = ["}}, "A: 1|B: 2|");
    tGet.strInit = "m_InitRequest";
    tGet.strSet = "m_SetEasyHandleOptions";
    tGet.vecBegin = {I("Get", "Start to get request, bSync[1]"), I("m_HttpSyncRequest", "Start sync request.")};
    tGet.vecSet = {I(tGet.strSet, "WQCurl last error info = []"), I(tGet.strInit, "Init new request end.")};
    tGet.vecEnd = {I("m_HttpSyncRequest", "Take the sync https request semaphore."),
                   I("m_HttpSyncRequest", "Destroy CSync."),
                   I("m_HttpSyncRequest", "Http SyncRequest end, request result = [1]!")};
    tGet.vecWorker = {I("m_HandleRequestResult", "Https request result[1].")};
    tGet.strOutcome = "old body";
    tGet.vecNotSet = {E(tGet.strInit, "Set curl easy option error!")};

    KIND_t tPost = tGet;
    tPost.pfnStart = [](CWebConnector& tEngine, const std::string&, OUTCOME_t& tOutcome)
    { return StartHttp(tEngine, HTTP_METHOD_POST, false, {}, tOutcome); };
    tPost.vecOptions = HttpOptions({{16, "1", "Set WQCurl::POST error = ["},
                                    {59, "", "Set WQCurl::POSTFIELDS error = ["},
                                    {19, "0", "Set WQCurl::POSTFIELDSIZE error = ["}},
                                   "");
    tPost.vecBegin = {};
    tPost.vecEnd = {I("m_HttpAsyncRequest", "Start an async request.")};
    tGet.vecWorker += {I("m_RemoveRequest", "This https request is sync request."),
                       I("m_HandleRequestResult", "Give the sync https request semaphore.")};

    KIND_t tDownload;
    tDownload.pfnStart = [](CWebConnector& tEngine, const std::string& strTarget, OUTCOME_t& tOutcome)
    { return tEngine.StartDownload(7, "http://x/", strTarget, &OUTCOME_t::OnDownload, &tOutcome) == 1; };
    tDownload.vecOptions = DownloadOptions({{82, "progress", "Set WQCurl::PROGRESSFUNCTION error = ["}});
    tDownload.strInit = tDownload.strSet = "m_InitDownloadRequest";
    tDownload.vecBegin = {I("StartDownload", "Start Download:")};
    tDownload.vecSet = {I(tDownload.strInit, "Init new download[7] request end.")};
    tDownload.vecEnd = {E("StartDownload", "Start to download file[" + strTemp + "], download id[7]")};
    tDownload.vecWorker = {I("m_HandleDownloadRequest", "Download[7] speed[1.500000]"),
                           I("m_HandleDownloadRequest", "change name " + strTemp + " to " + strPath + ", ret is [0]"),
                           E("m_HandleDownloadRequest", "Download[7] file[" + strPath + "] successfully")};
    tDownload.strOutcome = "7:2:0:1.5 ";
    const LOG_RECORD_t tRemoved =
        E("StartDownload", "Failed to add download request, rm file " + strTemp + ", ret is [0]");
    tDownload.vecRefused = {E("StartDownload", "Init download request error!"), tRemoved};
    tDownload.vecNotAdded = {E("StartDownload", "AddEasyHandle error!"), tRemoved};

    KIND_t tSync;
    tSync.pfnStart = [](CWebConnector& tEngine, const std::string& strTarget, OUTCOME_t&)
    { return tEngine.SyncDownloadFile("http://x/", strTarget, 60, 3); };
    tSync.vecOptions = DownloadOptions({});
    tSync.vecSteps = {"setTimeout 3 60", "send", "reset", "destroy"};
    tSync.strInit = tSync.strSet = "m_InitDownloadRequest";
    tSync.vecBegin = {I("SyncDownloadFile", "Start sync request.")};
    tSync.vecSet = {I(tSync.strInit, "Init new download[1] request end.")};
    tSync.vecEnd = {
        I("SyncDownloadFile", "change name from " + strTemp + " to " + strPath + ", ret is [0], Sync download end!")};
    tSync.bKept = true;
    return {tGet, tPost, tDownload, tSync};
}

/** All that the worker logs of a pass. */
RECORDS_t Pass(const RECORDS_t& vecWithin, int nRunning = 0)
{
    return RECORDS_t{E("HandleRequest", "Start http/https Request!")} + vecWithin +
           RECORDS_t{E("HandleRequest", "Left running handles = [" + std::to_string(nRunning) + "]"),
                     I("HandleRequest", PASS_END)};
}

void Deliver(FAKE_TRANSFER_t& tTransfer)
{
    char szData[] = "body";
    EXPECT_EQ(tTransfer.pfnWrite(nullptr, 1, 4, tTransfer.pWriteData), 0U);
    EXPECT_EQ(tTransfer.pfnWrite(szData, 1, 4, nullptr), 0U);
    EXPECT_EQ(tTransfer.pfnWrite(szData, 1, 1, tTransfer.pWriteData), 1U);
    EXPECT_EQ(tTransfer.pfnWrite(szData + 1, 1, 3, tTransfer.pWriteData), 3U);
}

/** A folder, a fresh fake and the log of one run. */
struct RUN_t
{
    RUN_t()
    {
        std::string strPattern = (std::filesystem::temp_directory_path() / "veltra-test-XXXXXX").string();
        strFolder = mkdtemp(strPattern.data());
        strPath = strFolder + "/f";
        g_tFake.emplace();
        g_tFake->fnTransfer = &Deliver;
    }
    ~RUN_t() { std::filesystem::remove_all(strFolder); }

    /** Starts a request on a new engine, which is gone at the end; what was started has ended then. */
    bool Start(const KIND_t& tKind)
    {
        CWebConnector tEngine;
        tEngine.Create();
        const bool bStarted = tKind.pfnStart(tEngine, strPath, tOutcome);
        EXPECT_TRUE(tKind.vecWorker.empty() || !bStarted || tLog.WaitForOthers(PASS_END));
        return bStarted;
    }
    bool TempExists() const { return std::filesystem::exists(strPath + ".bak"); }

    std::string strFolder;
    std::string strPath;
    OUTCOME_t tOutcome;
    CLogCapture tLog;
};

} // namespace

TEST(EngineFaults, EachKindIsSetUpRunAndLoggedInOrder)
{
    for (size_t nKind = 0; nKind < 4; ++nKind)
    {
        RUN_t tRun;
        const KIND_t tKind = Kinds(tRun.strPath)[nKind];
        const bool bOnWorker = !tKind.vecWorker.empty();
        EXPECT_TRUE(tRun.Start(tKind));
        RECORDS_t vecOwn = tKind.vecBegin + tKind.vecSet;
        if (bOnWorker)
        {
            vecOwn += LISTED + RECORDS_t{I("m_AddEasyHandle", "Add easy handle to multi successfully.")};
        }
        EXPECT_EQ(tRun.tLog.TakeOwn(), vecOwn + tKind.vecEnd);
        EXPECT_EQ(tRun.tLog.TakeOthers(), bOnWorker ? Pass(tKind.vecWorker) : RECORDS_t());
        EXPECT_EQ(g_tFake->vecJournal, Steps(tKind.vecOptions) + tKind.vecSteps);
        EXPECT_EQ(tRun.tOutcome.strEvents, tKind.strOutcome);
        EXPECT_FALSE(tRun.TempExists());
    }
}

TEST(EngineFaults, EachRefusalOfTheSetUpIsLoggedAndLeavesNothing)
{
    for (size_t nKind = 0; nKind < 4; ++nKind)
    {
        const size_t nOptions = Kinds("")[nKind].vecOptions.size();
        for (size_t nSet = 0; nSet <= nOptions; ++nSet)
        {
            RUN_t tRun;
            KIND_t tKind = Kinds(tRun.strPath)[nKind];
            tKind.vecOptions.resize(nSet);
            RECORDS_t vecFailure{E(tKind.strInit, NOT_INIT)};
            g_tFake->bInitialize = nSet > 0;
            if (nSet > 0)
            {
                const OPTION_t& tLast = tKind.vecOptions.back();
                g_tFake->nRefusedOption = tLast.nOption;
                const std::string strReason = "no " + std::to_string(tLast.nOption) + "]";
                vecFailure = RECORDS_t{E(tKind.strSet, tLast.strMessage + strReason)} + tKind.vecNotSet;
            }
            EXPECT_FALSE(tRun.Start(tKind));
            EXPECT_EQ(tRun.tLog.TakeOwn(), tKind.vecBegin + vecFailure + tKind.vecRefused);
            EXPECT_EQ(tRun.tLog.TakeOthers(), RECORDS_t());
            TEXTS_t& vecJournal = g_tFake->vecJournal;
            vecJournal.erase(std::remove(vecJournal.begin(), vecJournal.end(), "reset"), vecJournal.end());
            EXPECT_EQ(vecJournal, Steps(tKind.vecOptions) + TEXTS_t{"destroy"});
            EXPECT_EQ(tRun.tOutcome.strEvents, "");
            EXPECT_EQ(tRun.TempExists(), tKind.bKept);
        }
    }
}

TEST(EngineFaults, RefusedRegistrationIsTakenBack)
{
    for (const bool bInitialized : {false, true})
    {
        for (size_t nKind = 0; nKind < 3; ++nKind)
        {
            RUN_t tRun;
            const KIND_t tKind = Kinds(tRun.strPath)[nKind];
            g_tFake->nMultiRefusals = bInitialized ? 0 : 2;
            g_tFake->bAdd = !bInitialized;
            CWebConnector tEngine;
            EXPECT_EQ(tRun.tLog.TakeOwn(), bInitialized ? RECORDS_t() : RECORDS_t{E("CWebConnector", NO_MULTI)});
            tEngine.Create();
            EXPECT_FALSE(tKind.pfnStart(tEngine, tRun.strPath, tRun.tOutcome));
            EXPECT_EQ(tRun.tLog.TakeOwn(), tKind.vecBegin + tKind.vecSet + LISTED +
                                               RECORDS_t{E("m_AddEasyHandle", bInitialized ? NOT_ADDED : NO_MULTI)} +
                                               tKind.vecNotAdded);
            EXPECT_EQ(tRun.tOutcome.strEvents, "");
            EXPECT_FALSE(tRun.TempExists());
            ASSERT_TRUE(tRun.tLog.WaitForOthers(PASS_END));
            EXPECT_EQ(tRun.tLog.TakeOthers(), Pass({}));

            g_tFake->bAdd = true;
            EXPECT_TRUE(tKind.pfnStart(tEngine, tRun.strPath, tRun.tOutcome));
            ASSERT_TRUE(tRun.tLog.WaitForOthers(PASS_END));
            EXPECT_EQ(tRun.tLog.TakeOthers(), Pass(tKind.vecWorker));
            EXPECT_EQ(tRun.tOutcome.strEvents, tKind.strOutcome);
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
    const KIND_t tKind = Kinds(tRun.strPath)[2];
    EXPECT_TRUE(tRun.Start(tKind));
    const RECORDS_t vecSelect{E("m_CurlMultiSelect", "[WQCurl][WQCurlMulti][fdSelect()] return false!"),
                              E("m_CurlMultiSelect", "RunningHandles = [3]")};
    EXPECT_EQ(
        tRun.tLog.TakeOthers(),
        Pass(RECORDS_t{E("m_DoMultiPerform", "[WQCurl][WQCurlMulti][Perform()] return false, runningHandles[3]!")} +
                 vecSelect + vecSelect + tKind.vecWorker +
                 RECORDS_t{E("m_RemoveEasyHandle", "[WQCurl][WQCurlMulti][removeHandle()] return false!")},
             3));
}

TEST(EngineFaults, FailedTransfersEndWithTheirReason)
{
    const std::string strUnread = "The finished transfer's request could not be read back";
    const RECORDS_t vecUnread{E("m_HandleCompletedRequest", "[WQCurl][WQCurlEasy][getInfo()] return false!")};
    const auto fnHttp = [](const std::string& strReason)
    {
        return RECORDS_t{I("m_HandleRequestResult", "Https request result[0]."),
                         E("m_HandleRequestResult", "Https request error reason = [" + strReason + "]"),
                         I("m_RemoveRequest", "This https request is sync request."),
                         I("m_HandleRequestResult", "Give the sync https request semaphore.")};
    };
    RUN_t tRun;
    const std::string strTemp = tRun.strPath + ".bak";
    struct
    {
        size_t nKind;
        void (*pfnAlter)(FAKE_TRANSFER_t& tTransfer);
        RECORDS_t vecRecords; /* of the pass, or those that end the caller's */
        std::string strOutcome;
    } const arrCases[] = {
        {0, [](FAKE_TRANSFER_t& tTransfer) { tTransfer.bReadable = false; }, vecUnread + fnHttp(strUnread),
         "failed: " + strUnread},
        {0, [](FAKE_TRANSFER_t& tTransfer) { tTransfer.pPrivate = nullptr; }, vecUnread + fnHttp(strUnread),
         "failed: " + strUnread},
        {0, [](FAKE_TRANSFER_t& tTransfer) { tTransfer.strError = "broken"; }, fnHttp("broken"), "failed: broken"},
        {2,
         [](FAKE_TRANSFER_t& tTransfer) { tTransfer.strError = "broken"; },
         {I("m_HandleDownloadRequest", "Download[7] speed[1.500000]"),
          I("m_HandleDownloadRequest", "rm file " + strTemp + ", ret is [0]"),
          E("m_HandleDownloadRequest", "Failed to download[7] file[" + tRun.strPath + "], ErrorMsg[broken].")},
         "7:3:0:1.5 "},
        {3,
         [](FAKE_TRANSFER_t& tTransfer) { tTransfer.strError = "broken"; },
         {E("SyncDownloadFile", "[WQCurl][WQCurlEasy][send()] return false = [broken]!")},
         ""},
    };
    for (const auto& tCase : arrCases)
    {
        const KIND_t tKind = Kinds(tRun.strPath)[tCase.nKind];
        g_tFake->fnTransfer = tCase.pfnAlter;
        tRun.tOutcome.strEvents.clear();
        EXPECT_EQ(tRun.Start(tKind), tCase.nKind == 2);
        const RECORDS_t vecOwn = tRun.tLog.TakeOwn();
        EXPECT_EQ(tKind.bKept ? RECORDS_t{vecOwn.back()} : tRun.tLog.TakeOthers(),
                  tKind.bKept ? tCase.vecRecords : Pass(tCase.vecRecords));
        EXPECT_EQ(tRun.tOutcome.strEvents, tCase.strOutcome);
        EXPECT_EQ(tRun.TempExists(), tKind.bKept);
    }
}

TEST(EngineFaults, OneThatCannotBeFinishedHoldsUpNoOther)
{
    const std::string strHalf = "ptReqInfo OR pEasyHandle is NULL!";
    struct
    {
        size_t nKind;
        void (*pfnAlter)(_REQ_HANDLER_t& tHandler);
        LOG_RECORD_t tRecord;
        int nLater; /* the waits until those that ended with it are looked at */
    } const arrCases[] = {
        {1, [](_REQ_HANDLER_t& tHandler) { tHandler.eReqType = 7; },
         E("m_HandleCompletedRequest", "Unknow request type[7]!"), 1},
        {1, [](_REQ_HANDLER_t& tHandler) { tHandler.ptReqInfo = nullptr; }, E("m_HandleRequestResult", strHalf), 0},
        {1, [](_REQ_HANDLER_t& tHandler) { tHandler.pEasyHandle = nullptr; }, E("m_HandleRequestResult", strHalf), 0},
        {2, [](_REQ_HANDLER_t& tHandler) { tHandler.ptReqInfo = nullptr; },
         I("m_HandleDownloadRequest", "ptReqInfo or pEasyHandle is NULL!"), 0},
    };
    for (const auto& tCase : arrCases)
    {
        RUN_t tRun;
        OUTCOME_t tOrphan;
        _REQ_HANDLER_t* ptOrphan = nullptr;
        _REQ_HANDLER_t tBefore;
        int nSelects = 0;
        g_tFake->nTogether = 2;
        g_tFake->fnTransfer = [&](FAKE_TRANSFER_t& tTransfer)
        {
            nSelects = g_tFake->nSelects;
            if (ptOrphan == nullptr)
            {
                ptOrphan = static_cast<_REQ_HANDLER_t*>(tTransfer.pPrivate);
                tBefore = *ptOrphan;
                tCase.pfnAlter(*ptOrphan);
            }
        };
        {
            CWebConnector tEngine;
            tEngine.Create();
            EXPECT_TRUE(Kinds("")[tCase.nKind].pfnStart(tEngine, tRun.strPath, tOrphan));
            EXPECT_TRUE(Kinds("")[1].pfnStart(tEngine, tRun.strPath, tRun.tOutcome));
            EXPECT_TRUE(tRun.tLog.WaitForOthers(PASS_END));
        }
        EXPECT_EQ(tRun.tLog.TakeOthers(), Pass(RECORDS_t{tCase.tRecord} + Kinds("")[1].vecWorker));
        EXPECT_EQ(tRun.tOutcome.strEvents, "old ");
        EXPECT_EQ(tRun.tOutcome.nSelects - nSelects, tCase.nLater);
        EXPECT_EQ(tOrphan.strEvents, "");
        const TEXTS_t& vecJournal = g_tFake->vecJournal;
        EXPECT_EQ(std::count(vecJournal.begin(), vecJournal.end(), "removeHandle"), 2);

        /* Nobody else knows what it owned. */
        delete tBefore.pEasyHandle;
        if (tCase.nKind == 1)
        {
            delete static_cast<_HTTP_REQ_INFO_t*>(tBefore.ptReqInfo);
        }
        else
        {
            const std::unique_ptr<_HTTP_REQ_FILE_t> ptFile(static_cast<_HTTP_REQ_FILE_t*>(tBefore.ptReqInfo));
            fclose(ptFile->pFile);
        }
        delete ptOrphan;
    }
}

TEST(EngineFaults, TellsProgressInStepsOfFivePercent)
{
    std::vector<double> vecThirties;
    for (int i = 0; i < 34; ++i)
    {
        vecThirties.push_back(30 * i);
    }
    struct
    {
        double dTotal;
        std::vector<double> vecNow;
        TEXTS_t vecPercent;
    } const arrCases[] = {
        {1000, vecThirties + std::vector<double>{1000, 1000}, {"0", "15", "30", "45", "60", "75", "90", "100"}},
        {1000, {44, 45, 54, 70, 949, 945}, {"5", "95"}},
        {0, {0, 0, 1, 500}, {"0"}},
    };
    for (const auto& tCase : arrCases)
    {
        RUN_t tRun;
        g_tFake->fnTransfer = [&tCase](FAKE_TRANSFER_t& tTransfer)
        {
            for (const double dNow : tCase.vecNow)
            {
                EXPECT_EQ(tTransfer.pfnProgress(tTransfer.pProgressData, tCase.dTotal, dNow, 9, 9), 0);
            }
        };
        EXPECT_TRUE(tRun.Start(Kinds("")[2]));
        std::string strEvents;
        for (const std::string& strPercent : tCase.vecPercent)
        {
            strEvents += "7:1:" + strPercent + ":0 ";
        }
        EXPECT_EQ(tRun.tOutcome.strEvents, strEvents + "7:2:0:1.5 ");
    }
}

TEST(EngineFaults, ProgressOfNothingOrOfACancelledDownloadStopsIt)
{
    RUN_t tRun;
    CWebConnector tEngine;
    g_tFake->fnTransfer = [&tEngine](FAKE_TRANSFER_t& tTransfer)
    {
        EXPECT_EQ(tTransfer.pfnProgress(nullptr, 100, 5, 0, 0), 1);
        EXPECT_TRUE(tEngine.CancelDownload(7, true));
        EXPECT_EQ(tTransfer.pfnProgress(tTransfer.pProgressData, 100, 5, 0, 0), 1);
    };
    tEngine.Create();
    EXPECT_TRUE(Kinds("")[2].pfnStart(tEngine, tRun.strPath, tRun.tOutcome));
    EXPECT_TRUE(tRun.tLog.WaitForOthers(PASS_END));
    EXPECT_EQ(tRun.tOutcome.strEvents, "7:4:0:1.5 ");
    const RECORDS_t vecRecords = tRun.tLog.TakeOthers();
    EXPECT_EQ(vecRecords.at(1), E("ProgressCBFunc", "Progress input user point is NULL!"));
    EXPECT_EQ(vecRecords.at(2), I("ProgressCBFunc", "Downloading[7] file[" + tRun.strPath + ".bak] is canceled."));
    EXPECT_EQ(vecRecords.at(5), E("m_HandleDownloadRequest", "Downloading[7] file[" + tRun.strPath + "] is canceled."));
}

TEST(EngineFaults, InputThatIsNoRequestIsRefused)
{
    struct
    {
        bool (*pfnStart)(CWebConnector& tEngine, _HTTP_REQ_INFO_t& tRequest);
        RECORDS_t vecRecords;
    } const arrCases[] = {
        {[](CWebConnector& tEngine, _HTTP_REQ_INFO_t&) { return tEngine.Get(nullptr, true); },
         {I("Get", "Start to get request, bSync[1]"), E("Get", "Input parameter(ptReqInfo) is NULL.")}},
        {[](CWebConnector& tEngine, _HTTP_REQ_INFO_t&) { return tEngine.Post(nullptr, false); },
         {E("Post", "Input parameter(ptReqInfo) is NULL.")}},
        {[](CWebConnector& tEngine, _HTTP_REQ_INFO_t& tRequest) { return tEngine.Post(&tRequest, false); }, {}},
        {[](CWebConnector& tEngine, _HTTP_REQ_INFO_t& tRequest) { return tEngine.Post(&tRequest, true); },
         {I("m_HttpSyncRequest", "Start sync request."), E("m_SetEasyHandleOptions", "Http Request Method Error: 0"),
          E("m_InitRequest", "Set curl easy option error!")}},
        {[](CWebConnector& tEngine, _HTTP_REQ_INFO_t&)
         { return tEngine.StartDownload(1, "u", "/x", nullptr, nullptr) != -6; },
         {I("StartDownload", "Start Download:"), E("StartDownload", "Input parameter error!")}},
        {[](CWebConnector& tEngine, _HTTP_REQ_INFO_t&) { return tEngine.SyncDownloadFile("", "/x", 0, 0); },
         {E("SyncDownloadFile", "Input parameter error!")}},
    };
    for (const auto& tCase : arrCases)
    {
        RUN_t tRun;
        CWebConnector tEngine;
        tEngine.Create();
        _HTTP_REQ_INFO_t tRequest;
        EXPECT_FALSE(tCase.pfnStart(tEngine, tRequest));
        EXPECT_EQ(tRun.tLog.TakeOwn(), tCase.vecRecords);
    }
}
