#include "veltra/desktop/expected_body.h"

#include <glib.h>

#include "veltra/desktop/transfer_report.h"

namespace WQCurl
{

namespace
{

constexpr FAULT_t LARGER = {RESULT_UNEXPECTED, "The file is larger than expected"};
constexpr FAULT_t SMALLER = {RESULT_UNEXPECTED, "The file is smaller than expected"};
constexpr FAULT_t OTHER_CHECKSUM = {RESULT_UNEXPECTED, "The file has another checksum than expected"};

} // namespace

void CExpectedBody::CHECKSUM_DELETER_t::operator()(GChecksum* pChecksum) const
{
    g_checksum_free(pChecksum);
}

void CExpectedBody::Begin(const TRANSFER_SETTINGS_t& tSettings)
{
    m_nSize = tSettings.nExpectedSize;
    m_strSha256 = tSettings.strExpectedSha256;
    m_pChecksum.reset(m_strSha256.empty() ? nullptr : g_checksum_new(G_CHECKSUM_SHA256));
}

FAULT_t CExpectedBody::CheckAnnounced(long long nAnnounced) const
{
    const bool bOther = m_nSize >= 0 && nAnnounced >= 0 && nAnnounced != m_nSize;
    return !bOther ? FAULT_t() : nAnnounced > m_nSize ? LARGER : SMALLER;
}

FAULT_t CExpectedBody::Take(const char* pData, size_t nBytes, long long nReceived)
{
    if (m_nSize >= 0 && nReceived > m_nSize)
    {
        return LARGER;
    }
    if (m_pChecksum != nullptr)
    {
        g_checksum_update(m_pChecksum.get(), reinterpret_cast<const guchar*>(pData), static_cast<gssize>(nBytes));
    }
    return {};
}

FAULT_t CExpectedBody::CheckEnd(long long nReceived) const
{
    if (nReceived < m_nSize)
    {
        return SMALLER;
    }
    const bool bOther = m_pChecksum != nullptr &&
                        g_ascii_strcasecmp(g_checksum_get_string(m_pChecksum.get()), m_strSha256.c_str()) != 0;
    return bOther ? OTHER_CHECKSUM : FAULT_t();
}

} // namespace WQCurl
