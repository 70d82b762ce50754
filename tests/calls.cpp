/* Functions of the system and of libcurl that fail on demand, are logged, or behave as a test needs, for the library, a
 * maker's wrapper, libcurl and GLib too. Tests are linked with them. They are preloaded into the tool; CALLS_LOG names
 * the file of its calls. */

#include "calls.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <netdb.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>

CALLS_t g_tCalls;

namespace
{

thread_local long t_nSkipped = 0; // milliseconds by which the thread's clocks are ahead

std::string PathOf(int nFile)
{
    std::error_code tNone;
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(nFile), tNone);
}

/** Logs a call. @return whether it is to fail */
template <class WHAT> bool Meet(const char* pszName, const void* pCaller, WHAT fnWhat)
{
    static const char* const s_pszLog = getenv("CALLS_LOG");
    Dl_info tFrom{};
    if ((s_pszLog == nullptr && g_tCalls.nUntilFailure < 0) || dladdr(pCaller, &tFrom) == 0)
    {
        return false;
    }
    const std::string_view strFrom = basename(tFrom.dli_fname);
    if (strFrom.find("veltra") + 1 + strFrom.find("libcurl") + 1 + strFrom.find("libglib") + 1 == 0 &&
        std::string_view(WRAPPER_LIBRARIES).find(strFrom) == std::string_view::npos)
    {
        return false;
    }
    if (s_pszLog != nullptr)
    {
        std::ofstream(s_pszLog, std::ios::app) << pszName << ' ' << fnWhat() << '\n';
    }
    return strcmp(pszName, g_tCalls.pszFailing) == 0 && g_tCalls.nUntilFailure-- == 0;
}

template <class RESULT> RESULT Failed(RESULT tResult)
{
    errno = g_tCalls.nError;
    return tResult;
}

/** Shortens a wait if a test is in a hurry. The thread's clocks skip the rest of a wait that did not end early. */
int Wait(decltype(&epoll_wait) pfnNext, int nEpoll, epoll_event* ptEvents, int nMost, int nMilliseconds)
{
    const int nReal = g_tCalls.bHurry && nMilliseconds >= 100 ? nMilliseconds / 20 : nMilliseconds;
    const int nResult = pfnNext(nEpoll, ptEvents, nMost, nReal);
    t_nSkipped += nResult == 0 ? nMilliseconds - nReal : 0;
    return nResult;
}

struct TIME_t
{
    long tv_sec;
    long tv_nsec;
};

template <class TIME> int ReadClock(int (*pfnNext)(clockid_t, TIME*), clockid_t eClock, TIME* ptTime)
{
    const int nResult = pfnNext(eClock, ptTime);
    if (eClock == CLOCK_MONOTONIC || eClock == CLOCK_MONOTONIC_RAW || eClock == CLOCK_BOOTTIME)
    {
        const long nNanoseconds = ptTime->tv_nsec + t_nSkipped % 1000 * 1000000;
        ptTime->tv_nsec = nNanoseconds % 1000000000;
        ptTime->tv_sec += t_nSkipped / 1000 + nNanoseconds / 1000000000;
    }
    ptTime->tv_sec += eClock == CLOCK_BOOTTIME ? g_tCalls.nSecondsAsleep.load() : 0;
    return nResult;
}

/** Finds for "counted.invalid" what calls.h describes. */
int LookUp(decltype(&getaddrinfo) pfnNext, const char* pszName, const char* pszService, const addrinfo* ptHints,
           addrinfo** pptResult)
{
    const std::string_view strName = pszName != nullptr ? pszName : "";
    if (strName == "counted.invalid")
    {
        while (g_tCalls.bNameServerSilent)
        {
            poll(nullptr, 0, 10);
        }
        ++g_tCalls.nLookUps;
        g_tCalls.nFamily = ptHints->ai_family;
        const char* const pszAddress = g_tCalls.pszAddress.exchange("127.0.0.1");
        return pszAddress != nullptr ? pfnNext(pszAddress, pszService, nullptr, pptResult) : EAI_AGAIN;
    }
    return pfnNext(pszName, pszService, ptHints, pptResult);
}

void* WithAuthorities(void* pEasy)
{
    constexpr int CAINFO = 10065;
    constexpr int CAPATH = 10097;
    static auto* const s_pfnSet = reinterpret_cast<int (*)(void*, int, ...)>(dlsym(RTLD_NEXT, "curl_easy_setopt"));
    const char* const pszFolder = g_tCalls.pszAuthorities;
    if (pszFolder != nullptr)
    {
        s_pfnSet(pEasy, CAINFO, (std::string(pszFolder) + "/ca.pem").c_str());
        s_pfnSet(pEasy, CAPATH, pszFolder);
    }
    return pEasy;
}

} // namespace

