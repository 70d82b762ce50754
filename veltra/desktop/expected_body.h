#pragma once

#include <memory>

#include "veltra/desktop/fault.h"
#include "veltra/desktop/transfer_settings.h"

typedef struct _GChecksum GChecksum;

namespace WQCurl
{

/** Compares a transfer's body with the expected size and checksum while it arrives. Belongs to the driving thread. */
class CExpectedBody
{
public:
    /** Takes the expected size and checksum of the next transfer from its settings. */
    void Begin(const TRANSFER_SETTINGS_t& tSettings);

    /** Checks the size of the whole body as the server announces it. @param nAnnounced -1: unknown */
    FAULT_t CheckAnnounced(long long nAnnounced) const;

    /**
     * Takes a piece of the body.
     * @param pData the piece
     * @param nBytes its size
     * @param nReceived the bytes received until now, the piece included
     */
    FAULT_t Take(const char* pData, size_t nBytes, long long nReceived);

    /** Checks the whole body. */
    FAULT_t CheckEnd(long long nReceived) const;

private:
    struct CHECKSUM_DELETER_t
    {
        void operator()(GChecksum* pChecksum) const;
    };

    long long m_nSize = -1;
    std::string m_strSha256; /**< digits of either case; empty: any */
    std::unique_ptr<GChecksum, CHECKSUM_DELETER_t> m_pChecksum;
};

} // namespace WQCurl
