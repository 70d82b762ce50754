#include "session.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <system_error>

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

/** Returns the folder of authorities: the system's if "openssl rehash" has named its files and none is set. */
std::string CaFolder(const WQCurl::TRANSFER_SETTINGS_t& tSettings)
{
    const std::string strSystem = "/etc/ssl/certs";
    const auto fnIsHash = [](const std::filesystem::path& tPath)
    {
        return tPath.extension() == ".0" &&
               tPath.stem().string().find_first_not_of("0123456789abcdef") == std::string::npos;
    };
    std::error_code tFault;
    const std::filesystem::directory_iterator itFirst(strSystem, tFault);
    const bool bHashed = !tFault && std::any_of(begin(itFirst), end(itFirst), fnIsHash);
    return bHashed && tSettings.strCaFile.empty() && tSettings.strCaFolder.empty() ? strSystem : tSettings.strCaFolder;
}

} // namespace

CSession::CSession(const OPTIONS_t& tOptions, bool bFailOnHttpError)
    : m_tOptions(tOptions), m_tSettings(tOptions.tTransfer)
{
    m_tSettings.bFailOnHttpError = m_tSettings.bFailOnRedirect = bFailOnHttpError;
    m_tSettings.strCaFolder = CaFolder(m_tSettings); // takes less memory and time than the bundle
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
