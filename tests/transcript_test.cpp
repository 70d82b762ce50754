/* Runs the scenarios in golden/ over a fake curl wrapper. Their records, steps and results must be those written there.
 * Each golden file begins with a description of its language. */

#include <algorithm>
#include <condition_variable>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <regex>
#include <set>
#include <sstream>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "fake_wqcurl.h"
#include "test_helpers.h"
#include "veltra/veltra.h"

namespace
{

typedef std::vector<std::string> TEXTS_t;

void Replace(std::string& strText, const std::string& strOld, const std::string& strNew)
{
    for (size_t n = strText.find(strOld); n != std::string::npos; n = strText.find(strOld, n + strNew.size()))
    {
        strText.replace(n, strOld.size(), strNew);
    }
}

TEXTS_t Split(const std::string& strText, char cAt)
{
    TEXTS_t vecParts;
    std::istringstream tText(strText);
    for (std::string strPart; std::getline(tText, strPart, cAt);)
    {
        vecParts.push_back(strPart);
    }
    return vecParts;
}

/** Collects the log of its lifetime. */
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

    /** Waits for the worker's pass to end. @return the lines of the creator's thread, then those of the others */
    std::string Take()
    {
        static const std::regex s_tError("\n0\\[KVR\\]\\[(.*)\\(\\d+\\)\\] \033\\[1;31;42m (.*)\033\\[0m ");
        static const std::regex s_tInfo("\n4\\[KVR\\]\\[(.*)\\(\\d+\\)\\] ");
        std::unique_lock<std::mutex> tGuard(m_tLock);
        EXPECT_TRUE(m_tChanged.wait_for(tGuard, std::chrono::seconds(20), [this] { return !m_bInPass; }));
        std::string strSeen;
        for (const bool bOwn : {true, false})
        {
            std::string strLines = std::exchange(m_arrLines[bOwn], "");
            Replace(strLines, "\f\n- ", ", "); // steps in a row share a line
            Replace(strLines, "\f", "");
            strLines = std::regex_replace(strLines, s_tError, "\nerror $1: $2");
            strLines = std::regex_replace(strLines, s_tInfo, "\ninfo $1: ");
            Replace(strLines, "\n", bOwn ? "\n" : "\n  ");
            strSeen += strLines;
        }
        return strSeen;
    }

private:
    static void OnRecord(unsigned int nLevel, const char* pszRecord, void* pUserData)
    {
        CKVRDebug::PrintLog(0, "dropped, as it would wait for itself\n");
        auto& tThis = *static_cast<CLogCapture*>(pUserData);
        std::string strRecord = (pszRecord[0] == '[' ? std::to_string(nLevel) : "") + pszRecord;
        const auto fnHas = [&](const char* pszText) { return strRecord.find(pszText) != std::string::npos; };
        const std::lock_guard<std::mutex> tGuard(tThis.m_tLock);
        strRecord.pop_back(); // the line's end
        Replace(strRecord, "\n", "↵");
        tThis.m_arrLines[std::this_thread::get_id() == tThis.m_tCreator] += "\n" + strRecord;
        tThis.m_bInPass = (tThis.m_bInPass || fnHas("New Request come!")) && !fnHas("Have Handled all http") &&
                          !fnHas("Remove request error!");
        tThis.m_tChanged.notify_all();
    }

    const std::thread::id m_tCreator = std::this_thread::get_id();
    std::mutex m_tLock;
    std::condition_variable m_tChanged;
    std::string m_arrLines[2]; /**< of the others and of the creator: level and record */
    bool m_bInPass = false;
};

/** Names the engine's request list, which no public operation shows. */
auto& RequestList(CWebConnector& tEngine);
template <auto LIST> struct REQUEST_LIST_t
{
    friend auto& RequestList(CWebConnector& tEngine) { return tEngine.*LIST; }
};
template struct REQUEST_LIST_t<&CWebConnector::m_lstRequest>;

