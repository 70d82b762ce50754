#pragma once

#include <string>

#include "veltra/export.h"
#include "veltra/platform/singleton.h"

/** What the desktop platform answers as the device's identity. */
struct DEVICE_IDENTITY_t
{
    std::string strChipset;
    std::string strDUID;
    std::string strMAC;
    std::string strCountryCode;
    std::string strModelID;
    int nServerType = 0; /**< 0: production query host, anything else: test query host */
};

/**
 * The device's identity, one per process: CSingleton<CAIAuth>::GetInstance(). The query client sends these texts
 * exactly as they are given. All operations may be called from any thread.
 */
class VELTRA_API CAIAuth
{
public:
    std::string GetChipset(); /**< chipset name; without one no query is sent */
    std::string GetDUID();
    std::string GetMAC();
    std::string GetCountryCode();
    std::string GetModelID();
    int GetiOstralSerType(); /**< server type: 0 selects the production query host, any other value the test host */

    /** Desktop platform only: sets what the operations above answer from now on. Everything is empty at start. */
    static void SetIdentity(const DEVICE_IDENTITY_t& tIdentity);
};

extern template class CSingleton<CAIAuth>;
