#include "veltra/platform/ai_auth.h"

#include <mutex>

template class CSingleton<CAIAuth>;

namespace
{

std::mutex g_tIdentityLock;

/** It is never destroyed: threads may ask for it while the process ends. */
DEVICE_IDENTITY_t& Identity()
{
    static auto* const s_ptIdentity = new DEVICE_IDENTITY_t;
    return *s_ptIdentity;
}

template <class T> T Read(T DEVICE_IDENTITY_t::*pField)
{
    const std::lock_guard<std::mutex> tGuard(g_tIdentityLock);
    return Identity().*pField;
}

} // namespace

std::string CAIAuth::GetChipset()
{
    return Read(&DEVICE_IDENTITY_t::strChipset);
}

std::string CAIAuth::GetDUID()
{
    return Read(&DEVICE_IDENTITY_t::strDUID);
}

std::string CAIAuth::GetMAC()
{
    return Read(&DEVICE_IDENTITY_t::strMAC);
}

std::string CAIAuth::GetCountryCode()
{
    return Read(&DEVICE_IDENTITY_t::strCountryCode);
}

std::string CAIAuth::GetModelID()
{
    return Read(&DEVICE_IDENTITY_t::strModelID);
}

int CAIAuth::GetiOstralSerType()
{
    return Read(&DEVICE_IDENTITY_t::nServerType);
}

void CAIAuth::SetIdentity(const DEVICE_IDENTITY_t& tIdentity)
{
    const std::lock_guard<std::mutex> tGuard(g_tIdentityLock);
    Identity() = tIdentity;
}
