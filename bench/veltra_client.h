#pragma once

#include "veltra/veltra.h"

/** Starts the engine without a log. @param strCaFile the authorities to trust */
inline CWebConnector& StartEngine(const std::string& strCaFile)
{
    CKVRDebug::SetSink([](unsigned int, const char*, void*) {}, nullptr);
    WQCurl::SetTransferDefaults({strCaFile, {}});
    CWebConnector& tEngine = *CSingleton<CWebConnector>::GetInstance();
    tEngine.Create();
    return tEngine;
}
