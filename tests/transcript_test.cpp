/* The records, steps and callbacks of the engine over a fake wrapper, which has faults that a real one does not
 * produce, and of the queries over that. golden/ holds the scenarios with what comes of them; CONTRIBUTING.md tells how
 * that is read. */

#include <algorithm>
#include <condition_variable>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
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

    /** Waits until the worker has no more to do, or goes on forever. */
    void WaitForOthers()
    {
        std::unique_lock<std::mutex> tGuard(m_tLock);
        const auto fnLogged = [&]
        {
            return m_strOthers.find("Have Handled all http/https Requests!") != std::string::npos ||
                   m_strOthers.find("Remove request error!") != std::string::npos;
        };
        EXPECT_TRUE(m_tChanged.wait_for(tGuard, std::chrono::seconds(20), fnLogged)) << m_strOthers;
    }

private:
    static void OnRecord(unsigned int nLevel, const char* pszRecord, void* pUserData)
    {
        CKVRDebug::PrintLog(0, "dropped, as it would wait for itself\n");
        auto* ptThis = static_cast<CLogCapture*>(pUserData);
        std::string strLine = pszRecord;
        const std::lock_guard<std::mutex> tGuard(ptThis->m_tLock);
        std::string& strSeen =
            std::this_thread::get_id() == ptThis->m_tCreator ? ptThis->m_strOwn : ptThis->m_strOthers;
        if (strLine.rfind("[KVR][", 0) == 0)
        {
            /* Less the source line's number, and the frame in short; what is malformed shows. */
            const size_t nNumber = strLine.find('(') + 1;
            strLine.erase(nNumber, strLine.find_first_not_of("0123456789", nNumber) - nNumber);
            const bool bFramed = strLine.find("()] \033[1;31;42m ") != std::string::npos;
            Replace(strLine, "[KVR][", std::to_string(nLevel) + " ");
            Replace(strLine, bFramed ? "()] \033[1;31;42m " : "()] ", bFramed ? "! " : ": ");
            Replace(strLine, bFramed ? "\033[0m \n" : "\n", "\n");
            strLine.pop_back();
            Replace(strLine, "\n", "↵");
            strLine += "\n";
        }
        const std::string strLast = strSeen.substr(strSeen.rfind('\n', strSeen.size() - 2) + 1);
        if (strLine.rfind("- ", 0) == 0 && strLast.rfind("- ", 0) == 0 && strLast.find('=') == std::string::npos)
        {
            /* Steps share a line, but for the options. */
            strSeen.pop_back();
            strLine.replace(0, 2, ", ");
        }
        strSeen += strLine;
        ptThis->m_tChanged.notify_all();
    }

    const std::thread::id m_tCreator = std::this_thread::get_id();
    std::mutex m_tLock;
    std::condition_variable m_tChanged;
    std::string m_strOwn;
    std::string m_strOthers;
};

CWebConnector& Engine()
{
    return *CSingleton<CWebConnector>::GetInstance();
}

/** Names the engine's request list, which no public operation shows. */
auto& RequestList(CWebConnector& tEngine);
template <auto LIST> struct REQUEST_LIST_t
{
    friend auto& RequestList(CWebConnector& tEngine) { return tEngine.*LIST; }
};
template struct REQUEST_LIST_t<&CWebConnector::m_lstRequest>;

char g_szUser[] = "user";
_HTTP_REQ_INFO_t* g_ptRequest = nullptr; /**< the caller's record of the last request */

void OnRequest(bool bResult, std::string& strErrorMsg, std::string& strResponse, void* pUserData)
{
    Note("callback: " + std::to_string(bResult) + " [" + strErrorMsg + "] [" + strResponse + "] " +
         static_cast<const char*>(pUserData));
    g_tFake->Allows("again") ? void() : void(Engine().Post(g_ptRequest, false));
}

