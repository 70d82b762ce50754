#include "session.h"

#include <algorithm>
#include <cstdio>
#include <string_view>
#include <utility>

namespace
{

constexpr unsigned int LEVEL_ERROR = 0;
constexpr unsigned int LEVEL_INFORMATION = 4;
constexpr char UNKNOWN_CAUSE[] = "unknown cause";

bool StartsWith(std::string_view strText, std::string_view strPrefix)
{
    return strText.substr(0, strPrefix.size()) == strPrefix;
}

/** Takes the heading, the colours and the line end off a record. */
std::string BareText(std::string_view strRecord)
{
    constexpr std::string_view HEADING_END = ")] ";
    constexpr std::string_view FRAME_BEGIN = "\033[1;31;42m ";
    constexpr std::string_view FRAME_END = "\033[0m \n";
    if (const size_t nHeadingEnd = strRecord.find(HEADING_END); nHeadingEnd != std::string_view::npos)
    {
        strRecord.remove_prefix(nHeadingEnd + HEADING_END.size());
    }
    if (StartsWith(strRecord, FRAME_BEGIN))
    {
        strRecord.remove_prefix(FRAME_BEGIN.size());
    }
    return std::string(strRecord.substr(0, strRecord.rfind(FRAME_END)));
}

/** The records that are written at the error level without anything being wrong, and those of one download's end. */
bool IsCause(const std::string& strText)
{
    constexpr std::string_view NO_CAUSE[] = {
        "Start http/https Request!", "Left running handles", "Start to download", "Download[", "Downloading[",
        "Failed to download["};
    return std::none_of(std::begin(NO_CAUSE), std::end(NO_CAUSE),
                        [&strText](std::string_view strPrefix) { return StartsWith(strText, strPrefix); });
}

/** What a record says to somebody who does not know the library's inside. */
std::string Explain(const std::string& strText)
{
    constexpr std::pair<std::string_view, std::string_view> EXPLANATIONS[] = {
        {"pAuth->GetChipset() is", "the device has no chipset name (--chipset)"},
        {"Request Server Url xml error!!!", "the answer is empty"},
        {"Input Xml info is empty!", "the answer is empty"},
        {"doc.load strXml.c_str() error!", "the answer is no well-formed XML"},
        {"AppBinary server xml url stat is not ok!", "the answer's status is not \"ok\""}};
    for (const auto& [strBegin, strExplanation] : EXPLANATIONS)
    {
        if (StartsWith(strText, strBegin))
        {
            return std::string(strExplanation);
        }
    }
    for (const std::string_view strBegin :
         {"Https request error reason = [", "[WQCurl][WQCurlEasy][send()] return false = ["})
    {
        if (StartsWith(strText, strBegin))
        {
            return strText.substr(strBegin.size(), strText.rfind(']') - strBegin.size());
        }
    }
    return strText;
}

} // namespace

CSession::CSession(bool bVerbose) : m_bVerbose(bVerbose), m_nTaken(0)
{
    CKVRDebug::SetSink(&OnRecord, this);
    CKVRDebug::SetLevel(bVerbose ? LEVEL_INFORMATION : LEVEL_ERROR);
    Engine().Create();
}

CSession::~CSession()
{
    End();
    CKVRDebug::SetSink(nullptr, nullptr);
}

void CSession::End()
{
    Engine().Destroy();
}

std::string CSession::TakeCause()
{
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    const auto itFirst = m_vecError.begin() + static_cast<std::ptrdiff_t>(m_nTaken);
    const auto itCause = std::find_if(itFirst, m_vecError.end(), &IsCause);
    m_nTaken = m_vecError.size();
    return itCause != m_vecError.end() ? Explain(*itCause) : UNKNOWN_CAUSE;
}

std::string CSession::DownloadCause(int nDownloadId)
{
    const std::string strBegin = "Failed to download[" + std::to_string(nDownloadId) + "]";
    const std::string strReason = "], ErrorMsg[";
    const std::lock_guard<std::mutex> tGuard(m_tLock);
    for (const std::string& strText : m_vecError)
    {
        const size_t nReason = strText.rfind(strReason);
        if (StartsWith(strText, strBegin) && nReason != std::string::npos)
        {
            const size_t nText = nReason + strReason.size();
            return strText.substr(nText, strText.rfind(']') - nText);
        }
    }
    return UNKNOWN_CAUSE;
}

void CSession::OnRecord(unsigned int level, const char* record, void* pUserData)
{
    auto& tSession = *static_cast<CSession*>(pUserData);
    if (tSession.m_bVerbose)
    {
        static_cast<void>(fputs(record, stderr));
    }
    if (level == LEVEL_ERROR)
    {
        const std::lock_guard<std::mutex> tGuard(tSession.m_tLock);
        tSession.m_vecError.push_back(BareText(record));
    }
}

int PrintError(const std::string& strWhat, const std::string& strCause)
{
    static_cast<void>(fflush(stdout));
    static_cast<void>(fprintf(stderr, "veltra: %s: %s\n", strWhat.c_str(), strCause.c_str()));
    return 1;
}
