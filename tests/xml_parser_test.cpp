/* The readers of the two documents, and the log that they write to. */

#include <gtest/gtest.h>
#include <sstream>

#include "log_capture.h"
#include "veltra/xml/xml_parser.h"

namespace
{

typedef std::map<std::string, APPBIN_SERVER_INFO_t> INFO_MAP_t;
typedef std::vector<std::string> TEXTS_t;

typedef bool (*READER_t)(const std::string& strXml, TEXTS_t& vecText, INFO_MAP_t& mapInfo);

/* The four operations, in the order of OPERATIONS. */
const READER_t READERS[] = {
    [](const std::string& strXml, TEXTS_t& vecText, INFO_MAP_t&)
    { return CXmlParser().ParseAppBinaryServerUrlXml(strXml, vecText); },
    [](const std::string& strXml, TEXTS_t& vecText, INFO_MAP_t& mapInfo)
    { return CXmlParser().ParseAppBinaryServerInfoXml(strXml, mapInfo, vecText); },
    [](const std::string& strXml, TEXTS_t& vecText, INFO_MAP_t& mapInfo)
    { return CXmlParser().ParseCERTAppBinaryServerInfoXml(strXml, mapInfo, vecText); },
    [](const std::string& strXml, TEXTS_t& vecText, INFO_MAP_t& mapInfo)
    { return CXmlParser().ParseDefaultAppBinaryServerInfoXml(strXml, vecText, mapInfo); },
};
const std::string OPERATIONS[] = {"ParseAppBinaryServerUrlXml: ", "ParseAppBinaryServerInfoXml: ",
                                  "ParseCERTAppBinaryServerInfoXml: ", "ParseDefaultAppBinaryServerInfoXml: "};
/* The begin of what each logs of the number of its URLs or of one entry. */
const std::string INFORMATION[] = {"AppBinary sever url number = [", "Insert mapAppBinaryInfo a item: ID is [",
                                   "Insert mapCERTAppBinaryInfo a item: ID is [",
                                   "Insert mapAppBinaryInfo a default item: ID is ["};
enum
{
    LIST,
    WANTED,
    CERT,
    DEFAULT
};

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
    int nReader;
    std::string strXml;
    std::string strBefore; /**< the list's texts */
    std::string strAfter;
    std::string strMap;   /**< identifiers and URLs, besides one that is there before */
    std::string strLog;   /**< the variable part of each information record */
    std::string strError; /**< the error record of a document that is refused */
};

void Check(const READ_CASE_t& tCase)
{
    const std::string& strOperation = OPERATIONS[tCase.nReader];
    SCOPED_TRACE(strOperation + tCase.strXml);
    CLogCapture tLog("CXmlParser");
    TEXTS_t vecText = Split(tCase.strBefore);
    INFO_MAP_t mapInfo;
    mapInfo["old"].strUrl = "kept";
    EXPECT_EQ(READERS[tCase.nReader](tCase.strXml, vecText, mapInfo), tCase.strError.empty());
    EXPECT_EQ(vecText, Split(tCase.strAfter));
    std::string strMap;
    for (const auto& [strKey, tInfo] : mapInfo)
    {
        strMap += strKey + "=" + tInfo.strUrl + " ";
    }
    EXPECT_EQ(strMap, tCase.strMap + "old=kept ");
    std::string strLog = tCase.strError.empty() ? "" : "0! " + strOperation + tCase.strError + "\n";
    for (const std::string& strItem : Split(tCase.strLog))
    {
        strLog += "4 " + strOperation + INFORMATION[tCase.nReader] + strItem + (tCase.nReader == LIST ? "]!\n" : "]\n");
    }
    EXPECT_EQ(tLog.TakeOwn(), strLog);
}

} // namespace

TEST(XmlParser, RefusesWhatIsNoDocumentAndTouchesNothing)
{
    for (const int nReader : {LIST, WANTED, CERT, DEFAULT})
    {
        Check({nReader, "", "b|a", "b|a", "", "", "Input Xml info is empty!"});
        Check({nReader, "<emplist><file id='empCERT' boot='yes'/>", "b|empCERT", "b|empCERT", "", "",
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
    for (const int nReader : {WANTED, CERT, DEFAULT})
    {
        TEXTS_t vecText{"empCERT", "empCERT2"};
        INFO_MAP_t mapInfo;
        ASSERT_TRUE(READERS[nReader](strXml, vecText, mapInfo));
        std::string strFields;
        for (const auto& [strKey, tInfo] : mapInfo)
        {
            strFields += tInfo.strId + "|" + tInfo.strName + "|" + tInfo.strVersion + "|" + tInfo.strUrl + "|" +
                         tInfo.strSize + "|" + tInfo.strSignature + "|" + tInfo.strType + "|" + tInfo.strBoot + "\n";
        }
        EXPECT_EQ(strFields, "empCERT|\xC3\xA9|v 1|u<A|1k|<s>| t|yes\nempCERT2|||||||yes\n");
    }
}

TEST(Log, RecordsAreWholeWhateverTheThreadsAndGoWhereTheyShould)
{
    const std::string strText(2000, 'x');
    const auto fnLog = [&strText]
    {
        for (int i = 0; i < 200; ++i)
        {
            CKVRDebug::PrintLog(4, "[KVR][T::f(%d)] ", 1);
            CKVRDebug::PrintLog(5, "dropped");
            CKVRDebug::PrintLog(4, "%s", strText.c_str());
            CKVRDebug::PrintLog(4, "\n");
        }
    };
    testing::internal::CaptureStderr();
    CKVRDebug::PrintLog(0, "before\n");
    {
        CLogCapture tLog("T");
        std::thread tOne(fnLog);
        std::thread tTwo(fnLog);
        tOne.join();
        tTwo.join();
        std::string strExpected;
        for (int i = 0; i < 400; ++i)
        {
            strExpected += "4 f: " + strText + "\n";
        }
        EXPECT_TRUE(tLog.TakeOthers() == strExpected);
    }
    CKVRDebug::PrintLog(4, "information\n");
    CKVRDebug::PrintLog(0, "%s", "after");
    CKVRDebug::PrintLog(0, "\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "before\nafter\n");
}