void OnDownload(int nId, DOWNLOAD_TYPE_e eType, int nPercent, double dSpeed, void* pUserData)
{
    Note((eType == DOWNLOAD_TYPE_PROGRESS ? "" : "event " + std::to_string(eType) + ": ") + std::to_string(nPercent) +
         " %");
    EXPECT_EQ(dSpeed, eType == DOWNLOAD_TYPE_PROGRESS ? 0.0 : 1.5);
    EXPECT_EQ(pUserData, g_szUser);
    EXPECT_EQ(nId, 7);
}

/** Get() is called for the synchronous, Post() for the asynchronous: the record's method decides. */
int StartHttp(HTTP_METHOD_e eMethod, bool bSync, const std::list<std::string>& lstHeader)
{
    _HTTP_REQ_INFO_t tRequest;
    tRequest.eMethod = g_tFake->Allows("method") ? eMethod : 3;
    tRequest.strUrl = "http://x/";
    tRequest.lstHeader = lstHeader;
    tRequest.bResult = bSync; // as another request has left them
    tRequest.strErrorReason = bSync ? "stale" : "";
    tRequest.strResponse = "old ";
    tRequest.pfnRequestCB = g_tFake->Allows("callback") ? &OnRequest : nullptr;
    tRequest.pUserData = g_szUser;
    g_tFake->Allows("semaphore") ? void() : g_tFake->lstRefused.push_back("sem_init"); // the engine has made its own
    const _HTTP_REQ_INFO_t tBefore = tRequest;
    g_ptRequest = g_tFake->Allows("request") ? &tRequest : nullptr;
    const bool bResult = bSync ? Engine().Get(g_ptRequest, true) : Engine().Post(g_ptRequest, false);
    const auto fnWrite = [](const _HTTP_REQ_INFO_t& t)
    {
        return "record: " + std::to_string(t.bResult) + " [" + t.strErrorReason + "] [" + t.strResponse +
               "], semaphore " + std::to_string(t.tSync.m_bCreated);
    };
    fnWrite(tRequest) != fnWrite(tBefore) ? Note(fnWrite(tRequest)) : void();
    return bResult;
}

std::string Url()
{
    return g_tFake->Allows("url") ? "http://x/" : "";
}

std::string Path()
{
    return !g_tFake->Allows("path")     ? ""
           : !g_tFake->Allows("folder") ? "no/f"
                                        : std::string("f\0", g_tFake->Allows("text") ? 1 : 2);
}

/** Puts something at a path before a scenario begins. Files are of a time that does not fit into 32 bits. */
void Prepare(const char* pszPath, const std::string& strWhat)
{
    const timespec arrAfter2038[2] = {{1LL << 32, 0}, {1LL << 32, 0}};
    const int nFailed = strWhat == "link"     ? symlink("precious", pszPath)
                        : strWhat[0] == '/'   ? symlink(strWhat.c_str(), pszPath)
                        : strWhat == "reader" ? open(pszPath, O_RDONLY | O_NONBLOCK) < 0 // lets the pipe be written to
                        : strWhat == "folder" ? mkdir(pszPath, 0700)
                        : strWhat == "pipe"   ? mkfifo(pszPath, 0600)
                                              : !(std::ofstream(pszPath) << strWhat).flush();
    EXPECT_EQ(nFailed, 0) << pszPath;
    EXPECT_EQ(utimensat(AT_FDCWD, pszPath, arrAfter2038, AT_SYMLINK_NOFOLLOW), 0) << pszPath;
}

