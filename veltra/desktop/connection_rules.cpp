#include "veltra/desktop/connection_rules.h"

#include <algorithm>
#include <utility>

namespace WQCurl
{

bool CConnectionRules::LookAtNetwork()
{
    const unsigned nOldEpoch = std::exchange(m_nEpoch, NetworkEpoch());
    const bool bChanged = m_nEpoch != nOldEpoch;
    if (bChanged)
    {
        m_tOutdating = Clock::now();
    }
    return bChanged;
}

/**
 * Lets as many connections stay open as libcurl would for so many transfers, and no fewer than may stay when all have
 * ended. Later releases of libcurl count only the transfers that run at the moment: they would close the connections of
 * many transfers that end in one step before others start.
 */
void CConnectionRules::BeforeStart(size_t nTransfers)
{
    constexpr long CONNECTIONS_PER_TRANSFER = 4;
    if (m_tOutdating.has_value() && m_tRunning.IsEmpty() && CloseAll())
    {
        m_tOutdating.reset();
    }
    CloseSpoiled();
    const SETTINGS_PTR_t ptSettings = ProcessSettings();
    const TRANSFER_SETTINGS_t& tSettings = ptSettings->tRecord;
    if (m_ptLimits != ptSettings)
    {
        m_tMulti.SetLimit(CURLMOPT_MAX_TOTAL_CONNECTIONS, tSettings.nMostConnections);
        m_tMulti.SetLimit(CURLMOPT_MAX_HOST_CONNECTIONS, tSettings.nMostConnectionsPerHost);
        m_ptLimits = ptSettings;
    }
    m_tMulti.SetLimit(CURLMOPT_MAXCONNECTS, std::max(CONNECTIONS_PER_TRANSFER * static_cast<long>(nTransfers),
                                                     long{tSettings.nMostIdleConnections}));
}

void CConnectionRules::Prepare(const TRANSFER_t& tTransfer) const
{
    if (m_tOutdating.has_value())
    {
        AvoidOldConnections(tTransfer.pEasy.get());
    }
}

void CConnectionRules::AfterLast()
{
    if (m_tMulti.Sockets().CountOpen() > ProcessSettings()->tRecord.nMostIdleConnections)
    {
        CloseAll();
    }
}

bool CConnectionRules::CloseAll()
{
    m_ptLimits.reset();
    return m_tMulti.Renew();
}

/**
 * Shuts down connections without a transfer on which the server has sent something: its farewell, or an answer that
 * nobody has asked for. libcurl would use such a connection again and take that for the next answer.
 */
void CConnectionRules::CloseSpoiled()
{
    for (const int nSocket : m_tMulti.Sockets().FindUnexpected())
    {
        if (!m_tRunning.MayUse(nSocket))
        {
            m_tMulti.Sockets().ShutDown(nSocket);
        }
    }
}

/**
 * Keeps a transfer from connections and look-ups that are older than the last change of network. libcurl compares ages
 * in whole seconds, so that one second less is safe; it takes 0 for any age.
 */
void CConnectionRules::AvoidOldConnections(CURL* pEasy) const
{
    constexpr long USUAL_CACHE_SECONDS = 60;
    const auto tSince = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - *m_tOutdating);
    const long lMostSeconds = std::max(static_cast<long>(tSince.count()) - 1, 0L);
    curl_easy_setopt(pEasy, CURLOPT_FRESH_CONNECT, lMostSeconds == 0 ? 1L : 0L);
    curl_easy_setopt(pEasy, CURLOPT_MAXLIFETIME_CONN, lMostSeconds);
    curl_easy_setopt(pEasy, CURLOPT_DNS_CACHE_TIMEOUT, std::min(lMostSeconds, USUAL_CACHE_SECONDS));
}

} // namespace WQCurl
