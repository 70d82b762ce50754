#pragma once

#include <cstdio>
#include <nlohmann/json.hpp>

#include "download.h"

typedef nlohmann::ordered_json JSON_t;

/** Returns JSON in ASCII, so that no text drives a terminal. Replaces bytes that are not UTF-8. */
template <typename Json> std::string JsonText(const Json& tJson)
{
    return tJson.dump(2, ' ', true, Json::error_handler_t::replace);
}

/** Prints JSON on standard output. */
inline void PrintJson(const JSON_t& tJson)
{
    puts(JsonText(tJson).c_str());
}

/** Adds the fields of a transfer's report. */
inline void AddReport(JSON_t& tResult, const WQCurl::TRANSFER_REPORT_t& tReport)
{
    tResult["final_url"] = tReport.strFinalUrl;
    tResult["status"] = tReport.nHttpStatus;
    tResult["bytes"] = tReport.nBytes;
    tResult["attempts"] = tReport.nAttempts;
    tResult["peer"] = tReport.strPeer;
    tResult["reused"] = tReport.bReused;
    tResult["look_up"] = tReport.dLookUp;
    tResult["connect"] = tReport.dConnect;
    tResult["tls"] = tReport.dTls;
    tResult["first_byte"] = tReport.dFirstByte;
    tResult["total"] = tReport.dTotal;
    tResult["code"] = tReport.nResultCode;
}

/** Prints the results of downloads as JSON. */
inline void PrintResults(const std::vector<DOWNLOAD_t>& vecDownload)
{
    JSON_t tResults = JSON_t::array();
    for (const DOWNLOAD_t& tDownload : vecDownload)
    {
        JSON_t& tResult = tResults.emplace_back();
        if (!tDownload.strEntry.empty())
        {
            tResult["entry"] = tDownload.strEntry;
        }
        tResult["url"] = tDownload.strUrl;
        tResult["file"] = tDownload.strFile;
        tResult["result"] = ResultName(tDownload);
        tResult["reason"] = tDownload.strReason;
        AddReport(tResult, tDownload.tReport);
    }
    PrintJson(tResults);
}
