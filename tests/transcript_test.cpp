/*
 * The exact records, wrapper steps and callbacks of the engine over a fake wrapper, of the queries over that, and of
 * the readers. What each group of scenarios writes down is compared with a transcript in tests/golden/: a line for each
 * record, "!" marking the framed ones, and for each step and callback, "-". Faults are those that a real wrapper will
 * not produce.
 */

#include <array>
#include <condition_variable>
#include <fcntl.h>
#include <filesystem>
#include <future>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "fake_wqcurl.h"
#include "test_helpers.h"
#include "veltra/veltra.h"

namespace
{

/** Replaces the first of its kind. @return false when there is none */
bool Replace(std::string& strText, const std::string& strOld, const std::string& strNew)
{
    const size_t nFound = strText.find(strOld);
    if (nFound != std::string::npos)
    {
        strText.replace(nFound, strOld.size(), strNew);
    }
    return nFound != std::string::npos;
}

/** Collects the log of its lifetime, apart for its creator's thread and the others. */
class CLogCapture
{
public:
    CLogCapture()
    {
        CKVRDebug::SetSink(&OnRecord, this);
        CKVRDebug::SetLevel(4);
    }
    ~CLogCapture()
    {
        CKVRDebug::SetLevel(0);
        CKVRDebug::SetSink(nullptr, nullptr);
    }

    /** Returns, and forgets, what its creator's thread has logged, or what the others have. */
    std::string Take(bool bOwn)
    {
        const std::lock_guard<std::mutex> tGuard(m_tLock);
        return std::exchange(bOwn ? m_strOwn : m_strOthers, "");
    }

    /** Waits until another thread has logged this text. */
    void WaitForOthers(const std::string& strText)
    {
        std::unique_lock<std::mutex> tGuard(m_tLock);
        EXPECT_TRUE(m_tChanged.wait_for(tGuard, std::chrono::seconds(20),
                                        [&] { return m_strOthers.find(strText) != std::string::npos; }));
    }

private:
    static void OnRecord(unsigned int nLevel, const char* pszRecord, void* pUserData)
    {
        CKVRDebug::PrintLog(0, "dropped, as it would wait for itself\n");
        auto* ptThis = static_cast<CLogCapture*>(pUserData);
        std::string strLine = pszRecord;
        if (strLine.rfind("[KVR][", 0) == 0)
        {
            /* Less the source line's number, and the frame in short; what is malformed shows. */
            const size_t nNumber = strLine.find('(') + 1;
            strLine.erase(nNumber, strLine.find_first_not_of("0123456789", nNumber) - nNumber);
            Replace(strLine, "[KVR][", std::to_string(nLevel) + " ");
            Replace(strLine, "()] \033[1;31;42m ", "! ") ? Replace(strLine, "\033[0m \n", "\n")
                                                         : Replace(strLine, "()] ", ": ");
        }
        const std::lock_guard<std::mutex> tGuard(ptThis->m_tLock);
        (std::this_thread::get_id() == ptThis->m_tCreator ? ptThis->m_strOwn : ptThis->m_strOthers) += strLine;
        ptThis->m_tChanged.notify_all();
    }

