#include "interposed.h"

#include <cerrno>
#include <ctime>
#include <dlfcn.h>
#include <netdb.h>
#include <sys/epoll.h>

INTERPOSED_t g_tInterposed;

namespace
{

template <class FUNCTION> FUNCTION* Next(const char* pszName, FUNCTION* /*pfnThis*/)
{
    return reinterpret_cast<FUNCTION*>(dlsym(RTLD_NEXT, pszName));
}

} // namespace

#pragma GCC visibility push(default)
extern "C"
{
    /** One name has an address of each family besides those described above. */
    int getaddrinfo(const char* pszName, const char* pszService, const addrinfo* ptHints, addrinfo** pptResult)
    {
        static auto* const s_pfnNext = Next("getaddrinfo", &getaddrinfo);
        const std::string strName = pszName != nullptr ? pszName : "";
        if (strName == "silent.invalid")
        {
            while (!g_tInterposed.tNameServer.Wait())
            {
            }
            return EAI_AGAIN;
        }
        if (strName == "two.invalid")
        {
            return s_pfnNext("127.0.0.1", pszService, ptHints, pptResult) +
                   s_pfnNext("::1", pszService, ptHints, &(*pptResult)->ai_next);
        }
        if (strName == "counted.invalid")
        {
            ++g_tInterposed.nLookUps;
            g_tInterposed.nFamily = ptHints->ai_family;
            return s_pfnNext("127.0.0.1", pszService, nullptr, pptResult);
        }
        return s_pfnNext(pszName, pszService, ptHints, pptResult);
    }

    int curl_multi_add_handle(void* pMulti, void* pEasy)
    {
        static auto* const s_pfnNext = Next("curl_multi_add_handle", &curl_multi_add_handle);
        constexpr int OUT_OF_MEMORY = 3;
        return g_tInterposed.bRefuseMemory ? OUT_OF_MEMORY : s_pfnNext(pMulti, pEasy);
    }

    void* curl_slist_append(void* ptList, const char* pszText)
    {
        static auto* const s_pfnNext = Next("curl_slist_append", &curl_slist_append);
        return g_tInterposed.bRefuseMemory ? nullptr : s_pfnNext(ptList, pszText);
    }

    int epoll_wait(int nEpoll, epoll_event* ptEvents, int nMost, int nMilliseconds)
    {
        static auto* const s_pfnNext = Next("epoll_wait", &epoll_wait);
        ++g_tInterposed.nWaits;
        errno = EBADF;
        return g_tInterposed.bFailWaits ? -1 : s_pfnNext(nEpoll, ptEvents, nMost, nMilliseconds);
    }

    int clock_gettime(clockid_t eClock, timespec* ptTime) noexcept
    {
        static auto* const s_pfnNext =
            Next(sizeof(time_t) > sizeof(long) ? "__clock_gettime64" : "clock_gettime", &clock_gettime);
        const int nResult = s_pfnNext(eClock, ptTime);
        ptTime->tv_sec += eClock == CLOCK_BOOTTIME ? g_tInterposed.nSecondsAsleep.load() : 0;
        return nResult;
    }
}
#pragma GCC visibility pop
