#pragma once

#include <map>
#include <string>
#include <vector>

#include "options.h"
#include "session.h"

typedef std::map<std::string, APPBIN_SERVER_INFO_t> INFO_MAP_t;

/** Asks the query service. @return whether it answered with a list; if not, it is said on standard error */
bool GetServers(CSession& tSession, const OPTIONS_t& tOptions, std::vector<std::string>& vecUrl);

/** Reads the entries that the options choose. @return why there are none; empty when the document could be read */
std::string GetInfo(CSession& tSession, const OPTIONS_t& tOptions, const std::string& strUrl, INFO_MAP_t& mapInfo);

/** Says on standard error which identifiers of the options are missing. @return whether none is */
bool CheckIds(const OPTIONS_t& tOptions, const INFO_MAP_t& mapInfo);