    const std::thread::id m_tCreator = std::this_thread::get_id();
    std::mutex m_tLock;
    std::condition_variable m_tChanged;
    std::string m_strOwn;
    std::string m_strOthers;
};

const std::filesystem::path WHERE_STARTED = std::filesystem::current_path();

void ExpectGolden(const std::string& strName, const std::string& strSeen)
{
    const std::filesystem::path tSeen = WHERE_STARTED / (strName + ".seen.txt");
    std::ofstream(tSeen) << strSeen;
    EXPECT_EQ(ReadFile(GOLDEN_FOLDER "/" + strName + ".txt"), strSeen) << "What was seen is in " << tSeen;
}

/** The transcript's own headings tell what is to be run. */
void ExpectHeadings(const std::string& strName, const std::function<std::string(const std::string&)>& fnRun)
{
    std::string strSeen;
    std::ifstream tGolden(GOLDEN_FOLDER "/" + strName + ".txt");
    for (std::string strLine; std::getline(tGolden, strLine);)
    {
        strSeen += strLine.rfind("== ", 0) == 0 ? "\n" + strLine + "\n" + fnRun(strLine.substr(3)) : "";
    }
    EXPECT_FALSE(strSeen.empty());
    ExpectGolden(strName, strSeen);
}

CWebConnector& Engine()
{
    return *CSingleton<CWebConnector>::GetInstance();
}

char g_szUser[] = "user";

void OnRequest(bool bResult, std::string& strErrorMsg, std::string& strResponse, void* pUserData)
{
    Note("callback of a request: " + std::to_string(bResult) + " [" + strErrorMsg + "] [" + strResponse + "] " +
         static_cast<const char*>(pUserData));
}

void OnDownload(int nId, DOWNLOAD_TYPE_e eType, int nPercent, double dSpeed, void* pUserData)
{
    Note("callback of download " + std::to_string(nId) + ": type " + std::to_string(eType) + ", " +
         std::to_string(nPercent) + " %, " + std::to_string(dSpeed) + " " + static_cast<const char*>(pUserData));
}

/** Get() is called for the synchronous, Post() for the asynchronous: the record's method decides. */
int StartHttp(int eMethod, bool bSync, const std::list<std::string>& lstHeader, HTTP_REQUEST_CB_t pfnCB = &OnRequest)
{
    _HTTP_REQ_INFO_t tRequest;
    tRequest.eMethod = eMethod;
    tRequest.strUrl = "http://x/";
    tRequest.lstHeader = lstHeader;
    tRequest.bResult = bSync; // as another request has left them
    tRequest.strErrorReason = bSync ? "stale" : "";
    tRequest.strResponse = "old ";
    tRequest.pfnRequestCB = pfnCB;
    tRequest.pUserData = g_szUser;
    const bool bResult = bSync ? Engine().Get(&tRequest, true) : Engine().Post(&tRequest, false);
    Note("record: " + std::to_string(tRequest.bResult) + " [" + tRequest.strErrorReason + "] [" + tRequest.strResponse +
         "], semaphore " + std::to_string(tRequest.tSync.m_bCreated));
    return bResult;
}

int StartDownload(const std::string& strUrl, const std::string& strFile, DOWNLOAD_CB_t pfnCB = &OnDownload)
{
    return Engine().StartDownload(7, strUrl, strFile, pfnCB, g_szUser);
}

typedef std::function<int()> START_t;

const START_t SYNC_POST = [] { return StartHttp(HTTP_METHOD_POST, true, {}); };
const START_t ASYNC_GET = [] { return StartHttp(HTTP_METHOD_GET, false, {"A:1", "B:2"}); };
const START_t DOWNLOAD = [] { return StartDownload("http://x/", "f"); };
const START_t SYNC_DOWNLOAD = [] { return Engine().SyncDownloadFile("http://x/", "f", 60, 3); };

/** Starts a request and a GET that end together. */
int Together(const START_t& fnStart)
{
    g_tFake->nTogether = 2;
    return fnStart() + ASYNC_GET();
}

/** Leaves a file of a time that does not fit into 32 bits. */
int WriteFile(const std::string& strPath)
{
    std::ofstream(strPath) << "precious";
    const timespec arrAfter2038[2] = {{1LL << 32, 0}, {1LL << 32, 0}};
    return utimensat(AT_FDCWD, strPath.c_str(), arrAfter2038, 0);
}

/** Delivers a body, or makes the request one that the engine cannot finish. */
void Deliver(FAKE_TRANSFER_t& tTransfer)
{
    static auto* const s_plstKept = new std::list<std::pair<_REQ_HANDLER_t*, _REQ_HANDLER_t>>; // and so no leaks
    auto* ptHandler = static_cast<_REQ_HANDLER_t*>(tTransfer.pPrivate);
    s_plstKept->emplace_back(ptHandler, *ptHandler);
    ptHandler->eReqType = g_tFake->Allows("kind") ? ptHandler->eReqType : 7;
    ptHandler->ptReqInfo = g_tFake->Allows("record") ? ptHandler->ptReqInfo : nullptr;
    ptHandler->pEasyHandle = g_tFake->Allows("handle") ? ptHandler->pEasyHandle : nullptr;

    char szData[] = "body";
    const bool bFile = tTransfer.pProgressData != nullptr;
    EXPECT_EQ(tTransfer.pfnWrite(szData, 1, 1, tTransfer.pWriteData), 1U);
    EXPECT_EQ(tTransfer.pfnWrite(szData + 1, 3, 1, tTransfer.pWriteData), bFile ? 1U : 3U);
    EXPECT_TRUE(!bFile || std::filesystem::file_size("f.bak") == 4) << "nothing is held back";
}

/** Starts requests one after the other, over a fresh fake and in a folder of their own, and tells all that comes. */
std::string RunScenario(const std::vector<START_t>& vecStarts, const std::list<std::string>& lstRefused = {},
                        const std::function<void(FAKE_TRANSFER_t&)>& fnTransfer = &Deliver)
{
    std::string strFolder = (std::filesystem::temp_directory_path() / "veltra-test-XXXXXX").string();
    EXPECT_NE(mkdtemp(strFolder.data()), nullptr);
    std::filesystem::current_path(strFolder);
    g_tFake.emplace().fnTransfer = fnTransfer;
    g_tFake->lstRefused = lstRefused;
    std::string strSeen;
    {
        CLogCapture tLog;
        CWebConnector tEngine;
        CSingleton<CWebConnector>::m_pObj = &tEngine;
        tEngine.Create();
        for (const START_t& fnStart : vecStarts)
        {
            Note("returned " + std::to_string(fnStart()));
            const std::string strCaller = tLog.Take(true);
            if (strCaller.find("New Request come!") != std::string::npos)
            {
                tLog.WaitForOthers("Have Handled all http/https Requests!");
            }
            const std::string strWorker = tLog.Take(false);
            strSeen += strCaller + (strWorker.empty() ? "" : "worker:\n" + strWorker);
            for (const char* pszFile : {"f", "f.bak", "precious", "nothing"})
            {
                struct stat tStat = {}; // the standard library's would not take a date after 2038 on 32-bit systems
                const bool bFile = stat(pszFile, &tStat) == 0 && S_ISREG(tStat.st_mode);
                strSeen += bFile ? std::string("file ") + pszFile + ": " + ReadFile(pszFile) + "\n" : "";
            }
        }
        CSingleton<CWebConnector>::m_pObj = nullptr;
    }
    std::filesystem::current_path(WHERE_STARTED);
    std::filesystem::remove_all(strFolder);
    return strSeen;
}

} // namespace

