/* Lack of memory: the n-th allocation of a thread fails, for every n, and so do all large ones. */

#include <algorithm>
#include <cstdlib>
#include <new>
#include <pugixml.hpp>

#include "engine_fixture.h"

namespace
{

thread_local bool t_bMayLackMemory = false; // allocations of this thread are calls of "new", which may fail
std::atomic<size_t> g_nLargest{SIZE_MAX};

void* Allocate(size_t nSize)
{
    const bool bFails = t_bMayLackMemory && strcmp(g_tCalls.pszFailing, "new") == 0 && g_tCalls.nUntilFailure-- == 0;
    return bFails || nSize > g_nLargest ? nullptr : malloc(nSize);
}

} // namespace

bool Try(const std::function<bool()>& fnOperation)
{
    t_bMayLackMemory = true;
    bool bDone = false;
    try
    {
        bDone = fnOperation();
    }
    catch (const std::bad_alloc&)
    {
    }
    t_bMayLackMemory = false;
    return bDone;
}

/** Runs an operation with its first, second, third … allocation failing, until it ends without meeting the failure. */
static void FailEveryAllocation(
    const std::function<void()>& fnOperation, const std::function<void()>& fnCheckAfterFailure = [] {})
{
    int nRounds = 0;
    for (bool bMet = true; bMet; ++nRounds)
    {
        SCOPED_TRACE("with allocation " + std::to_string(nRounds) + " failing");
        g_tCalls.Fail("new", ENOMEM, nRounds);
        Try([&] { return fnOperation(), true; });
        bMet = g_tCalls.nUntilFailure < 0;
        bMet ? fnCheckAfterFailure() : void();
    }
    EXPECT_GT(nRounds, 1);
}

void* operator new(size_t nSize)
{
    void* pMemory = Allocate(nSize);
    return pMemory != nullptr ? pMemory : throw std::bad_alloc();
}

void operator delete(void* pMemory) noexcept
{
    free(pMemory);
}

void operator delete(void* pMemory, size_t /*nSize*/) noexcept
{
    free(pMemory);
}

TEST_F(CEngineTest, ReadersPassTheExceptionOrRefuseTheDocument)
{
    pugi::set_memory_management_functions(&Allocate, &free);
    CKVRDebug::SetLevel(4); // formatting a record may lack memory too, and then loses its text alone
    const std::string strLong(100, 'x');
    const std::string strInformation =
        "<emplist><file id='empCERT" + strLong + "' boot='yes' url='" + strLong + "'/></emplist>";
    const std::string strList =
        "<rsp stat='ok'><rm><queryinfo><notice><s url='" + strLong + "'/></notice></queryinfo></rm></rsp>";
    CXmlParser tParser;
    static std::map<std::string, APPBIN_SERVER_INFO_t> mapInfo;
    static std::vector<std::string> vecId{"empCERT" + strLong};
    std::vector<std::string> vecUrl;
    static size_t nLeastLogged = 100;
    const auto fnOnRecord = [](unsigned int /*nLevel*/, const char* pszRecord, void* /*pUserData*/)
    {
        const bool bEntry = std::string_view(pszRecord).find("Insert") != std::string_view::npos;
        nLeastLogged = bEntry ? std::min({nLeastLogged, vecId.size(), mapInfo.size()}) : nLeastLogged;
    };
    CKVRDebug::SetSink(fnOnRecord, nullptr);
    FailEveryAllocation([&] { tParser.ParseAppBinaryServerUrlXml(strList, vecUrl); });
    FailEveryAllocation([&] { tParser.ParseAppBinaryServerInfoXml(strInformation, mapInfo, vecId); });
    const std::string strLonger(100000, 'x');
    FailEveryAllocation([&] { EXPECT_NO_THROW(CKVRDebug::PrintLog(4, "%s", strLonger.c_str())); });
    /* A record is inserted before its identifier is appended. */
    const auto fnInOrder = [&]
    {
        EXPECT_LE(vecId.size(), mapInfo.size());
        vecId.clear();
        mapInfo.clear();
    };
    fnInOrder();
    FailEveryAllocation([&] { tParser.ParseCERTAppBinaryServerInfoXml(strInformation, mapInfo, vecId); }, fnInOrder);
    fnInOrder();
    FailEveryAllocation([&] { tParser.ParseDefaultAppBinaryServerInfoXml(strInformation, vecId, mapInfo); }, fnInOrder);
    EXPECT_EQ(nLeastLogged, 1U) << "an entry is logged last";
    pugi::set_memory_management_functions(&malloc, &free);
    CKVRDebug::SetLevel(0);
    CKVRDebug::SetSink(nullptr, nullptr);
}

TEST_F(CEngineTest, AnswerThatDoesNotFitIntoMemoryFailsAlone)
{
    OUTCOME_t tLarge;
    g_nLargest = 1500000; // enough for the body, but not for the next power of two
    EXPECT_TRUE(Start(tLarge, Url("/1200000")));
    EXPECT_TRUE(Get(Url("/5")));
    EXPECT_TRUE(tLarge.tEnded.Wait());
    EXPECT_FALSE(tLarge.bResult);
    EXPECT_NE(tLarge.strError.find("writ"), std::string::npos) << tLarge.strError;

    m_tSettings.nRetries = 1; // keeps the tag
    m_strRaw = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\nETag: \"" + std::string(60000, 't') + "\"\r\n\r\n";
    g_nLargest = 50000;
    EXPECT_EQ(Download(Url(RAW)), DOWNLOAD_TYPE_FAIL);
    g_nLargest = SIZE_MAX;
}
