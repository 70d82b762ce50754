#pragma once

#include "veltra/veltra.h"

/** The options that every command takes. */
struct OPTIONS_t
{
    DEVICE_IDENTITY_t tIdentity;
    WQCurl::TRANSFER_SETTINGS_t tTransfer;
    bool bVerbose = false;
};

/**
 * The running engine of one command, with the settings of its options. A verbose session prints the library's log on
 * standard error, without control characters.
 */
class CSession
{
public:
    /**
     * @param tOptions must outlive the session
     * @param bFailOnHttpError a redirect or a status of 400 and more fails each transfer
     * @throws std::runtime_error if the library refuses the settings
     */
    explicit CSession(const OPTIONS_t& tOptions, bool bFailOnHttpError = true);
    ~CSession();
    CSession(const CSession&) = delete;
    CSession& operator=(const CSession&) = delete;

    CWebConnector& Engine() { return *CSingleton<CWebConnector>::GetInstance(); }
    const OPTIONS_t& Options() const { return m_tOptions; }
    const WQCurl::TRANSFER_SETTINGS_t& Settings() const { return m_tSettings; }

private:
    const OPTIONS_t& m_tOptions;
    WQCurl::TRANSFER_SETTINGS_t m_tSettings;
};

/** Calls WQCurl::TransferReport(). @return an empty report if there is no transfer */
WQCurl::TRANSFER_REPORT_t CurrentReport();
