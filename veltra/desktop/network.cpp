#include "veltra/desktop/network.h"

#include <atomic>
#include <ctime>

#include "veltra/desktop/network_epoch.h"

namespace WQCurl
{

namespace
{

constexpr long long SHORTEST_SLEEP = 500000000; // nanoseconds; two readings of clocks may differ by less

std::atomic<unsigned> g_nEpoch{0};

long long Nanoseconds(clockid_t eClock)
{
    timespec tTime{};
    clock_gettime(eClock, &tTime);
    return tTime.tv_sec * 1000000000LL + tTime.tv_nsec;
}

/** Returns the time that the device has slept: only one of the two clocks goes on meanwhile. */
long long TimeAsleep()
{
    return Nanoseconds(CLOCK_BOOTTIME) - Nanoseconds(CLOCK_MONOTONIC);
}

} // namespace

unsigned NetworkEpoch()
{
    static std::atomic<long long> s_nAsleep{TimeAsleep()};
    const long long nAsleep = TimeAsleep();
    if (nAsleep - s_nAsleep.exchange(nAsleep) >= SHORTEST_SLEEP)
    {
        ++g_nEpoch;
    }
    return g_nEpoch;
}

void NetworkChanged()
{
    ++g_nEpoch;
}

} // namespace WQCurl