TEST(Transcript, EachKindOfRequestWithEachRefusalAndFailure)
{
    const std::map<std::string, START_t> mapKinds{{"SYNC_POST", SYNC_POST},
                                                  {"ASYNC_GET", ASYNC_GET},
                                                  {"DOWNLOAD", DOWNLOAD},
                                                  {"SYNC_DOWNLOAD", SYNC_DOWNLOAD},
                                                  {"TWO_GETS", [] { return Together(ASYNC_GET); }},
                                                  {"DOWNLOAD_AND_GET", [] { return Together(DOWNLOAD); }}};
    ExpectHeadings("requests",
                   [&](const std::string& strHeading)
                   {
                       std::vector<START_t> vecStarts;
                       std::list<std::string> lstRefused;
                       std::istringstream tWords(strHeading);
                       for (std::string strWord; tWords >> strWord;)
                       {
                           strWord[0] == '-' ? lstRefused.push_back(strWord)
                                             : vecStarts.push_back(mapKinds.at(strWord));
                       }
                       return RunScenario(vecStarts, lstRefused);
                   });
}

TEST(Transcript, ProgressInStepsOfFivePercentUntilCancelled)
{
    const std::pair<double, std::vector<double>> arrCases[] = {
        {1000, {0, 30, 60, 90, 120, 150, 150, 270, 300, 420, 450, 480, 600, 720, 750, 900, 990, 1000, 1000}},
        {1000, {44, 45, 54, 70, 949, 945}},
        {0, {0, 0, 1, 500}},
        {0, {500}},
    };
    std::string strSeen;
    for (const auto& tCase : arrCases)
    {
        const auto fnTransfer = [&tCase](FAKE_TRANSFER_t& tTransfer)
        {
            for (const double dNow : tCase.second)
            {
                EXPECT_EQ(tTransfer.pfnProgress(tTransfer.pProgressData, tCase.first, dNow, 9, 9), 0);
            }
            EXPECT_EQ(tTransfer.pfnProgress(nullptr, 100, 5, 0, 0), 1);
            EXPECT_FALSE(Engine().CancelDownload(8, true));
            EXPECT_TRUE(Engine().CancelDownload(7, true));
            EXPECT_EQ(tTransfer.pfnProgress(tTransfer.pProgressData, 100, 25, 0, 0), 1);
        };
        strSeen += "\n== of " + std::to_string(tCase.first) + "\n" + RunScenario({DOWNLOAD}, {}, fnTransfer);
    }
    ExpectGolden("progress", strSeen);
}