/** Delivers a body, or makes the request one that the engine cannot finish. */
void Deliver(FAKE_TRANSFER_t& tTransfer)
{
    /* Handlers with a copy of each. A handler that the engine cannot free is found here, and so is no leak. */
    static auto* const s_plstKept = new std::list<std::pair<_REQ_HANDLER_t*, _REQ_HANDLER_t>>;
    auto* ptHandler = static_cast<_REQ_HANDLER_t*>(tTransfer.pPrivate);
    s_plstKept->emplace_back(ptHandler, *ptHandler);
    tTransfer.pPrivate = g_tFake->Allows("own") ? ptHandler : &s_plstKept->back().second;
    ptHandler->eReqType = g_tFake->Allows("kind") ? ptHandler->eReqType : 7;
    ptHandler->ptReqInfo = g_tFake->Allows("record") ? ptHandler->ptReqInfo : nullptr;
    ptHandler->pEasyHandle = g_tFake->Allows("handle") ? ptHandler->pEasyHandle : nullptr;

    char szData[] = "body";
    const bool bFile = tTransfer.pProgressData != nullptr;
    EXPECT_EQ(tTransfer.pfnWrite(szData, 1, 1, tTransfer.pWriteData), 1U);
    EXPECT_EQ(tTransfer.pfnWrite(szData + 1, 3, 1, tTransfer.pWriteData), bFile ? 1U : 3U);
    struct stat tStat = {}; // the standard library's would not take a date after 2038 on 32-bit systems
    EXPECT_TRUE(!bFile || (stat("f.bak", &tStat) == 0 && tStat.st_size == 4)) << "nothing is held back";
}

/** Lets a download go on a little, then cancels it. */
void Cancel(const FAKE_TRANSFER_t& tTransfer)
{
    EXPECT_EQ(tTransfer.pfnProgress(tTransfer.pProgressData, 100, 5, 0, 0), 0);
    EXPECT_EQ(tTransfer.pfnProgress(nullptr, 100, 5, 0, 0), 1);
    EXPECT_FALSE(Engine().CancelDownload(8, true));
    EXPECT_TRUE(Engine().CancelDownload(7, true));
    EXPECT_EQ(tTransfer.pfnProgress(tTransfer.pProgressData, 100, 25, 0, 0), 1);
}

/** Asks, and tells what is in the containers, which were not empty before, if it is something else now. */
template <class QUERY> std::function<int()> Query(QUERY fnQuery)
{
    return [fnQuery]
    {
        CAIAuth::SetIdentity({g_tFake->Allows("chipset") ? "X1" : "", "d-u:id", "00:11", "KR", "model",
                              g_tFake->Allows("production") ? 0 : -1});
        TEXTS_t vecText{"old", "a", "a", ""};
        std::map<std::string, APPBIN_SERVER_INFO_t> mapInfo;
        mapInfo["old"].strUrl = "kept";
        ICVeltra tFacade;
        const bool bResult = fnQuery(tFacade, Url(), vecText, mapInfo);
        std::string strLeft = "texts";
        for (const std::string& strText : vecText)
        {
            strLeft += " [" + strText + "]";
        }
        for (const auto& [strKey, tInfo] : mapInfo)
        {
            strLeft += ", " + strKey + ": " + tInfo.strId + "|" + tInfo.strName + "|" + tInfo.strVersion + "|" +
                       tInfo.strUrl + "|" + tInfo.strSize + "|" + tInfo.strSignature + "|" + tInfo.strType + "|" +
                       tInfo.strBoot;
        }
        strLeft != "texts [old] [a] [a] [], old: |||kept||||" ? Note(strLeft) : void();
        return bResult;
    };
}

