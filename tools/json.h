#pragma once

#include <cstdio>
#include <nlohmann/json.hpp>

#include "download.h"

typedef nlohmann::ordered_json JSON_t;

/** Prints JSON on standard output. Replaces bytes that are not UTF-8. */
inline void PrintJson(const JSON_t& tJson)
{
    puts(tJson.dump(2, ' ', false, JSON_t::error_handler_t::replace).c_str());
}

/** Adds the result of a download to its record. */
inline void AddEnd(JSON_t& tJson, const DOWNLOAD_END_t& tEnd)
{
    const WQCurl::TRANSFER_REPORT_t& tReport = tEnd.tReport;
    tJson["result"] = StateName(tEnd.eState);
    tJson["reason"] = tEnd.strReason;
    tJson["status"] = tReport.nHttpStatus;
    tJson["bytes"] = tReport.nBytes;
    tJson["attempts"] = tReport.nAttempts;
    tJson["peer"] = tReport.strPeer;
    tJson["reused"] = tReport.bReused;
    tJson["look_up"] = tReport.dLookUp;
    tJson["connect"] = tReport.dConnect;
    tJson["tls"] = tReport.dTls;
    tJson["first_byte"] = tReport.dFirstByte;
    tJson["total"] = tReport.dTotal;
    tJson["code"] = tReport.nResultCode;
}