CWebConnector* g_pEngine = nullptr;
char g_szUser[] = "user";
_HTTP_REQ_INFO_t* g_ptRequest = nullptr; /**< the caller's record of the last request */

void OnRequest(bool bResult, std::string& strErrorMsg, std::string& strResponse, void* pUserData)
{
    Note("callback: " + std::to_string(bResult) + " [" + strErrorMsg + "] [" + strResponse + "] " +
         static_cast<const char*>(pUserData));
    Takes("post-in-callback") ? void(g_pEngine->Post(g_ptRequest, false)) : void();
    Takes("misuse-in-callback") ? (g_pEngine->Get(g_ptRequest, true), g_pEngine->Destroy()) : void();
}

void OnDownload(int nId, DOWNLOAD_TYPE_e eType, int nPercent, double dSpeed, void* pUserData)
{
    Note("event " + std::to_string(eType) + ": " + std::to_string(nPercent) + " %");
    EXPECT_TRUE(nId == 7 && pUserData == g_szUser && dSpeed == (eType == DOWNLOAD_TYPE_PROGRESS ? 0.0 : 1.5));
}

/** Calls Get() if bSync, else Post(): the record's method decides. */
int StartHttp(HTTP_METHOD_e eMethod, bool bSync, const std::list<std::string>& lstHeader)
{
    const HTTP_REQUEST_CB_t pfnRequestCB = Takes("no-callback") ? nullptr : &OnRequest;
    _HTTP_REQ_INFO_t tRequest{eMethod, "http://x/", lstHeader, "data", pfnRequestCB, g_szUser, bSync, "old "};
    tRequest.eMethod = Takes("unknown-method") ? 3 : eMethod;
    tRequest.strErrorReason = bSync ? "stale" : ""; // left by another request, as bResult and strResponse
    const auto fnDescribe = [&tRequest]
    {
        return "record: " + std::to_string(tRequest.bResult) + " [" + tRequest.strErrorReason + "] [" +
               tRequest.strResponse + "], semaphore " + std::to_string(tRequest.tSync.m_bCreated);
    };
    const std::string strBefore = fnDescribe();
    g_ptRequest = Takes("null-record") ? nullptr : &tRequest;
    const bool bResult = bSync ? g_pEngine->Get(g_ptRequest, true) : g_pEngine->Post(g_ptRequest, false);
    fnDescribe() != strBefore ? Note(fnDescribe()) : void();
    return bResult;
}

const auto URL = [] { return std::string(Takes("empty-url") ? "" : "http://x/"); };
const auto PATH = [] {
    return Takes("no-folder") ? "no/f" : std::string("f\0", Takes("empty-path") ? 0 : Takes("zero-in-path") ? 2 : 1);
};

/** Puts something at a path: "path=content", with a time that does not fit into 32 bits. */
void Prepare(const std::string& strEntry)
{
    const std::string strPath = strEntry.substr(0, strEntry.find('='));
    const std::string strContent = strEntry.substr(strPath.size() + 1);
    const char* pszPath = strPath.c_str();
    const timespec arrAfter2038[2] = {{1LL << 32, 0}, {1LL << 32, 0}};
    const int nFailed = strContent == "link"
                            ? (static_cast<void>(rename(pszPath, "precious")), symlink("precious", pszPath))
                        : strContent[0] == '/'   ? symlink(strContent.c_str(), pszPath)
                        : strContent == "reader" ? open(pszPath, O_RDONLY | O_NONBLOCK) < 0 // of a pipe
                        : strContent == "folder" ? mkdir(pszPath, 0700)
                        : strContent == "pipe"   ? mknod(pszPath, S_IFIFO | 0600, 0)
                        : strContent == "socket" ? mknod(pszPath, S_IFSOCK | 0600, 0)
                                                 : !(std::ofstream(strPath) << strContent).flush();
    EXPECT_EQ(nFailed, 0) << strEntry;
    EXPECT_EQ(utimensat(AT_FDCWD, pszPath, arrAfter2038, AT_SYMLINK_NOFOLLOW), 0) << strEntry;
}

