#include "veltra/desktop/attempts.h"

#include <algorithm>

namespace WQCurl
{

namespace
{

using std::chrono::milliseconds;
using std::chrono::seconds;

#ifdef FUZZING_BUILD_MODE_UNSAFE_FOR_PRODUCTION
constexpr int LONGEST_PAUSE = 0; // milliseconds
#else
constexpr int LONGEST_PAUSE = 30000; // milliseconds
#endif
constexpr int LONGEST_RETRY_AFTER = 30;      // seconds
constexpr int MOST_DOUBLINGS = 5;            // 32 seconds exceed the longest pause
constexpr long long FRUITFUL_BYTES = 262144; // an attempt that receives so many is not fruitless

/** Returns an arbitrary time up to 1, 2, 4 … seconds: devices that have lost a server at once do not return at once. */
milliseconds BackOff(int nFruitlessRetries)
{
    const int nLongest = std::min(1000 << std::min(nFruitlessRetries, MOST_DOUBLINGS), LONGEST_PAUSE);
    /* The clock's nanoseconds differ between devices. A random device may fail when descriptors run out. */
    return milliseconds(CAttempts::Clock::now().time_since_epoch().count() % (nLongest + 1));
}

} // namespace

bool IsTemporaryStatus(long lStatus)
{
    switch (lStatus)
    {
    case 408: // request time-out
    case 429: // too many requests
    case 500: // internal error
    case 502: // bad gateway
    case 503: // service unavailable
    case 504: // gateway time-out
        return true;
    default:
        return false;
    }
}

void CAttempts::Begin(const TRANSFER_SETTINGS_t& tSettings, bool bDownload, long lTotalSeconds)
{
    *this = CAttempts();
    m_nMostRetries = bDownload ? tSettings.nRetries : 0;
    m_lTotalSeconds = lTotalSeconds;
    m_lRetrySeconds = tSettings.nRetrySeconds;
    m_tBegun = Clock::now();
}

std::optional<CAttempts::Clock::time_point> CAttempts::Next(long long nReceived, int nRetryAfter)
{
    m_nFruitlessRetries = nReceived >= FRUITFUL_BYTES ? 0 : m_nFruitlessRetries;
    if (m_nFruitlessRetries >= m_nMostRetries || nRetryAfter > LONGEST_RETRY_AFTER)
    {
        return std::nullopt;
    }
    const milliseconds tPause = std::max<milliseconds>(BackOff(m_nFruitlessRetries), seconds(nRetryAfter));
    const Clock::time_point tNext = Clock::now() + std::min(tPause, milliseconds(LONGEST_PAUSE));
    for (const long lMost : {m_lTotalSeconds, m_lRetrySeconds})
    {
        if (lMost > 0 && tNext >= m_tBegun + seconds(lMost))
        {
            return std::nullopt;
        }
    }
    ++m_nFruitlessRetries;
    ++m_nAttempts;
    return tNext;
}

void CAttempts::SetTimeLeft(CURL* pEasy) const
{
    if (m_lTotalSeconds > 0)
    {
        const auto tLeft = std::chrono::ceil<milliseconds>(m_tBegun + seconds(m_lTotalSeconds) - Clock::now());
        curl_easy_setopt(pEasy, CURLOPT_TIMEOUT_MS, std::max(static_cast<long>(tLeft.count()), 1L));
    }
}

double CAttempts::SecondsSinceBegin() const
{
    return std::chrono::duration<double>(Clock::now() - m_tBegun).count();
}

} // namespace WQCurl