TEST(Transcript, WhatIsNoRequestOrComesAtTheWrongTimeIsRefused)
{
    const START_t fnAll = [] { return SYNC_POST() + ASYNC_GET() + DOWNLOAD() + Engine().CancelDownload(7, true); };
    const std::vector<START_t> vecStarts{
        [] { return Engine().Get(nullptr, false); },
        [] { return Engine().Post(nullptr, true); },
        [] { return StartHttp(3, true, {}); },
        [] { return StartHttp(HTTP_METHOD_GET, false, {}, nullptr); },
        [] { return StartDownload("u", "f", nullptr); },
        [] { return StartDownload("", "f"); },
        [] { return StartDownload("u", ""); },
        [] { return StartDownload("u", std::string("f\0", 2)); },
        [] { return StartDownload("u", "no/f"); },
        [] { return Engine().SyncDownloadFile("", "f", 0, 0); },
        [] { return Engine().SyncDownloadFile("u", "", 0, 0); },
        [] { return Engine().SyncDownloadFile("u", "no/f", 0, 0); },
        [] { return symlink("nothing", "f.bak") + SYNC_DOWNLOAD() + DOWNLOAD(); },
        [] { return unlink("f.bak") + mkfifo("f.bak", 0600) + SYNC_DOWNLOAD() + DOWNLOAD(); },
        []
        {
            const int nReader = open("f.bak", O_RDONLY | O_NONBLOCK); // with which the pipe can be written to
            return SYNC_DOWNLOAD() + close(nReader);
        },
        [] { return unlink("f.bak") + WriteFile("f.bak") + DOWNLOAD(); },
        [] { return rename("f.bak", "precious") + symlink("precious", "f.bak") + SYNC_DOWNLOAD() + DOWNLOAD(); },
        [] { return unlink("f.bak") + mkdir("f", 0700) + SYNC_DOWNLOAD(); }, // succeeds but for the renaming
        [] { return unlink("f.bak") + DOWNLOAD(); },
        [] { return unlink("f.bak") + rmdir("f") + WriteFile("f.bak") + SYNC_DOWNLOAD(); }, // which is shorter
        [] { return (g_tFake->lstRefused = {"-fdopen"}, WriteFile("f.bak") + SYNC_DOWNLOAD()); },
        [] { return unlink("f.bak") + unlink("f") + mkfifo("f", 0600) + SYNC_DOWNLOAD() + DOWNLOAD(); },
        [] { return unlink("f") + symlink("/dev/null", "f") + SYNC_DOWNLOAD(); }, // replaces the link
        [] { return unlink("f") + Engine().Create(); },
        [&] { return (Engine().Destroy(), fnAll()); },
        [&] { return (Engine().Destroy(), Engine().Create(), fnAll()); },
        [&]
        {
            CWebConnector tLate;
            CSingleton<CWebConnector>::m_pObj = &tLate;
            return (tLate.Destroy(), fnAll(), tLate.Create(), SYNC_POST());
        },
    };
    ExpectGolden("refusals", RunScenario(vecStarts));
}

