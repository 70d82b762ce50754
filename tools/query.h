#pragma once

#include <map>
#include <string>
#include <vector>

#include "session.h"

typedef std::map<std::string, APPBIN_SERVER_INFO_t> INFO_MAP_t;

enum ENTRIES_e
{
    ENTRIES_BY_ID,
    ENTRIES_CERT,
    ENTRIES_DEFAULT /**< marked for boot */
};

/** The entries that a command reads from a document. */
struct ENTRY_CHOICE_t
{
    ENTRIES_e eEntries = ENTRIES_BY_ID;
    std::vector<std::string> vecId{}; /**< for ENTRIES_BY_ID; empty: no choice was made */
};

/** Asks the query service for its servers, and prints a failure on standard error. @return false if it failed */
bool GetServers(const CSession& tSession, std::vector<std::string>& vecUrl);

/** Reads the chosen entries of a document. @return the reason of a failure; empty if the document could be read */
std::string GetInfo(const ENTRY_CHOICE_t& tChoice, const std::string& strUrl, INFO_MAP_t& mapInfo);

/** Prints the chosen identifiers that are missing on standard error. @return whether all were found */
bool CheckIds(const ENTRY_CHOICE_t& tChoice, const INFO_MAP_t& mapInfo);
