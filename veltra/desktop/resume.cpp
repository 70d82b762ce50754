#include "veltra/desktop/resume.h"

#include <algorithm>
#include <charconv>
#include <ctime>
#include <iomanip>
#include <locale>
#include <random>
#include <sstream>

namespace WQCurl
{

namespace
{

using std::chrono::milliseconds;
using std::chrono::seconds;

#ifdef FUZZING_BUILD_MODE_UNSAFE_FOR_PRODUCTION
constexpr seconds LONGEST_BACK_OFF(0);
#else
constexpr seconds LONGEST_BACK_OFF(30);
#endif
constexpr int MOST_DOUBLINGS = 5;            // 32 seconds exceed the longest back-off
constexpr long long FRUITFUL_BYTES = 262144; // an attempt that receives so many is not fruitless
constexpr long long UNCHANGED_SECONDS = 60;  // a file modified later may change again within the same second

/** Returns a field of the last answer; its values in several lines are joined by ", ". Empty if it has none. */
std::string Header(CURL* pEasy, const char* pszName)
{
    std::string strValues;
    curl_header* ptHeader = nullptr;
    for (size_t nLine = 0; curl_easy_header(pEasy, pszName, nLine, CURLH_HEADER, -1, &ptHeader) == CURLHE_OK; ++nLine)
    {
        strValues += (nLine > 0 ? ", " : "") + std::string(ptHeader->value);
    }
    return strValues;
}

/** Reads a decimal number without a sign, limited to nMost. @return 0 for any other text */
long long Number(std::string_view strText, long long nMost = std::numeric_limits<long long>::max())
{
    unsigned long long nNumber = 0;
    const char* const pszEnd = strText.data() + strText.size();
    const auto [pszRead, eError] = std::from_chars(strText.data(), pszEnd, nNumber);
    const bool bTooLarge = eError == std::errc::result_out_of_range || nNumber > static_cast<unsigned long long>(nMost);
    return pszRead != pszEnd ? 0 : bTooLarge ? nMost : static_cast<long long>(nNumber);
}

/** Returns whether the answer's body is encoded. A part of an encoded file cannot be joined to one of the plain file.
 */
bool IsEncoded(CURL* pEasy)
{
    const std::string strEncoding = Header(pEasy, "Content-Encoding");
    return !strEncoding.empty() && curl_strequal(strEncoding.c_str(), "identity") == 0;
}

/**
 * Returns the moment of a date in a header line, in seconds since 1970; none for any other text. libcurl's own function
 * depends on the size of time_t that libcurl was built with.
 */
std::optional<long long> Date(const std::string& strDate)
{
    std::tm tDate{};
    std::istringstream tStream(strDate);
    tStream.imbue(std::locale::classic());
    tStream >> std::get_time(&tDate, "%a, %d %b %Y %H:%M:%S GMT");
    return tStream.fail() ? std::nullopt : std::optional<long long>(timegm(&tDate));
}

bool IsStrongTag(const std::string& strTag)
{
    return strTag.size() >= 2 && strTag.front() == '"' && strTag.find('"', 1) == strTag.size() - 1;
}

/** Returns the strong ETag or date that identifies the file's bytes; empty when the server sends neither. */
std::string StrongValidator(CURL* pEasy)
{
    std::string strTag = Header(pEasy, "ETag");
    if (IsStrongTag(strTag))
    {
        return strTag;
    }
    std::string strModified = Header(pEasy, "Last-Modified");
    const std::optional<long long> optModified = Date(strModified);
    const std::optional<long long> optDate = Date(Header(pEasy, "Date"));
    const bool bStrong = optModified && optDate && *optDate - *optModified >= UNCHANGED_SECONDS;
    return bStrong && strTag.empty() ? strModified : "";
}

/** Returns whether the network may have caused a failure, and not the server, the disk or the application. */
bool IsNetworkFailure(int nCode)
{
    switch (nCode)
    {
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_CONNECT:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
    case CURLE_PARTIAL_FILE:
    case CURLE_OPERATION_TIMEDOUT:
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
        return true;
    default:
        return false;
    }
}

/** Returns a random time up to 1, 2, 4 … seconds: devices that have lost a server at once do not return at once. */
milliseconds BackOff(int nFruitlessAttempts)
{
    static thread_local std::minstd_rand s_tRandom(std::random_device{}());
    const milliseconds tLongest =
        std::min<milliseconds>(LONGEST_BACK_OFF, seconds(1 << std::min(nFruitlessAttempts, MOST_DOUBLINGS)));
    return milliseconds(std::uniform_int_distribution<long long>(0, tLongest.count())(s_tRandom));
}

} // namespace

void CResume::Begin(const TRANSFER_SETTINGS_t& tDefaults, bool bDownload, long lTotalSeconds)
{
    *this = CResume();
    m_bAllowed = bDownload && tDefaults.nRetries > 0;
    m_nMostAttempts = tDefaults.nRetries;
    m_lTotalSeconds = lTotalSeconds;
    m_lResumeSeconds = tDefaults.nRetrySeconds;
    m_tBegun = Clock::now();
}

bool CResume::AcceptAnswer(CURL* pEasy)
{
    if (!m_bAllowed)
    {
        return true;
    }
    long lStatus = 0;
    curl_easy_getinfo(pEasy, CURLINFO_RESPONSE_CODE, &lStatus);
    return m_nAttempts == 1 ? AcceptWhole(pEasy, lStatus) : AcceptRest(pEasy, lStatus);
}

bool CResume::AcceptWhole(CURL* pEasy, long lStatus)
{
    if (lStatus == 206)
    {
        return Refuse("The server has sent a part of the file unasked");
    }
    if (lStatus == 200)
    {
        m_strValidator = IsEncoded(pEasy) ? "" : StrongValidator(pEasy);
        m_nTotal = Number(Header(pEasy, "Content-Length"));
    }
    return true;
}

bool CResume::AcceptRest(CURL* pEasy, long lStatus)
{
    if (lStatus == 429 || lStatus == 503)
    {
        m_bBusy = true;
        m_tRetryAfter = seconds(Number(Header(pEasy, "Retry-After"), LONGEST_BACK_OFF.count()));
        return Refuse("The server is too busy to send the rest of the file");
    }
    if (lStatus != 206)
    {
        return Refuse("The server does not send the rest of the file, or the file has changed");
    }
    /* Some servers ignore If-Range and send a part of whatever the file is now. */
    if (IsEncoded(pEasy) || !HasValidator(pEasy))
    {
        return Refuse("The server has sent a part of another version of the file");
    }
    const std::string strRange = Header(pEasy, "Content-Range");
    if (m_nTotal == 0)
    {
        m_nTotal = Number(std::string_view(strRange).substr(strRange.find('/') + 1));
    }
    const std::string strRest =
        "bytes " + std::to_string(m_nReceived) + "-" + std::to_string(m_nTotal - 1) + "/" + std::to_string(m_nTotal);
    return (m_nTotal > m_nReceived && strRange == strRest) ||
           Refuse("The server has sent another part of the file than the rest");
}

bool CResume::HasValidator(CURL* pEasy) const
{
    if (IsStrongTag(m_strValidator))
    {
        return Header(pEasy, "ETag") == m_strValidator; // a 206 must carry it
    }
    const std::string strModified = Header(pEasy, "Last-Modified");
    return strModified.empty() || strModified == m_strValidator;
}

bool CResume::Refuse(const char* pszReason)
{
    m_pszRefusal = pszReason;
    return false;
}

std::optional<CResume::Clock::time_point> CResume::NextAttempt(int nCode)
{
    const bool bBroken = m_bBusy || IsNetworkFailure(nCode);
    const bool bTooMuch = m_nTotal > 0 && m_nReceived > m_nTotal;
    m_nFruitlessAttempts = m_nReceived - m_nBefore >= FRUITFUL_BYTES ? 0 : m_nFruitlessAttempts;
    if (m_strValidator.empty() || !bBroken || bTooMuch || m_nFruitlessAttempts >= m_nMostAttempts)
    {
        return std::nullopt;
    }
    const milliseconds tPause = std::max<milliseconds>(BackOff(m_nFruitlessAttempts), m_tRetryAfter);
    const Clock::time_point tNext = Clock::now() + tPause;
    for (const long lMost : {m_lTotalSeconds, m_lResumeSeconds})
    {
        if (lMost > 0 && tNext >= m_tBegun + seconds(lMost))
        {
            return std::nullopt;
        }
    }
    ++m_nFruitlessAttempts;
    ++m_nAttempts;
    m_nBefore = m_nReceived;
    m_bBusy = false;
    m_tRetryAfter = seconds(0);
    m_pszRefusal = nullptr;
    return tNext;
}

CURLcode CResume::RequestRest(CURL* pEasy, const curl_slist* pHeaders)
{
    std::list<std::string> lstHeader;
    for (; pHeaders != nullptr; pHeaders = pHeaders->next)
    {
        lstHeader.emplace_back(pHeaders->data);
    }
    lstHeader.push_back("If-Range: " + m_strValidator);
    if (!BuildList(lstHeader, m_pHeaders))
    {
        return CURLE_OUT_OF_MEMORY;
    }
    const std::string strRange = std::to_string(m_nReceived) + "-";
    const CURLcode eResult = curl_easy_setopt(pEasy, CURLOPT_RANGE, strRange.c_str());
    curl_easy_setopt(pEasy, CURLOPT_FAILONERROR, 0L);       // statuses are judged here
    curl_easy_setopt(pEasy, CURLOPT_DNS_CACHE_TIMEOUT, 0L); // the server may have another address by now
    return eResult == CURLE_OK ? curl_easy_setopt(pEasy, CURLOPT_HTTPHEADER, m_pHeaders.get()) : eResult;
}

void CResume::SetTimeLeft(CURL* pEasy) const
{
    if (m_lTotalSeconds > 0)
    {
        const auto tLeft = std::chrono::ceil<milliseconds>(m_tBegun + seconds(m_lTotalSeconds) - Clock::now());
        curl_easy_setopt(pEasy, CURLOPT_TIMEOUT_MS, std::max(static_cast<long>(tLeft.count()), 1L));
    }
}

double CResume::SecondsSinceBegin() const
{
    return std::chrono::duration<double>(Clock::now() - m_tBegun).count();
}

} // namespace WQCurl
