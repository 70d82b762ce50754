#pragma once

#include <cstdio>
#include <nlohmann/json.hpp>

#include "download_run.h"

typedef nlohmann::ordered_json JSON_t;

/** On standard output; bytes that are no UTF-8 are replaced. */
inline void PrintJson(const JSON_t& tJson)
{
    puts(tJson.dump(2, ' ', false, JSON_t::error_handler_t::replace).c_str());
}

/** Adds what has become of a download. */
inline void AddEnd(JSON_t& tJson, const DOWNLOAD_END_t& tEnd)
{
    const WQCurl::TRANSFER_REPORT_t& tReport = tEnd.tReport;
    tJson["result"] = EndWord(tEnd);
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