/** The wrapper gives back the address of a handler that the engine has not made. */
TEST(Engine, HandlerThatIsNotListedIsNeitherFreedNorMisread)
{
    struct
    {
        _REQ_HANDLER_t tHandler;
        std::array<unsigned char, 256> arrBehind;
    } tForeign{};
    tForeign.arrBehind.fill(1);
    std::promise<void> tRuns;
    const auto fnTransfer = [&](FAKE_TRANSFER_t& tTransfer)
    {
        tForeign.tHandler = *static_cast<_REQ_HANDLER_t*>(tTransfer.pPrivate);
        tTransfer.pPrivate = &tForeign.tHandler;
        tRuns.set_value();
    };
    const START_t fnStart = [&] { return (ASYNC_GET(), tRuns.get_future().wait(), Engine().Destroy(), 0); };
    const std::string strSeen = RunScenario({fnStart}, {}, fnTransfer);
    EXPECT_NE(strSeen.find("m_HandleRequestResult! Remove request error!"), std::string::npos) << strSeen;
    EXPECT_NE(strSeen.find("- destroy"), std::string::npos) << strSeen << "the engine's own is freed in the end";
}

namespace
{

typedef std::map<std::string, APPBIN_SERVER_INFO_t> INFO_MAP_t;
typedef std::vector<std::string> TEXTS_t;
typedef bool (*OPERATION_t)(const std::string& strInput, TEXTS_t& vecText, INFO_MAP_t& mapInfo);

const OPERATION_t QUERIES[] = {[](const std::string&, TEXTS_t& vecText, INFO_MAP_t&)
                               { return ICVeltra().GetAppBinaryServerUrl(vecText); },
                               [](const std::string& strUrl, TEXTS_t& vecText, INFO_MAP_t& mapInfo)
                               { return ICVeltra().GetServerAppBinaryInfo(strUrl, mapInfo, vecText); },
                               [](const std::string& strUrl, TEXTS_t& vecText, INFO_MAP_t& mapInfo)
                               { return ICVeltra().GetCERTAppBinaryInfo(strUrl, mapInfo, vecText); },
                               [](const std::string& strUrl, TEXTS_t& vecText, INFO_MAP_t& mapInfo)
                               { return ICVeltra().GetDefaultAppBinaryInfo(strUrl, vecText, mapInfo); }};
const OPERATION_t READERS[] = {[](const std::string& strXml, TEXTS_t& vecText, INFO_MAP_t&)
                               { return CXmlParser().ParseAppBinaryServerUrlXml(strXml, vecText); },
                               [](const std::string& strXml, TEXTS_t& vecText, INFO_MAP_t& mapInfo)
                               { return CXmlParser().ParseAppBinaryServerInfoXml(strXml, mapInfo, vecText); },
                               [](const std::string& strXml, TEXTS_t& vecText, INFO_MAP_t& mapInfo)
                               { return CXmlParser().ParseCERTAppBinaryServerInfoXml(strXml, mapInfo, vecText); },
                               [](const std::string& strXml, TEXTS_t& vecText, INFO_MAP_t& mapInfo)
                               { return CXmlParser().ParseDefaultAppBinaryServerInfoXml(strXml, vecText, mapInfo); }};

/** Notes what an operation leaves in containers that are not empty before. */
bool NoteResult(OPERATION_t pfnOperation, const std::string& strInput, TEXTS_t vecText)
{
    INFO_MAP_t mapInfo;
    mapInfo["old"].strUrl = "kept";
    const bool bResult = pfnOperation(strInput, vecText, mapInfo);
    std::string strResult = "result " + std::to_string(bResult) + ", texts";
    for (const std::string& strText : vecText)
    {
        strResult += " [" + strText + "]";
    }
    strResult += ", records";
    for (const auto& [strKey, tInfo] : mapInfo)
    {
        strResult += " [" + strKey + ": " + tInfo.strId + "|" + tInfo.strName + "|" + tInfo.strVersion + "|" +
                     tInfo.strUrl + "|" + tInfo.strSize + "|" + tInfo.strSignature + "|" + tInfo.strType + "|" +
                     tInfo.strBoot + "]";
    }
    Note(strResult);
    return bResult;
}

} // namespace

