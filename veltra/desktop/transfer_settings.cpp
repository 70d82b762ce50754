#include "veltra/desktop/prepared_settings.h"

#include <mutex>

namespace WQCurl
{

namespace
{

std::mutex g_tSettingsLock;

/** Lives as long as the process: transfers may be set up while its statics are destroyed. */
std::shared_ptr<const PREPARED_SETTINGS_t>& Settings()
{
    static auto* const s_pptSettings =
        new std::shared_ptr<const PREPARED_SETTINGS_t>(std::make_shared<PREPARED_SETTINGS_t>());
    return *s_pptSettings;
}

bool IsInRange(const TRANSFER_SETTINGS_t& tDefaults)
{
    constexpr long long LEAST_BYTES_PER_SECOND = 4096; // enough to stay clear of the low-speed limit of downloads
    const bool bFamily = tDefaults.eIpFamily == IP_FAMILY_ANY || tDefaults.eIpFamily == IP_FAMILY_4 ||
                         tDefaults.eIpFamily == IP_FAMILY_6;
    return bFamily && tDefaults.nConnectTimeout >= 1 && tDefaults.nConnectTimeout <= LONGEST_TIMEOUT &&
           tDefaults.nMostConnections >= 0 && tDefaults.nMostConnectionsPerHost >= 0 &&
           tDefaults.nMostIdleConnections >= 0 && tDefaults.nRetries >= 0 && tDefaults.nRetrySeconds >= 0 &&
           tDefaults.nLargestAnswer >= 0 && tDefaults.nLargestFile >= 0 &&
           (tDefaults.nMostBytesPerSecond == 0 || tDefaults.nMostBytesPerSecond >= LEAST_BYTES_PER_SECOND);
}

} // namespace

std::shared_ptr<const PREPARED_SETTINGS_t> CurrentSettings()
{
    const std::lock_guard<std::mutex> tGuard(g_tSettingsLock);
    return Settings();
}

bool SetTransferDefaults(const TRANSFER_SETTINGS_t& tDefaults)
{
    if (!IsInRange(tDefaults))
    {
        return false;
    }
    auto ptSettings = std::make_shared<PREPARED_SETTINGS_t>();
    ptSettings->tDefaults = tDefaults;
    if (!tDefaults.strProxy.empty() && !ParseProxy(tDefaults.strProxy, ptSettings->tProxy))
    {
        return false;
    }
    if (!BuildList(tDefaults.lstConnectTo, ptSettings->pConnectTo))
    {
        throw std::bad_alloc();
    }
    const std::lock_guard<std::mutex> tGuard(g_tSettingsLock);
    Settings() = std::move(ptSettings);
    return true;
}

} // namespace WQCurl
