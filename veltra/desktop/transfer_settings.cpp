#include <algorithm>
#include <mutex>
#include <string_view>

#include "veltra/desktop/prepared_settings.h"

namespace WQCurl
{

namespace
{

std::mutex g_tSettingsLock;

/** The settings of this thread's innermost scope; null: there is none. */
thread_local const SETTINGS_PTR_t* t_pptScopeSettings = nullptr;

/** Lives as long as the process: transfers may be set up while its statics are destroyed. */
SETTINGS_PTR_t& DefaultSettings()
{
    static auto* const s_pptSettings = new SETTINGS_PTR_t(std::make_shared<PREPARED_SETTINGS_t>());
    return *s_pptSettings;
}

bool IsInRange(const TRANSFER_SETTINGS_t& tSettings)
{
    constexpr int MOST_REDIRECTS = 50;
    const bool bFamily = tSettings.eIpFamily == IP_FAMILY_ANY || tSettings.eIpFamily == IP_FAMILY_4 ||
                         tSettings.eIpFamily == IP_FAMILY_6;
    return bFamily && tSettings.nConnectTimeout >= 1 && tSettings.nConnectTimeout <= LONGEST_TIMEOUT &&
           tSettings.nMostConnections >= 0 && tSettings.nMostConnectionsPerHost >= 0 &&
           tSettings.nMostIdleConnections >= 0 && tSettings.nRetries >= 0 && tSettings.nRetrySeconds >= 0 &&
           tSettings.nMostRedirects >= 0 && tSettings.nMostRedirects <= MOST_REDIRECTS &&
           tSettings.nMostDownloads >= 0 && tSettings.nExpectedSize >= -1 && tSettings.nLargestAnswer >= 0 &&
           tSettings.nLargestFile >= 0;
}

/** Returns whether a text fits into one line: a control character could begin another header line. */
bool IsPlain(std::string_view strText)
{
    const auto fnIsControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; };
    return std::none_of(strText.begin(), strText.end(), fnIsControl);
}

bool IsSha256(std::string_view strDigits)
{
    constexpr size_t DIGITS = 64;
    return strDigits.size() == DIGITS &&
           strDigits.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

bool IsHeaderLine(const std::string& strLine)
{
    const size_t nColon = strLine.find(':');
    return nColon != std::string::npos && nColon > 0 && IsPlain(strLine);
}

/** Returns null for settings that cannot be used. */
SETTINGS_PTR_t Prepare(const TRANSFER_SETTINGS_t& tSettings)
{
    if (!IsInRange(tSettings) || (!tSettings.strExpectedSha256.empty() && !IsSha256(tSettings.strExpectedSha256)) ||
        !IsPlain(tSettings.strUserAgent) || !IsPlain(tSettings.strNoProxy) ||
        !std::all_of(tSettings.lstHeader.begin(), tSettings.lstHeader.end(), &IsHeaderLine))
    {
        return nullptr;
    }
    auto ptPrepared = std::make_shared<PREPARED_SETTINGS_t>();
    ptPrepared->tRecord = tSettings;
    if (!tSettings.strProxy.empty() && !ParseProxy(tSettings.strProxy, ptPrepared->tProxy))
    {
        return nullptr;
    }
    if (!BuildList(tSettings.lstConnectTo, ptPrepared->pConnectTo))
    {
        throw std::bad_alloc();
    }
    return ptPrepared;
}

} // namespace

SETTINGS_PTR_t CurrentSettings()
{
    return t_pptScopeSettings != nullptr ? *t_pptScopeSettings : ProcessSettings();
}

SETTINGS_PTR_t ProcessSettings()
{
    const std::lock_guard<std::mutex> tGuard(g_tSettingsLock);
    return DefaultSettings();
}

bool SetTransferDefaults(const TRANSFER_SETTINGS_t& tSettings)
{
    SETTINGS_PTR_t ptSettings = Prepare(tSettings);
    if (ptSettings == nullptr)
    {
        return false;
    }
    const std::lock_guard<std::mutex> tGuard(g_tSettingsLock);
    DefaultSettings() = std::move(ptSettings);
    return true;
}

CTransferScope::CTransferScope(const TRANSFER_SETTINGS_t& tSettings)
    : m_ptSettings(Prepare(tSettings)), m_pptOuter(t_pptScopeSettings)
{
    t_pptScopeSettings = &m_ptSettings;
}

CTransferScope::~CTransferScope()
{
    t_pptScopeSettings = m_pptOuter;
}

} // namespace WQCurl
