#include "session.h"

#include <csignal>
#include <stdexcept>

#include "text.h"
#include "veltra/log.h"

namespace
{

constexpr unsigned int LEVEL_INFORMATION = 4;

/** Removes the control characters of a log record. The library's own colours in an error record stay. */
std::string PrintableRecord(unsigned int nLevel, const std::string& strRecord)
{
    const std::string strBegin = VELTRA_LOG_FRAME_BEGIN;
    const size_t nText = strRecord.find(strBegin) + strBegin.size();
    const size_t nTextEnd = strRecord.rfind(VELTRA_LOG_FRAME_END);
    if (nLevel != 0 || nText < strBegin.size() || nTextEnd == std::string::npos || nTextEnd < nText)
    {
        return Printable(strRecord.substr(0, strRecord.size() - 1)) + "\n";
    }
    return strRecord.substr(0, nText) + Printable(strRecord.substr(nText, nTextEnd - nText)) +
           VELTRA_LOG_FRAME_END "\n";
}

void PrintRecord(unsigned int level, const char* record, void* pVerbose)
{
    if (pVerbose != nullptr)
    {
        CLogSinks::WriteToStandardError(level, PrintableRecord(level, record).c_str(), nullptr);
    }
}

} // namespace

CSession::CSession(const OPTIONS_t& tOptions, bool bFailOnHttpError)
    : m_tOptions(tOptions), m_tSettings(tOptions.tTransfer)
{
    m_tSettings.bFailOnHttpError = m_tSettings.bFailOnRedirect = bFailOnHttpError;
    if (!WQCurl::SetTransferDefaults(m_tSettings))
    {
        throw std::runtime_error("the library refuses the settings of these options");
    }
    CAIAuth::SetIdentity(tOptions.tIdentity);
    CKVRDebug::SetSink(&PrintRecord, tOptions.bVerbose ? this : nullptr);
    CKVRDebug::SetLevel(tOptions.bVerbose ? LEVEL_INFORMATION : 0);
    /* The engine's threads inherit the mask. */
    sigset_t tAll;
    sigset_t tBefore;
    sigfillset(&tAll);
    pthread_sigmask(SIG_BLOCK, &tAll, &tBefore);
    Engine().Create();
    pthread_sigmask(SIG_SETMASK, &tBefore, nullptr);
}

CSession::~CSession()
{
    Engine().Destroy();
    CKVRDebug::SetSink(nullptr, nullptr);
}

WQCurl::TRANSFER_REPORT_t CurrentReport()
{
    WQCurl::TRANSFER_REPORT_t tReport;
    static_cast<void>(WQCurl::TransferReport(tReport));
    return tReport;
}