TEST(Transcript, QueriesFromTheFacadeToTheWrapper)
{
    const std::string strList = "<rsp stat='ok'><rm><queryinfo><notice><s url='u'/></notice></queryinfo></rm></rsp>";
    const std::string strInformation = "<emplist><file id='one' url='u1' boot='yes'><signature>S</signature></file>"
                                       "<file id='empCERT1' url='u2'/></emplist>";
    struct
    {
        const char* pszTitle;
        DEVICE_IDENTITY_t tIdentity;
        std::string strUrl;
        std::string strAnswer; /**< "-transfer" for none */
    } const arrCases[] = {
        {"server list", {"X1", "d-u:id", "00:11", "KR", "model", 0}, "http://x/", strList},
        {"information", {"X1", "d-u:id", "00:11", "KR", "model", -1}, "http://x/info", strInformation},
        {"no chipset, no URL", {"", "d", "m", "c", "i", 0}, "", ""},
        {"empty answer", {"X1", "", "", "", "", 1}, "http://x/", ""},
        {"no answer", {"X1", "d", "m", "c", "i", 0}, "http://x/", "-transfer"},
    };
    std::string strSeen;
    for (const auto& tCase : arrCases)
    {
        CAIAuth::SetIdentity(tCase.tIdentity);
        const auto fnTransfer = [&](FAKE_TRANSFER_t& tTransfer)
        {
            std::string strAnswer = tCase.strAnswer;
            tTransfer.pfnWrite(strAnswer.data(), 1, strAnswer.size(), tTransfer.pWriteData);
        };
        strSeen += std::string("\n== ") + tCase.pszTitle + "\n";
        for (const OPERATION_t pfnQuery : QUERIES)
        {
            const START_t fnQuery = [&] { return NoteResult(pfnQuery, tCase.strUrl, {"one", "no"}); };
            std::istringstream tLines(RunScenario({fnQuery}, {tCase.strAnswer}, fnTransfer));
            for (std::string strLine; std::getline(tLines, strLine) && strLine != "worker:";)
            {
                strSeen += strLine.find("WebConnector") == std::string::npos ? strLine + "\n" : "";
            }
        }
    }
    ExpectGolden("queries", strSeen);
}

/** Headings are the texts that the list holds before, and the document. */
TEST(Transcript, ReadersOfTheDocuments)
{
    ExpectHeadings("readers",
                   [](const std::string& strHeading)
                   {
                       const size_t nTexts = std::min(strHeading.find('<'), strHeading.size());
                       std::string strXml = strHeading.substr(nTexts);
                       Replace(strXml, "\\n", "\n");
                       Replace(strXml, "\\0", std::string(1, '\0'));
                       TEXTS_t vecText;
                       std::istringstream tTexts(strHeading.substr(0, nTexts));
                       for (std::string strText; std::getline(tTexts, strText, '|');)
                       {
                           vecText.push_back(strText);
                       }
                       CLogCapture tLog;
                       for (const OPERATION_t pfnReader : READERS)
                       {
                           NoteResult(pfnReader, strXml, vecText);
                       }
                       return tLog.Take(true);
                   });
}

namespace
{

/** Comes before the library's own statics, and so goes after them. */
struct LATE_CALLER_t
{
    ~LATE_CALLER_t()
    {
        if (bCalls)
        {
            const std::string strDUID = CAIAuth().GetDUID();
            _exit(strDUID.size() == 1000 && strDUID.find_first_not_of('d') == std::string::npos ? 7 : 8);
        }
    }
    bool bCalls = false;
} g_tLate;

} // namespace

TEST(Platform, IdentityOutlivesWhoAsksForIt)
{
    EXPECT_EXIT(
        {
            CAIAuth::SetIdentity({"X1", std::string(1000, 'd'), "", "", "", 0});
            g_tLate.bCalls = true;
            exit(0);
        },
        testing::ExitedWithCode(7), "");
}

