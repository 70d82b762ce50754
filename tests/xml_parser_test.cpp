/* The readers of the two documents, and the log that they write to. */

#include <gtest/gtest.h>
#include <sstream>

#include "log_capture.h"
#include "veltra/xml/xml_parser.h"

namespace
{

typedef std::map<std::string, APPBIN_SERVER_INFO_t> INFO_MAP_t;
typedef std::vector<std::string> TEXTS_t;

/** One of the four operations, and what it logs of the number of its URLs or of one entry. */
struct READER_t
{
    std::string strOperation;
    std::string strBefore;
    std::string strAfter;
    bool (*pfnRead)(const std::string& strXml, TEXTS_t& vecText, INFO_MAP_t& mapInfo);
};

const READER_t LIST{"CXmlParser::ParseAppBinaryServerUrlXml", "AppBinary sever url number = [", "]!",
                    [](const std::string& strXml, TEXTS_t& vecText, INFO_MAP_t&)
                    { return CXmlParser().ParseAppBinaryServerUrlXml(strXml, vecText); }};
const READER_t WANTED{"CXmlParser::ParseAppBinaryServerInfoXml", "Insert mapAppBinaryInfo a item: ID is [", "]",
                      [](const std::string& strXml, TEXTS_t& vecText, INFO_MAP_t& mapInfo)
                      { return CXmlParser().ParseAppBinaryServerInfoXml(strXml, mapInfo, vecText); }};
const READER_t CERT{"CXmlParser::ParseCERTAppBinaryServerInfoXml", "Insert mapCERTAppBinaryInfo a item: ID is [", "]",
                    [](const std::string& strXml, TEXTS_t& vecText, INFO_MAP_t& mapInfo)
                    { return CXmlParser().ParseCERTAppBinaryServerInfoXml(strXml, mapInfo, vecText); }};
const READER_t DEFAULT{"CXmlParser::ParseDefaultAppBinaryServerInfoXml",
                       "Insert mapAppBinaryInfo a default item: ID is [", "]",
                       [](const std::string& strXml, TEXTS_t& vecText, INFO_MAP_t& mapInfo)
                       { return CXmlParser().ParseDefaultAppBinaryServerInfoXml(strXml, vecText, mapInfo); }};

/** "a|b" as two texts. */
TEXTS_t Split(const std::string& strTexts)
{
    TEXTS_t vecText;
    std::istringstream tTexts(strTexts);
    for (std::string strText; std::getline(tTexts, strText, '|');)
    {
        vecText.push_back(strText);
    }
    return vecText;
}

std::string Notice(const std::string& strEntries)
{
    return "<rsp stat='ok'><rm><queryinfo><notice>" + strEntries + "</notice></queryinfo></rm></rsp>";
}

const std::string MIXED = "<emplist><file id='a' url='1' boot='yes'/><x><file id='a'/></x><x id='a' boot='yes'/>"
                          "<file id='a' url='2' boot='yes'/><file id='old' url='3' boot='yes'/>"
                          "<file id='A' boot='Yes'/><file id=' a' boot=' yes'/><file id='a ' boot='yes '/>"
                          "<file url='4' boot='yes'/><file id='n'/></emplist>";
const std::string CERTS = "<emplist><file id='empCERTz' url='1'/><file id='empCERT' url='2'/>"
                          "<file id='empCERTz' url='3'/><file id='empCERT1empCERT' url='4'/><file id='xempCERT'/>"
                          "<file id='EMPCERT'/><file id=' empCERT'/><file id='empCER'/><file/></emplist>";
const std::string SERVERS = "<s url='1'/> <!-- no --><?no no?><t url=' a&amp;b'><s url='no'/></t><s url='1'/>";

struct READ_CASE_t
{
    const READER_t& tReader;
    std::string strXml;
    std::string strBefore; /**< the list's texts */
    std::string strAfter;
    std::string strMap;   /**< identifiers and URLs, besides one that is there before */
    std::string strLog;   /**< the variable part of each information record */
    std::string strError; /**< the error record of a document that is refused */
};

void Check(const READ_CASE_t& tCase)
{
    const READER_t& tReader = tCase.tReader;
    SCOPED_TRACE(tReader.strOperation + " " + tCase.strXml);
    CLogCapture tLog;
    TEXTS_t vecText = Split(tCase.strBefore);
    INFO_MAP_t mapInfo;
    mapInfo["old"].strUrl = "kept";
    EXPECT_EQ(tReader.pfnRead(tCase.strXml, vecText, mapInfo), tCase.strError.empty());
    EXPECT_EQ(vecText, Split(tCase.strAfter));
    std::string strMap;
    for (const auto& [strKey, tInfo] : mapInfo)
    {
        strMap += strKey + "=" + tInfo.strUrl + " ";
    }
    EXPECT_EQ(strMap, tCase.strMap + "old=kept ");
    std::vector<LOG_RECORD_t> vecLog;
    for (const std::string& strItem : Split(tCase.strLog))
    {
        vecLog.push_back(InfoRecord(tReader.strOperation, tReader.strBefore + strItem + tReader.strAfter));
    }
    if (!tCase.strError.empty())
    {
        vecLog.push_back(ErrorRecord(tReader.strOperation, tCase.strError));
    }
    EXPECT_EQ(tLog.TakeOwn(), vecLog);
}

} // namespace