/** Reports progress of a download and delivers a body, or makes the request one that the engine cannot finish. */
void Deliver(FAKE_TRANSFER_t& tTransfer, std::string strBody)
{
    /* The handlers and copies of them. Leak checkers find here those that the engine cannot free. */
    static auto* const s_plstKept = new std::list<std::pair<_REQ_HANDLER_t*, _REQ_HANDLER_t>>;
    void*& pPrivate = tTransfer.mapPointers[WQCurl::PRIVATE];
    void* pRecord = tTransfer.mapPointers[WQCurl::PROGRESSDATA];
    void* pTarget = tTransfer.mapPointers[WQCurl::WRITEDATA];
    auto* ptHandler = static_cast<_REQ_HANDLER_t*>(pPrivate);
    s_plstKept->emplace_back(ptHandler, *ptHandler);
    pPrivate = Takes("foreign-handler") ? &s_plstKept->back().second : ptHandler;
    ptHandler->eReqType = Takes("unknown-type") ? 7 : ptHandler->eReqType;
    ptHandler->ptReqInfo = Takes("no-record") ? nullptr : ptHandler->ptReqInfo;
    ptHandler->pEasyHandle = Takes("no-easy-handle") ? nullptr : ptHandler->pEasyHandle;

    constexpr std::pair<double, double> PROGRESS[] = {{0, 0}, {200, 9}, {0, 9}, {200, 9}, {99, 7}, {99, 24.4}, {9, 9}};
    for (const auto& [dTotal, dNow] : PROGRESS) // 4.5 % counts as 5 %
    {
        if (tTransfer.pfnProgress != nullptr && tTransfer.pfnProgress(pRecord, dTotal, dNow, 0, 0) != 0)
        {
            Note("stopped");
            EXPECT_EQ(tTransfer.pfnProgress(nullptr, 100, 5, 0, 0), 1);
            break;
        }
    }
    if (!strBody.empty())
    {
        const bool bFile = pRecord != nullptr;
        EXPECT_EQ(tTransfer.pfnWrite(strBody.data(), 1, 1, pTarget), 1U);
        EXPECT_EQ(tTransfer.pfnWrite(&strBody[1], strBody.size() - 1, 1, pTarget), bFile ? 1U : strBody.size() - 1);
        struct stat tStat = {}; // std::filesystem on 32-bit systems fails for dates after 2038
        EXPECT_TRUE(!bFile || (stat("f.bak", &tStat) == 0 && tStat.st_size == 4)) << "nothing is held back";
    }
}

typedef std::map<std::string, APPBIN_SERVER_INFO_t> INFOS_t;
/** Runs a query, and logs the content of the containers if the query changes it. */
bool Query(const std::string& strName)
{
    const int nServerType = Takes("test-server") ? -1 : 0;
    CAIAuth::SetIdentity({Takes("no-chipset") ? "" : "X1", "d-u:id", "00:11", "KR", "model", nServerType});
    const bool bEmpty = Takes("empty-containers");
    TEXTS_t vecText = bEmpty ? TEXTS_t{} : TEXTS_t{"old", "a", "a", ""};
    INFOS_t mapInfo = bEmpty ? INFOS_t{} : INFOS_t{{"old", {"", "", "", "kept", "", "", "", ""}}};
    const auto fnDescribe = [&vecText, &mapInfo]
    {
        std::string strAll = "containers:";
        for (const std::string& strText : vecText)
        {
            strAll += " [" + strText + "]";
        }
        for (const auto& [strKey, t] : mapInfo)
        {
            strAll += ", " + strKey + ": " + t.strId + "|" + t.strName + "|" + t.strVersion + "|" + t.strUrl + "|" +
                      t.strSize + "|" + t.strSignature + "|" + t.strType + "|" + t.strBoot;
        }
        return strAll;
    };
    const std::string strBefore = fnDescribe();
    const std::string strUrl = URL();
    const bool bResult =
        strName == "RequestAppBinaryServerUrl"    ? CHttpRequest().RequestAppBinaryServerUrl(vecText[0])
        : strName == "RequestServerAppBinaryInfo" ? CHttpRequest().RequestServerAppBinaryInfo(strUrl, vecText[0])
        : strName == "GetAppBinaryServerUrl"      ? ICVeltra().GetAppBinaryServerUrl(vecText)
        : strName == "GetServerAppBinaryInfo"     ? ICVeltra().GetServerAppBinaryInfo(strUrl, mapInfo, vecText)
        : strName == "GetCERTAppBinaryInfo"       ? ICVeltra().GetCERTAppBinaryInfo(strUrl, mapInfo, vecText)
                                                  : ICVeltra().GetDefaultAppBinaryInfo(strUrl, vecText, mapInfo);
    fnDescribe() != strBefore ? Note(fnDescribe()) : void();
    return bResult;
}

