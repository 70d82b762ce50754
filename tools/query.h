#pragma once

#include <map>
#include <string>
#include <vector>

#include "session.h"

typedef std::map<std::string, APPBIN_SERVER_INFO_t> INFO_MAP_t;

/** The entries that a command reads from a document: exactly one of these is set. */
struct ENTRY_CHOICE_t
{
    bool bCert = false;
    bool bDefault = false;            /**< those that are marked for boot */
    std::vector<std::string> vecId{}; /**< those with these identifiers */
};

/** Asks the query service for its servers, and prints a failure on standard error. @return false if it failed */
bool GetServers(const CSession& tSession, std::vector<std::string>& vecUrl);

/** Reads the chosen entries of a document. @return the reason of a failure; empty if the document could be read */
std::string GetInfo(const ENTRY_CHOICE_t& tChoice, const std::string& strUrl, INFO_MAP_t& mapInfo);

/** Prints the chosen identifiers that are missing on standard error. @return whether all were found */
bool CheckIds(const ENTRY_CHOICE_t& tChoice, const INFO_MAP_t& mapInfo);
