#include "session.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "text.h"
#include "veltra/log.h"

namespace
{

constexpr unsigned int LEVEL_INFORMATION = 4;

/** Prints a record of the log without its colours and control characters. */
void PrintRecord(unsigned int level, const char* record, void* pVerbose)
{
    std::string strText(record, strlen(record) - 1); // without the line's end
    for (const std::string_view strColour : {VELTRA_LOG_FRAME_BEGIN, VELTRA_LOG_FRAME_END})
    {
        const size_t nFound = strText.find(strColour);
        strText.erase(std::min(nFound, strText.size()), strColour.size());
    }
    if (pVerbose != nullptr)
    {
        CLogSinks::WriteToStandardError(level, (Printable(strText) + "\n").c_str(), nullptr);
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
    Engine().Create();
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
