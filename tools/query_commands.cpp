#include <cstdio>

#include "commands.h"
#include "json.h"
#include "messages.h"
#include "options.h"
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
        JSON_t& tEntry = tEntries.emplace_back();
        for (const auto& tField : INFO_FIELDS)
        {
            tEntry[tField.pszName] = tInfo.*tField.pField;
        }
    }
    if (bJson)
    {
        return PrintJson(tEntries);
    }
    for (const JSON_t& tEntry : tEntries)
    {
        for (const auto& tField : tEntry.items())
        {
            printf("%-10s %s\n", tField.key().c_str(), Printable(tField.value().get<std::string>()).c_str());
        }
        puts("");
    }
}

int RunServers(const OPTIONS_t& tOptions, bool bJson)
{
    const CSession tSession(tOptions);
    std::vector<std::string> vecUrl;
    if (!GetServers(tSession, vecUrl))
    {
        return ExitStatus(CurrentReport());
    }
    if (bJson)
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

struct INFO_OPTIONS_t
{
    std::string strUrl;
    ENTRY_CHOICE_t tChoice;
    bool bJson = false;
};

int RunInfo(const OPTIONS_t& tOptions, const INFO_OPTIONS_t& tInfo)
{
    const CSession tSession(tOptions);
    INFO_MAP_t mapInfo;
    const std::string strReason = GetInfo(tInfo.tChoice, tInfo.strUrl, mapInfo);
    if (!strReason.empty())
    {
        PrintError(WithoutCredentials(tInfo.strUrl), strReason);
        return ExitStatus(CurrentReport());
    }
    PrintInfo(mapInfo, tInfo.bJson);
    return CheckIds(tInfo.tChoice, mapInfo) ? 0 : 1;
}

} // namespace

void AddQueryCommands(const ADD_COMMAND_t& fnAdd)
{
    const auto ptJson = std::make_shared<bool>(false);
    CLI::App& tServers = fnAdd("servers", "List the servers for this device",
                               [ptJson](const OPTIONS_t& tOptions) { return RunServers(tOptions, *ptJson); });
    tServers.add_flag("--json", *ptJson, "Print JSON");

    const auto ptInfo = std::make_shared<INFO_OPTIONS_t>();
    CLI::App& tInfo = fnAdd("info", "Show entries of a server's document",
                            [ptInfo](const OPTIONS_t& tOptions) { return RunInfo(tOptions, *ptInfo); });
    AddValue(tInfo, "URL", ptInfo->strUrl, "TEXT", NotEmpty(), "A document that the server list names")->required();
    AddEntryOptions(tInfo, ptInfo->tChoice);
    tInfo.add_flag("--json", ptInfo->bJson, "Print JSON");
}
