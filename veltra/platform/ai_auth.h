#pragma once

#include <string>

#include "veltra/export.h"
#include "veltra/platform/singleton.h"

/** The device's identity on the desktop platform. */
struct DEVICE_IDENTITY_t
{
    std::string strChipset{};     /**< the result of GetChipset() */
    std::string strDUID{};        /**< the result of GetDUID() */
    std::string strMAC{};         /**< the result of GetMAC() */
    std::string strCountryCode{}; /**< the result of GetCountryCode() */
    std::string strModelID{};     /**< the result of GetModelID() */
    int nServerType = 0;          /**< the result of GetiOstralSerType() */
};

/**
 * The device's identity, one per process, which CSingleton<CAIAuth>::GetInstance() returns. The query client sends the
 * texts unchanged as header lines: none may hold a line break. Any thread may call any operation.
 */
class VELTRA_API CAIAuth
{
public:
    std::string GetChipset();     /**< the chipset's name; if it is empty, no query is sent */
    std::string GetDUID();        /**< the device's unique identifier */
    std::string GetMAC();         /**< the MAC address, in the form that the query service expects */
    std::string GetCountryCode(); /**< the country that the device is set up for */
    std::string GetModelID();     /**< the device's model */
    int GetiOstralSerType(); /**< the server type: 0 selects the production query host, any other value the test host */

    /** Sets the results of the operations above, which are empty or 0 at start. Desktop platform only. */
    static void SetIdentity(const DEVICE_IDENTITY_t& tIdentity);
};

extern template class CSingleton<CAIAuth>;