TEST(XmlParser, RefusesWhatIsNoDocumentAndTouchesNothing)
{
    for (const READER_t* ptReader : {&LIST, &WANTED, &CERT, &DEFAULT})
    {
        Check({*ptReader, "", "b|a", "b|a", "", "", "Input Xml info is empty!"});
        Check({*ptReader, "<emplist><file id='empCERT' boot='yes'/>", "b|empCERT", "b|empCERT", "", "",
               "doc.load strXml.c_str() error!"});
    }
    for (const char* pszXml : {"<rsp stat='OK'/>", "<rsp stat='ok '/>", "<rsp/>", "<a><rsp stat='ok'/></a>"})
    {
        Check({LIST, pszXml, "b|a", "b|a", "", "", "AppBinary server xml url stat is not ok!"});
    }
}

TEST(XmlParser, TakesWhatIsMeantAndKeepsWhatWasThere)
{
    const READ_CASE_t arrCases[] = {
        {LIST, "<rsp stat='ok'/>", "b|a", "b|a", "", "2", ""},
        {LIST, Notice(""), "", "", "", "0", ""},
        {LIST, Notice("</notice><notice><s url='no'/>"), "", "", "", "0", ""},
        {LIST, Notice(SERVERS), "b|a", "b|a|1| a&b|1", "", "5", ""},
        {LIST, Notice("text<![CDATA[x]]><s/>"), "a", "a||||", "", "4", ""},
        {LIST, Notice("<s url='1'/>") + std::string("\0<", 2), "", "1", "", "1", ""},
        {WANTED, "<other><file id='a'/></other>", "a", "a", "", "", ""},
        {WANTED, MIXED, "", "", "", "", ""},
        {WANTED, MIXED, "old|a|a|z", "old|a|a|z", "a=1 ", "a], URL is [1|a], URL is [2|old], URL is [3", ""},
        {WANTED, MIXED, "|z", "|z", "=4 ", "], URL is [4", ""},
        {CERT, MIXED, "b|a", "b|a", "", "", ""},
        {CERT, CERTS, "b", "b|empCERTz|empCERT|empCERTz|empCERT1empCERT", "empCERT=2 empCERT1empCERT=4 empCERTz=1 ",
         "empCERTz], URL is [1|empCERT], URL is [2|empCERTz], URL is [3|empCERT1empCERT], URL is [4", ""},
        {DEFAULT, CERTS, "b|a", "", "", "", ""},
        {DEFAULT, MIXED, "b|a", "a|a|old||", "=4 a=1 ", "a], URL is [1|a], URL is [2|old], URL is [3|], URL is [4", ""},
    };
    for (const READ_CASE_t& tCase : arrCases)
    {
        Check(tCase);
    }
}

TEST(XmlParser, ReadsEachFieldFromItsPlaceUnchanged)
{
    const std::string strXml =
        "<?xml version='1.0' encoding='latin1'?><emplist><file signature='no' boot='yes' type=' t' size='1k' "
        "url='u&lt;&#x41;' version='v\n1' name='\xC3\xA9' id='empCERT'><z>no</z>"
        "<signature><!-- --><![CDATA[<s>]]>no</signature><signature>no</signature></file>"
        "<file id='empCERT2' boot='yes'><signature/></file></emplist>";
    for (const READER_t* ptReader : {&WANTED, &CERT, &DEFAULT})
    {
        TEXTS_t vecText{"empCERT", "empCERT2"};
        INFO_MAP_t mapInfo;
        ASSERT_TRUE(ptReader->pfnRead(strXml, vecText, mapInfo));
        std::string strFields;
        for (const auto& [strKey, tInfo] : mapInfo)
        {
            strFields += tInfo.strId + "|" + tInfo.strName + "|" + tInfo.strVersion + "|" + tInfo.strUrl + "|" +
                         tInfo.strSize + "|" + tInfo.strSignature + "|" + tInfo.strType + "|" + tInfo.strBoot + "\n";
        }
        EXPECT_EQ(strFields, "empCERT|\xC3\xA9|v 1|u<A|1k|<s>| t|yes\nempCERT2|||||||yes\n");
    }
}

TEST(Log, RecordsAreWholeWhateverTheThreads)
{
    const auto fnLog = [](int nThread)
    {
        for (int i = 0; i < 200; ++i)
        {
            CKVRDebug::PrintLog(4, "[KVR][T::t%d(1)] ", nThread);
            CKVRDebug::PrintLog(5, "dropped");
            CKVRDebug::PrintLog(4, "%s", std::string(2000, 'x').c_str());
            CKVRDebug::PrintLog(4, "\n");
        }
    };
    CLogCapture tLog;
    std::thread tOne(fnLog, 1);
    std::thread tTwo(fnLog, 2);
    tOne.join();
    tTwo.join();
    std::map<std::string, int> mapCount;
    for (const LOG_RECORD_t& tRecord : tLog.TakeOthers())
    {
        mapCount[tRecord.strOperation] += tRecord.strText == std::string(2000, 'x') ? 1 : 0;
    }
    EXPECT_EQ(mapCount, (std::map<std::string, int>{{"T::t1", 200}, {"T::t2", 200}}));
}

TEST(Log, GoesToStandardErrorUnlessTakenAndLeavesOutInformation)
{
    testing::internal::CaptureStderr();
    CKVRDebug::PrintLog(0, "before\n");
    {
        CLogCapture tLog;
        CKVRDebug::PrintLog(4, "taken\n");
        EXPECT_EQ(tLog.TakeOwn(), (std::vector<LOG_RECORD_t>{{4, "", "taken\n", false}}));
    }
    CKVRDebug::PrintLog(4, "information\n");
    CKVRDebug::PrintLog(0, "%s", "after");
    CKVRDebug::PrintLog(0, "\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "before\nafter\n");
}