/* The other name avoids conflicts with the declarations and macros of the system's headers. */
#define REPLACE(RESULT, NAME, PARAMETERS, EXPRESSION)                                                   \
    extern "C" __attribute__((visibility("default"))) RESULT Own_##NAME PARAMETERS __asm__(#NAME);      \
    RESULT Own_##NAME PARAMETERS                                                                        \
    {                                                                                                   \
        static auto* const s_pfnNext = reinterpret_cast<RESULT(*) PARAMETERS>(dlsym(RTLD_NEXT, #NAME)); \
        return EXPRESSION;                                                                              \
    }
#define CALL(RESULT, NAME, PARAMETERS, ARGUMENTS, FAILED, WHAT)                                      \
    REPLACE(RESULT, NAME, PARAMETERS,                                                                \
            Meet(#NAME, __builtin_return_address(0), [&]() -> std::string { return WHAT; }) ? FAILED \
                                                                                            : s_pfnNext ARGUMENTS)

CALL(int, open64, (const char* pszPath, int nFlags, mode_t nMode), (pszPath, nFlags, nMode), Failed(-1), "")
CALL(FILE*, fopen64, (const char* pszPath, const char* pszMode), (pszPath, pszMode), Failed<FILE*>(nullptr), "")
CALL(FILE*, fdopen, (int nFile, const char* pszMode), (nFile, pszMode), Failed<FILE*>(nullptr), "")
CALL(size_t, fwrite, (const void* pData, size_t nSize, size_t nCount, FILE* pFile), (pData, nSize, nCount, pFile),
     Failed(size_t{0}), PathOf(fileno(pFile)))
/* A write to an event descriptor can only be interrupted. */
CALL(ssize_t, write, (int nFile, const void* pData, size_t nSize), (nFile, pData, nSize), (errno = EINTR, -1),
     PathOf(nFile))
CALL(int, fflush, (FILE * pFile), (pFile), Failed(EOF), "")
CALL(int, fsync, (int nFile), (nFile), Failed(-1), PathOf(nFile))
CALL(int, fclose, (FILE * pFile), (pFile), (s_pfnNext(pFile), Failed(EOF)), "")
CALL(int, close, (int nFile), (nFile), (s_pfnNext(nFile), Failed(-1)), "")
CALL(int, rename, (const char* pszFrom, const char* pszTo), (pszFrom, pszTo), Failed(-1),
     std::string(pszFrom) + ' ' + pszTo)
CALL(int, socket, (int nFamily, int nType, int nProtocol), (nFamily, nType, nProtocol), Failed(-1), "")
CALL(int, connect, (int nSocket, const void* ptPeer, socklen_t nSize), (nSocket, ptPeer, nSize), Failed(-1), "")
CALL(int, epoll_create1, (int nFlags), (nFlags), Failed(-1), "")
CALL(int, epoll_ctl, (int nEpoll, int nWhat, int nFile, epoll_event* ptEvent), (nEpoll, nWhat, nFile, ptEvent),
     Failed(-1), "")
REPLACE(int, epoll_wait, (int nEpoll, epoll_event* ptEvents, int nMost, int nTime),
        Meet("epoll_wait", __builtin_return_address(0), [] { return ""; })
            ? Failed(-1)
            : Wait(s_pfnNext, nEpoll, ptEvents, nMost, nTime))
CALL(int, eventfd, (unsigned nValue, int nFlags), (nValue, nFlags), Failed(-1), "")
CALL(int, sem_init, (void* pSemaphore, int nShared, unsigned nValue), (pSemaphore, nShared, nValue), Failed(-1), "")
CALL(int, sem_wait, (void* pSemaphore), (pSemaphore), Failed(-1), "")
CALL(int, pthread_create, (void* pThread, const void* pAttributes, void* (*pfnRun)(void*), void* pArgument),
     (pThread, pAttributes, pfnRun, pArgument), EAGAIN, "")
REPLACE(void*, curl_easy_init, (), WithAuthorities(s_pfnNext()))
REPLACE(void, curl_easy_reset, (void* pEasy), (s_pfnNext(pEasy), static_cast<void>(WithAuthorities(pEasy))))
CALL(void*, curl_slist_append, (void* ptList, const char* pszText), (ptList, pszText), nullptr, "")
constexpr int CURLM_NO_MEMORY = 3;
CALL(int, curl_multi_add_handle, (void* pMulti, void* pEasy), (pMulti, pEasy), CURLM_NO_MEMORY, "")

REPLACE(int, clock_gettime, (clockid_t eClock, TIME_t* ptTime), ReadClock(s_pfnNext, eClock, ptTime))
#if __SIZEOF_LONG__ == 4 // libraries differ in their time_t
REPLACE(int, __clock_gettime64, (clockid_t eClock, timespec* ptTime), ReadClock(s_pfnNext, eClock, ptTime))
#endif
REPLACE(int, getaddrinfo, (const char* pszName, const char* pszService, const addrinfo* ptHints, addrinfo** pptResult),
        LookUp(s_pfnNext, pszName, pszService, ptHints, pptResult))
