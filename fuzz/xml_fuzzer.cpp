/* Tests the four readers against hostile documents: none crashes, and a refused document changes no container. */

#include <cstdlib>

#include "veltra/veltra.h"

extern "C" int LLVMFuzzerInitialize(int* /*pnArguments*/, char*** /*pppArguments*/)
{
    CKVRDebug::SetSink([](unsigned int, const char*, void*) {}, nullptr);
    CKVRDebug::SetLevel(4);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* pData, size_t nSize)
{
    const std::string strXml(reinterpret_cast<const char*>(pData), nSize);
    CXmlParser tParser;
    std::vector<std::string> vecUrl{"old"};
    std::vector<std::string> vecCert{"old"};
    std::vector<std::string> vecDefault{"old"};
    std::map<std::string, APPBIN_SERVER_INFO_t> mapWanted;
    std::map<std::string, APPBIN_SERVER_INFO_t> mapCert;
    std::map<std::string, APPBIN_SERVER_INFO_t> mapDefault;

    const bool bParsed = tParser.ParseAppBinaryServerInfoXml(strXml, mapWanted, {"a", "empCERT", ""});
    bool bHolds = tParser.ParseAppBinaryServerUrlXml(strXml, vecUrl) || vecUrl.size() == 1;
    bHolds = tParser.ParseCERTAppBinaryServerInfoXml(strXml, mapCert, vecCert) == bParsed && bHolds;
    bHolds = tParser.ParseDefaultAppBinaryServerInfoXml(strXml, vecDefault, mapDefault) == bParsed && bHolds;
    bHolds = mapWanted.size() <= 3 && vecCert.size() >= mapCert.size() + 1 && bHolds;
    bHolds = (bParsed ? vecDefault.size() >= mapDefault.size() : vecDefault.size() == 1) && bHolds;
    for (const auto& [strId, tInfo] : mapCert)
    {
        bHolds = strId.rfind("empCERT", 0) == 0 && tInfo.strId == strId && bHolds;
    }
    if (!bHolds)
    {
        abort();
    }
    return 0;
}