TEST(Platform, RecordsAreWholeAndGoWhereTheyShouldAndSemaphoresAreNotCopied)
{
    const auto fnText = [](size_t i) { return std::string(i * 2 + i % 2, 'x'); }; // 127 and 128 are among them
    const auto fnLog = [&fnText](size_t)
    {
        for (size_t i = 0; i < 200; ++i)
        {
            CKVRDebug::PrintLog(4, "[KVR][T::f(%d)] ", 1);
            CKVRDebug::PrintLog(5, "dropped");
            CKVRDebug::PrintLog(4, "%s", fnText(i).c_str());
            CKVRDebug::PrintLog(4, "\n");
        }
    };
    testing::internal::CaptureStderr();
    CKVRDebug::PrintLog(0, "before\n");
    {
        CLogCapture tLog;
        ForEach(2, 2, fnLog);
        std::string strRecords = tLog.Take(false);
        for (size_t i = 0; i < 400; ++i)
        {
            EXPECT_TRUE(Replace(strRecords, "4 T::f: " + fnText(i / 2) + "\n", "")) << i / 2;
        }
        EXPECT_EQ(strRecords, "");
    }
    CKVRDebug::PrintLog(4, "information\n");
    CKVRDebug::PrintLog(0, "after\n");
    for (const bool bWanted : {false, true}) // when the record begins; it ends under the other level
    {
        CKVRDebug::SetLevel(bWanted ? 4 : 3);
        CKVRDebug::PrintLog(4, "begun, ");
        CKVRDebug::SetLevel(bWanted ? 3 : 4);
        CKVRDebug::PrintLog(4, "ended\n");
    }
    CKVRDebug::SetLevel(0);
    CKVRDebug::PrintLog(4, "information without an end");
    CKVRDebug::PrintLog(0, "error\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "before\nafter\nbegun, ended\nerror\n");
    CKVRDebug::PrintLog(4, "\n");

    CSync tSync;
    EXPECT_TRUE(tSync.Create() && !CSync(tSync).m_bCreated);
    g_nInterruptions = 2;
    tSync.Give();
    tSync.Take();
    EXPECT_EQ(g_nInterruptions, 0) << "an interrupted wait goes on";
}

TEST(Platform, ReadySinksColourTerminalsOnlyRankMilestonesAndFoldRepeats)
{
    const auto fnLog = [](unsigned int nLevel, const char* pszText)
    { CKVRDebug::PrintLog(nLevel, "\033[1;31;42m %s\033[0m \n", pszText); };
    const auto fnSeen = [&](CKVRDebug::LOG_SINK_t pfnSink, void* pUserData)
    {
        testing::internal::CaptureStderr(); // which is no terminal
        CKVRDebug::SetSink(pfnSink, pUserData);
        CKVRDebug::SetLevel(4);
        for (const char* pszText : {"Start http/https Request!", "broken", "broken", "broken", "other"})
        {
            fnLog(0, pszText);
        }
        fnLog(4, "information");
        CKVRDebug::SetLevel(0);
        CKVRDebug::SetSink(nullptr, nullptr);
        return testing::internal::GetCapturedStderr();
    };
    const std::string strErrors = "broken\nbroken\nbroken\nother\n";
    EXPECT_EQ(fnSeen(nullptr, nullptr), "Start http/https Request!\n" + strErrors + "information\n");
    CKVRDebug::FOLDING_t tFolding;
    EXPECT_EQ(fnSeen(&CKVRDebug::FoldRepeats, &tFolding),
              "Start http/https Request!\nbroken\n… 2 more like this\nother\ninformation\n");
    openlog("", LOG_PERROR, LOG_USER);
    const auto fnSyslog = [&](int nLowest)
    {
        setlogmask(LOG_UPTO(nLowest));
        std::string strSeen = fnSeen(&CKVRDebug::WriteToSyslog, nullptr);
        while (Replace(strSeen, ": ", "")) // behind an empty name
        {
        }
        return strSeen;
    };
    EXPECT_EQ(fnSyslog(LOG_ERR), strErrors);
    EXPECT_EQ(fnSyslog(LOG_NOTICE), "Start http/https Request!\n" + strErrors);
    closelog();
}