int Call(const std::string& strName)
{
    return strName == "SyncPost"   ? StartHttp(HTTP_METHOD_POST, true, {})
           : strName == "AsyncGet" ? StartHttp(HTTP_METHOD_GET, false, {"A:1", "B:2"})
           : strName == "StartDownload"
               ? g_pEngine->StartDownload(7, URL(), PATH(), Takes("no-callback") ? nullptr : &OnDownload, g_szUser)
           : strName == "SyncDownloadFile" ? g_pEngine->SyncDownloadFile(URL(), PATH(), 60, 3)
           : strName == "ListNull"         ? (RequestList(*g_pEngine).push_back(nullptr), 0)
           : strName == "Cancel"           ? g_pEngine->CancelDownload(7, true)
           : strName == "CancelOthers"     ? g_pEngine->CancelDownload(6, true) + g_pEngine->CancelDownload(8, true)
           : strName == "Create"           ? g_pEngine->Create()
           : strName == "Destroy"          ? (g_pEngine->Destroy(), 0)
                                           : Query(strName);
}

/** Runs the scenario of a heading over a fresh fake in the current folder.
 * @return the heading with the results that were returned, and the scenario's lines */
std::string RunScenario(const std::string& strHeading)
{
    const size_t nAnswer = strHeading.find("answer: ");
    const std::string strAnswer = nAnswer != std::string::npos ? strHeading.substr(nAnswer + 8) : "";
    std::map<std::string, TEXTS_t> mapWords;
    std::string strKey;
    for (const std::string& strWord : Split(strHeading.substr(0, nAnswer), ' '))
    {
        strWord.back() == ':' ? void(strKey = strWord)
                              : mapWords[strKey == "with:" ? "fails:" : strKey].push_back(strWord);
    }
    std::for_each(mapWords["files:"].begin(), mapWords["files:"].end(), &Prepare);
    g_tFake.emplace().lstWords.assign(mapWords["fails:"].begin(), mapWords["fails:"].end());
    g_tFake->fnBeforeLstat = [mapWords, nCalls = 0]() mutable
    {
        const TEXTS_t& vecEntries = mapWords["lstat-" + std::to_string(++nCalls) + ":"];
        std::for_each(vecEntries.begin(), vecEntries.end(), &Prepare);
    };
    std::string strBody = strAnswer.empty() && !Takes("empty-answer") ? "body" : strAnswer;
    Replace(strBody, "↵", "\n");
    Replace(strBody, "\\0", std::string(1, '\0'));
    g_tFake->fnTransfer = [strBody](FAKE_TRANSFER_t& tTransfer) { Deliver(tTransfer, strBody); };

    std::string strLines, strResults = "returns:";
    {
        CLogCapture tLog;
        CWebConnector tEngine;
        CSingleton<CWebConnector>::m_pObj = g_pEngine = &tEngine;
        Takes("no-create") ? void() : void(tEngine.Create());
        for (const std::string& strCall : mapWords["run:"])
        {
            const bool bHold = strCall.back() == '+';
            g_tFake->bHold = g_tFake->bHold || bHold;
            strResults += " " + std::to_string(Call(strCall.substr(0, strCall.find('+'))));
            g_tFake->bHold = bHold;
            strLines += bHold ? "" : tLog.Take();
        }
        CSingleton<CWebConnector>::m_pObj = nullptr;
    }
    for (const std::string strFile : {"f", "f.bak", "precious"})
    {
        struct stat tStat = {};
        const bool bFile = lstat(strFile.c_str(), &tStat) == 0 && S_ISREG(tStat.st_mode);
        strLines += bFile ? "\n- file " + strFile + ": [" + ReadFile(strFile) + "]" : "";
        std::filesystem::remove(strFile);
    }
    EXPECT_EQ(g_tFake->lstWords, std::list<std::string>()) << "never met in " << strHeading;
    Replace(strLines, strAnswer.empty() ? "no answer" : strAnswer, "(answer)");
    return std::regex_replace(strHeading, std::regex("returns:( -?\\d+)*"), strResults) + strLines;
}