/** What headings name. */
const std::map<std::string, std::function<int()>> STARTS{
    {"SYNC_POST", [] { return StartHttp(HTTP_METHOD_POST, true, {}); }},
    {"ASYNC_GET",
     [] {
         return StartHttp(HTTP_METHOD_GET, false, {"A:1", "B:2"});
     }},
    {"DOWNLOAD",
     [] {
         return Engine().StartDownload(7, Url(), Path(), g_tFake->Allows("callback") ? &OnDownload : nullptr, g_szUser);
     }},
    {"SYNC_DOWNLOAD", [] { return Engine().SyncDownloadFile(Url(), Path(), 60, 3); }},
    {"LIST_NULL", [] { return (RequestList(Engine()).push_back(nullptr), 0); }},
    {"CANCEL", [] { return Engine().CancelDownload(7, true); }},
    {"CREATE", [] { return Engine().Create(); }},
    {"DESTROY", [] { return (Engine().Destroy(), 0); }},
    {"GetAppBinaryServerUrl",
     Query([](auto& t, const auto&, auto& vec, auto&) { return t.GetAppBinaryServerUrl(vec); })},
    {"GetServerAppBinaryInfo", Query([](auto& t, const auto& strUrl, auto& vec, auto& map)
                                     { return t.GetServerAppBinaryInfo(strUrl, map, vec); })},
    {"GetCERTAppBinaryInfo",
     Query([](auto& t, const auto& strUrl, auto& vec, auto& map) { return t.GetCERTAppBinaryInfo(strUrl, map, vec); })},
    {"GetDefaultAppBinaryInfo", Query([](auto& t, const auto& strUrl, auto& vec, auto& map)
                                      { return t.GetDefaultAppBinaryInfo(strUrl, vec, map); })}};

const std::filesystem::path WHERE_STARTED = std::filesystem::current_path();

/** Runs one heading's scenario over a fresh fake and in a folder of its own. @return the results, a line, and all else
 */
std::string RunScenario(const std::string& strHeading)
{
    std::string strFolder = (std::filesystem::temp_directory_path() / "veltra-test-XXXXXX").string();
    EXPECT_NE(mkdtemp(strFolder.data()), nullptr);
    std::filesystem::current_path(strFolder);
    const std::string strWritten = strHeading.substr(std::min(strHeading.find('<'), strHeading.size()));
    std::string strDocument = strWritten;
    Replace(strDocument, "↵", "\n");
    Replace(strDocument, "\\0", std::string(1, '\0'));
    TEXTS_t vecStarts;
    g_tFake.emplace().fnTransfer = [&](FAKE_TRANSFER_t& tTransfer)
    {
        vecStarts[0].rfind("Get", 0) == 0
            ? static_cast<void>(tTransfer.pfnWrite(strDocument.data(), 1, strDocument.size(), tTransfer.pWriteData))
        : g_tFake->Allows("body") ? Deliver(tTransfer)
                                  : Cancel(tTransfer);
    };
    for (const std::string& strWord : Split(strHeading.substr(0, strHeading.find('<')), ' '))
    {
        const size_t nEquals = strWord.find('=');
        strWord[0] == '-'              ? g_tFake->lstRefused.push_back(strWord.substr(1))
        : nEquals != std::string::npos ? Prepare(strWord.substr(0, nEquals).c_str(), strWord.substr(nEquals + 1))
                                       : vecStarts.push_back(strWord);
    }
    std::string strSeen, strResults = "returned";
    {
        CLogCapture tLog;
        CWebConnector tEngine;
        CSingleton<CWebConnector>::m_pObj = &tEngine;
        if (g_tFake->Allows("CREATE"))
        {
            tEngine.Create();
        }
        for (const std::string& strStart : vecStarts)
        {
            g_tFake->nTogether += strStart.back() == '+' ? 1 : 0;
            strResults += " " + std::to_string(STARTS.at(strStart.substr(0, strStart.find('+')))());
            if (strStart.back() == '+')
            {
                continue; // goes on together with the next
            }
            const std::string strCaller = tLog.Take(true);
            if (strCaller.find("New Request come!") != std::string::npos)
            {
                tLog.WaitForOthers();
            }
            const std::string strWorker = tLog.Take(false);
            strSeen += strCaller + (strWorker.empty() ? "" : "worker:\n" + strWorker);
        }
        CSingleton<CWebConnector>::m_pObj = nullptr;
    }
    for (const char* pszFile : {"f", "f.bak", "precious"})
    {
        struct stat tStat = {}; // the standard library's would not take a date after 2038 on 32-bit systems
        const bool bFile = lstat(pszFile, &tStat) == 0 && S_ISREG(tStat.st_mode);
        strSeen += bFile ? std::string("file ") + pszFile + ": [" + ReadFile(pszFile) + "]\n" : "";
    }
    Replace(strSeen, strWritten.empty() ? "no document" : strWritten, "(document)");
    std::filesystem::current_path(WHERE_STARTED);
    std::filesystem::remove_all(strFolder);
    return strResults + "\n" + strSeen;
}

