#pragma once

#include <string>

#include "veltra/desktop/fault.h"
#include "veltra/desktop/header_lines.h"

namespace WQCurl
{

/**
 * Decides whether a broken download can be resumed, and whether an answer is the rest of the file. Each transfer has
 * one, which counts the body over all attempts and belongs to the driving thread.
 */
class CResume
{
public:
    /** Begins with another transfer. @param bAllowed whether another attempt may follow the first */
    void Begin(bool bAllowed);

    /**
     * Checks an answer by its header lines, before its body is received.
     * @return the reason why it is neither the whole file nor the rest
     */
    FAULT_t Check(const CHeaderLines& tHeader, long lStatus);

    /** Counts received bytes of the body. */
    void Count(size_t nBytes) { m_nReceived += static_cast<long long>(nBytes); }

    /** Returns whether another attempt can complete the file: from the beginning, or with the rest of the same version.
     */
    bool CanGoOn() const;

    /** Begins another attempt. */
    void BeginAttempt() { m_nBefore = m_nReceived; }

    /** Returns whether the attempts together have not received the whole file. */
    bool IsShort() const { return m_nBefore > 0 && m_nReceived != m_nTotal; }

    long long Received() const { return m_nReceived; } /**< bytes of the body that all attempts have received */
    /** Bytes that the attempts before the running one have received; more than 0: it requests the rest. */
    long long Before() const { return m_nBefore; }
    long long Total() const { return m_nTotal; } /**< bytes of the whole body; 0: unknown */

    /** Returns the ETag or date of the file's version; empty: the download cannot be resumed. */
    const std::string& Validator() const { return m_strValidator; }

private:
    FAULT_t CheckWhole(const CHeaderLines& tHeader, long lStatus);
    FAULT_t CheckRest(const CHeaderLines& tHeader, long lStatus);
    bool HasValidator(const CHeaderLines& tHeader) const;

    bool m_bAllowed = false;
    std::string m_strValidator;
    long long m_nTotal = 0;
    long long m_nReceived = 0;
    long long m_nBefore = 0;
};

} // namespace WQCurl