/** Runs the scenarios of a block. @return the block, or the output of a scenario that differs from it */
std::string RunBlock(const std::string& strBlock, std::set<std::string>& setKnown)
{
    const std::string strHeading = strBlock.substr(0, strBlock.find('\n'));
    const bool bChoice = strHeading.find('{') != std::string::npos;
    const std::string strChoices = bChoice ? Split(Split(strHeading, '{')[1], '}')[0] : "";
    std::string strResult = strBlock;
    const std::regex tResult("- (.*, )?(record|containers|file .*):");
    std::set<std::string> setNew;
    for (const std::string& strChoice : Split(strChoices + "|", '|'))
    {
        std::string strExpected = strBlock;
        Replace(strExpected, "{" + strChoices + "}", strChoice);
        Replace(strExpected, "{}", strChoice);
        std::string strSeen;
        for (const std::string& strLine : Split(RunScenario(strExpected.substr(0, strExpected.find('\n'))), '\n'))
        {
            strSeen += setKnown.count(strLine) > 0 ? "" : strSeen.empty() ? strLine : "\n" + strLine;
            strHeading[2] == '=' && !std::regex_search(strLine, tResult) ? setNew.insert({strLine, "  " + strLine})
                                                                         : void();
        }
        strResult = strSeen == strExpected ? strResult : strSeen;
    }
    setKnown.merge(setNew);
    return strResult;
}

} // namespace

TEST(Transcript, EqualsTheGoldenFiles)
{
    std::string strFolder = (std::filesystem::temp_directory_path() / "veltra-test-XXXXXX").string();
    ASSERT_NE(mkdtemp(strFolder.data()), nullptr);
    std::filesystem::current_path(strFolder);
    std::set<std::string> setKnown;
    for (const char* pszGolden : {GOLDEN_FOLDER "/engine.txt", GOLDEN_FOLDER "/queries.txt"})
    {
        std::string strGolden = ReadFile(pszGolden) + "\n";
        ASSERT_NE(strGolden, "\n") << pszGolden;
        Replace(strGolden, "\n\n", "\f");
        for (const std::string& strBlock : Split(strGolden, '\f'))
        {
            EXPECT_EQ(strBlock, strBlock[0] == '=' ? RunBlock(strBlock, setKnown) : strBlock);
        }
    }
    std::filesystem::remove_all(strFolder);
}

