#include "veltra/platform/desktop/transfer_defaults.h"

#include <mutex>

namespace WQCurl
{

namespace
{

std::mutex g_tSettingsLock;

/** Lives as long as the process: transfers may be set up while its statics are destroyed. */
std::shared_ptr<const TRANSFER_SETTINGS_t>& Settings()
{
    static auto* const s_pptSettings =
        new std::shared_ptr<const TRANSFER_SETTINGS_t>(std::make_shared<TRANSFER_SETTINGS_t>());
    return *s_pptSettings;
}

} // namespace

std::shared_ptr<const TRANSFER_SETTINGS_t> CurrentSettings()
{
    const std::lock_guard<std::mutex> tGuard(g_tSettingsLock);
    return Settings();
}

void SetTransferDefaults(const TRANSFER_DEFAULTS_t& tDefaults)
{
    auto ptSettings = std::make_shared<TRANSFER_SETTINGS_t>();
    ptSettings->tDefaults = tDefaults;
    if (!BuildList(tDefaults.lstConnectTo, ptSettings->pConnectTo))
    {
        throw std::bad_alloc();
    }
    const std::lock_guard<std::mutex> tGuard(g_tSettingsLock);
    Settings() = std::move(ptSettings);
}

} // namespace WQCurl