/** Runs a golden file's scenarios, and compares what comes of each, less what is known already or holds strIgnored. */
void ExpectGolden(const std::string& strName, const std::string& strIgnored)
{
    std::set<std::string> setKnown;
    std::string strGolden = ReadFile(GOLDEN_FOLDER "/" + strName);
    Replace(strGolden, "\n\n", "\f");
    for (const std::string& strBlock : Split(strGolden, '\f'))
    {
        TEXTS_t vecHeadings;
        std::string strBelow;
        for (const std::string& strLine : Split(strBlock, '\n'))
        {
            strLine.rfind("==", 0) == 0 ? vecHeadings.push_back(strLine) : void(strBelow += strLine + "\n");
        }
        for (const std::string& strHeading : vecHeadings)
        {
            std::set<std::string> setNew;
            const size_t nChoice = strHeading.rfind(' ', strHeading.find('|')) + 1;
            const bool bChoice = strHeading.find('|') != std::string::npos;
            const std::string strChoice =
                bChoice ? strHeading.substr(nChoice, strHeading.find(' ', nChoice) - nChoice) : "";
            for (const std::string& strChosen : Split(strChoice + "|", '|'))
            {
                const size_t nColon = strHeading.find(": ");
                std::string strScenario = strHeading.substr(nColon + 2);
                bChoice ? Replace(strScenario, strChoice, strChosen) : void();
                const size_t nResults = strHeading.find(' ') + 1;
                std::string strExpected =
                    "returned " + strHeading.substr(nResults, nColon - nResults) + "\n" + strBelow;
                Replace(strExpected, "{}", strChosen.substr(strChosen.rfind('-', 0) + 1));
                std::string strSeen;
                for (const std::string& strLine : Split(RunScenario(strScenario), '\n'))
                {
                    const bool bIgnored = setKnown.count(strLine) > 0 || strLine.find(strIgnored) != std::string::npos;
                    strSeen += bIgnored ? "" : strLine + "\n";
                    const bool bResult = strLine.find("record:") != std::string::npos ||
                                         strLine.rfind("file", 0) == 0 || strLine.rfind("- texts", 0) == 0 ||
                                         strLine.rfind("returned", 0) == 0;
                    strHeading[2] == '=' && !bResult ? void(setNew.insert(strLine)) : void();
                }
                EXPECT_EQ(strExpected, strSeen) << "in " << strName << " " << strHeading << ": " << strChosen;
            }
            setKnown.merge(setNew);
        }
    }
    EXPECT_FALSE(setKnown.empty());
}

} // namespace

TEST(Transcript, OfTheEngine)
{
    ExpectGolden("engine.txt", "\n"); // no line holds that
}

TEST(Transcript, OfTheQueries)
{
    ExpectGolden("queries.txt", "WebConnector::");
}

TEST(Platform, IdentityAndLogServeUntilTheProcessHasEnded)
{
    static const std::string s_strIdentity(1000, 'd');
    static const auto s_fnLog = [] { CKVRDebug::PrintLog(0, "%s\n", s_strIdentity.c_str()); };
    const auto fnExit = []
    {
        const auto fnAtExit = [] // goes after what is made later
        {
            const std::string strOther(s_strIdentity.size() + 2, 'o'); // takes the place of a text that has been freed
            s_fnLog();
            int arrPipe[2] = {};
            EXPECT_EQ(pipe(arrPipe), 0);
            dup2(arrPipe[1], STDERR_FILENO);
            close(arrPipe[0]);
            s_fnLog(); // has no reader, and raises no signal
            _exit(CAIAuth().GetDUID() == s_strIdentity && strOther.find('d') == std::string::npos ? 7 : 8);
        };
        std::atexit(fnAtExit);
        CAIAuth::SetIdentity({"X1", s_strIdentity, "", "", "", 0});
        s_fnLog();
        exit(0);
    };
    EXPECT_EXIT(fnExit(), testing::ExitedWithCode(7), "d\nd");
}

