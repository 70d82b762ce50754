#pragma once

#include <string>

#include "veltra/export.h"
#include "veltra/platform/singleton.h"

/** What the desktop platform answers as the device's identity. */
struct DEVICE_IDENTITY_t
{
    std::string strChipset{};     /**< what GetChipset() answers */
    std::string strDUID{};        /**< what GetDUID() answers */
    std::string strMAC{};         /**< what GetMAC() answers */
    std::string strCountryCode{}; /**< what GetCountryCode() answers */
    std::string strModelID{};     /**< what GetModelID() answers */
    int nServerType = 0;          /**< 0: production query host, anything else: test query host */
};

/**
 * The device's identity, one per process: CSingleton<CAIAuth>::GetInstance(). The query client sends these texts
 * exactly as they are given, as header lines: none may hold a line break. All operations may be called from any thread.
 */
class VELTRA_API CAIAuth
{
public:
    std::string GetChipset();     /**< chipset name; without one no query is sent */
    std::string GetDUID();        /**< the device's unique identifier */
    std::string GetMAC();         /**< MAC address, in whatever form the query service expects */
    std::string GetCountryCode(); /**< country that the device is set up for */
    std::string GetModelID();     /**< the device's model */
    int GetiOstralSerType(); /**< server type: 0 selects the production query host, any other value the test host */

    /** Desktop platform only: sets what the operations above answer from now on. Everything is empty at start. */
    static void SetIdentity(const DEVICE_IDENTITY_t& tIdentity);
};

extern template class CSingleton<CAIAuth>;
