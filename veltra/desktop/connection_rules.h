#pragma once

#include "veltra/desktop/curl_multi.h"
#include "veltra/desktop/network_epoch.h"
#include "veltra/desktop/running_transfers.h"

namespace WQCurl
{

/**
 * Decides which connections a multi handle keeps, and which of them transfers may use again. Driving thread only; the
 * signal guard is the caller's.
 */
class CConnectionRules
{
public:
    CConnectionRules(CCurlMulti& tMulti, const CRunningTransfers& tRunning) : m_tMulti(tMulti), m_tRunning(tRunning) {}

    /** Looks for a change of network, which outdates the open connections. @return whether there was one */
    bool LookAtNetwork();

    /**
     * Closes the connections that must not be used again, and sets the limits of the process-wide settings.
     * @param nTransfers the number of registered transfers, for the number of connections that stay open
     */
    void BeforeStart(size_t nTransfers);

    /** Sets the options that keep a transfer from outdated connections. */
    void Prepare(const TRANSFER_t& tTransfer) const;

    /** Closes the idle connections, if there are more than the process-wide settings allow. */
    void AfterLast();

private:
    typedef std::chrono::steady_clock Clock;

    bool CloseAll();
    void CloseSpoiled();
    void AvoidOldConnections(CURL* pEasy) const;

    CCurlMulti& m_tMulti;
    const CRunningTransfers& m_tRunning;
    unsigned m_nEpoch = NetworkEpoch();
    std::optional<Clock::time_point> m_tOutdating; /**< connections opened before this must not be used */
    SETTINGS_PTR_t m_ptLimits;                     /**< the settings whose limits the multi handle has */
};

} // namespace WQCurl