TEST(Platform, IdentityAndLogWorkInExitHandlers)
{
    static const std::string s_strIdentity(1000, 'd');
    static const auto s_fnLog = [] { CKVRDebug::PrintLog(0, "%s\n", s_strIdentity.c_str()); };
    const auto fnExit = []
    {
        const auto fnAtExit = [] // runs after the destructors of objects that are made later
        {
            const std::string strOther(s_strIdentity.size() + 2, 'o'); // reuses the memory of a freed text
            s_fnLog();
            int arrPipe[2] = {};
            EXPECT_EQ(pipe(arrPipe), 0);
            dup2(arrPipe[1], STDERR_FILENO);
            close(arrPipe[0]);
            s_fnLog(); // without a reader; must not raise SIGPIPE
            _exit(CAIAuth().GetDUID() == s_strIdentity && strOther.find('d') == std::string::npos ? 7 : 8);
        };
        std::atexit(fnAtExit);
        CAIAuth::SetIdentity({"X1", s_strIdentity, "", "", "", 0});
        s_fnLog();
        exit(0);
    };
    EXPECT_EXIT(fnExit(), testing::ExitedWithCode(7), "d\nd");
}

TEST(Platform, RecordsOfThreadsDoNotMix)
{
    const auto fnText = [](size_t i) { return std::string(i * 2 + i % 2, 'x'); }; // 127 and 128 are among them
    const auto fnLog = [&fnText]
    {
        for (size_t i = 0; i < 200; ++i)
        {
            CKVRDebug::PrintLog(4, "[KVR][T::f(%d)] ", 1);
            CKVRDebug::PrintLog(5, "dropped");
            CKVRDebug::PrintLog(4, "%s", fnText(i).c_str());
            CKVRDebug::PrintLog(4, "\n");
        }
    };
    CLogCapture tLog;
    std::thread tOther(fnLog);
    std::thread(fnLog).join();
    tOther.join();
    TEXTS_t vecRecords = Split(tLog.Take(), '\n');
    std::sort(vecRecords.begin(), vecRecords.end());
    ASSERT_EQ(vecRecords.size(), 401U);
    for (size_t i = 0; i < 400; ++i)
    {
        EXPECT_EQ(vecRecords[i + 1], "  info T::f: " + fnText(i / 2));
    }
}

TEST(Platform, ReadySinksRankAndFoldRecords)
{
    const std::string START = "Start http/https Request!\n", THRICE = "broken\nbroken\nbroken\n";
    const std::string FOLDED = "broken\n… 2 more like this\n";
    CLogSinks::FOLDING_t tPlain, tSyslog;
    tSyslog.pfnSink = &CLogSinks::WriteToSyslog;
    const std::tuple<CKVRDebug::LOG_SINK_t, void*, int, std::string> arrCases[] = {
        {nullptr, nullptr, LOG_ERR, START + THRICE + "information\nother\n"},
        {&CLogSinks::FoldRepeats, &tPlain, LOG_ERR, START + FOLDED + "information\nother\n"},
        {&CLogSinks::FoldRepeats, &tSyslog, LOG_ERR, FOLDED + "other\n"},
        {&CLogSinks::WriteToSyslog, nullptr, LOG_ERR, THRICE + "other\n"},
        {&CLogSinks::WriteToSyslog, nullptr, LOG_NOTICE, START + THRICE + "other\n"},
    };
    openlog("", LOG_PERROR, LOG_USER);
    for (const auto& [pfnSink, pUserData, nLowest, strExpected] : arrCases)
    {
        setlogmask(LOG_UPTO(nLowest));
        testing::internal::CaptureStderr(); // is no terminal
        CKVRDebug::SetSink(pfnSink, pUserData);
        CKVRDebug::SetLevel(4);
        for (const char* pszText : {"Start http/https Request!", "broken", "broken", "broken", "information", "other"})
        {
            CKVRDebug::PrintLog(pszText[0] == 'i' ? 4 : 0, "\033[1;31;42m %s\033[0m \n", pszText);
        }
        CKVRDebug::SetLevel(0);
        CKVRDebug::SetSink(nullptr, nullptr);
        std::string strSeen = testing::internal::GetCapturedStderr();
        Replace(strSeen, ": ", ""); // follows syslog's name of the program, which is empty
        EXPECT_EQ(strSeen, strExpected);
    }
    closelog();
}
