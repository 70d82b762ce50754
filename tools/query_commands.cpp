#include <cstdio>

#include "commands.h"
#include "json.h"
#include "query.h"
#include "text.h"
#include "url.h"

namespace
{

constexpr struct
{
    const char* pszName;
    std::string APPBIN_SERVER_INFO_t::*pField;
} INFO_FIELDS[] = {{"id", &APPBIN_SERVER_INFO_t::strId},           {"name", &APPBIN_SERVER_INFO_t::strName},
                   {"version", &APPBIN_SERVER_INFO_t::strVersion}, {"url", &APPBIN_SERVER_INFO_t::strUrl},
                   {"size", &APPBIN_SERVER_INFO_t::strSize},       {"signature", &APPBIN_SERVER_INFO_t::strSignature},
                   {"type", &APPBIN_SERVER_INFO_t::strType},       {"boot", &APPBIN_SERVER_INFO_t::strBoot}};

void PrintInfo(const INFO_MAP_t& mapInfo, bool bJson)
{
    JSON_t tEntries = JSON_t::array();
    for (const auto& [strId, tInfo] : mapInfo)
    {
        JSON_t tEntry;
        for (const auto& tField : INFO_FIELDS)
        {
            tEntry[tField.pszName] = tInfo.*tField.pField;
            if (!bJson)
            {
                printf("%-10s %s\n", tField.pszName, Printable(tInfo.*tField.pField).c_str());
            }
        }
        tEntries.push_back(tEntry);
        if (!bJson)
        {
            puts("");
        }
    }
    if (bJson)
    {
        PrintJson(tEntries);
    }
}

} // namespace

int RunServers(const OPTIONS_t& tOptions)
{
    CSession tSession(tOptions.bVerbose);
    std::vector<std::string> vecUrl;
    if (!GetServers(tSession, tOptions, vecUrl))
    {
        return 1;
    }
    if (tOptions.bJson)
    {
        PrintJson(vecUrl);
        return 0;
    }
    for (const std::string& strUrl : vecUrl)
    {
        puts(Printable(strUrl).c_str());
    }
    return 0;
}

int RunInfo(const OPTIONS_t& tOptions)
{
    CSession tSession(tOptions.bVerbose);
    INFO_MAP_t mapInfo;
    const std::string strReason = GetInfo(tSession, tOptions, tOptions.strUrl, mapInfo);
    if (!strReason.empty())
    {
        return PrintError(WithoutCredentials(tOptions.strUrl), strReason);
    }
    PrintInfo(mapInfo, tOptions.bJson);
    return CheckIds(tOptions, mapInfo) ? 0 : 1;
}