TEST(Platform, RecordsAreWholeAndGoWhereTheyShouldAndSemaphoresAreNotCopied)
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
    testing::internal::CaptureStderr();
    CKVRDebug::PrintLog(0, "before\n");
    {
        CLogCapture tLog;
        std::thread tOther(fnLog);
        std::thread(fnLog).join();
        tOther.join();
        TEXTS_t vecRecords = Split(tLog.Take(false), '\n');
        std::sort(vecRecords.begin(), vecRecords.end());
        ASSERT_EQ(vecRecords.size(), 400U);
        for (size_t i = 0; i < 400; ++i)
        {
            EXPECT_EQ(vecRecords[i], "4 T::f: " + fnText(i / 2));
        }
    }
    CKVRDebug::PrintLog(4, "information\n");
    g_nInterruptions = 2;
    CKVRDebug::PrintLog(0, "after\n");
    CKVRDebug::PrintLog(4, "information without an end");
    CKVRDebug::PrintLog(0, "error\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "before\nafter\nerror\n");
    CKVRDebug::PrintLog(4, "\n");

    CSync tSync;
    EXPECT_TRUE(tSync.Create());
    EXPECT_FALSE(CSync(tSync).m_bCreated);
    g_nInterruptions = 2;
    tSync.Give();
    tSync.Take();
    EXPECT_EQ(g_nInterruptions, 0) << "an interrupted wait goes on";
}

TEST(Platform, ReadySinksColourTerminalsOnlyRankMilestonesAndFoldRepeats)
{
    const auto fnSeen = [](CKVRDebug::LOG_SINK_t pfnSink, void* pUserData)
    {
        testing::internal::CaptureStderr(); // which is no terminal
        CKVRDebug::SetSink(pfnSink, pUserData);
        CKVRDebug::SetLevel(4);
        for (const char* pszText : {"Start http/https Request!", "broken", "broken", "broken", "information", "other"})
        {
            CKVRDebug::PrintLog(pszText[0] == 'i' ? 4 : 0, "\033[1;31;42m %s\033[0m \n", pszText);
        }
        CKVRDebug::SetLevel(0);
        CKVRDebug::SetSink(nullptr, nullptr);
        return testing::internal::GetCapturedStderr();
    };
    const std::string strErrors = "broken\nbroken\nbroken\nother\n";
    EXPECT_EQ(fnSeen(nullptr, nullptr), "Start http/https Request!\nbroken\nbroken\nbroken\ninformation\nother\n");
    CLogSinks::FOLDING_t tFolding;
    EXPECT_EQ(fnSeen(&CLogSinks::FoldRepeats, &tFolding),
              "Start http/https Request!\nbroken\n… 2 more like this\ninformation\nother\n");
    openlog("", LOG_PERROR, LOG_USER);
    tFolding.pfnSink = &CLogSinks::WriteToSyslog;
    const auto fnSyslog = [&](int nLowest, CKVRDebug::LOG_SINK_t pfnSink = &CLogSinks::WriteToSyslog)
    {
        setlogmask(LOG_UPTO(nLowest));
        std::string strSeen = fnSeen(pfnSink, &tFolding);
        Replace(strSeen, ": ", ""); // behind an empty name
        return strSeen;
    };
    EXPECT_EQ(fnSyslog(LOG_ERR), strErrors);
    EXPECT_EQ(fnSyslog(LOG_ERR, &CLogSinks::FoldRepeats), "broken\n… 2 more like this\nother\n");
    EXPECT_EQ(fnSyslog(LOG_NOTICE), "Start http/https Request!\n" + strErrors);
    closelog();
}
