/*
 * System calls that fail on demand, or are written down: each that the library, libcurl, GLib or the tool makes.
 * allocation_test is linked with it; it is preloaded into the tool, whose calls go to the file that CALLS_LOG names.
 */

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <sys/epoll.h>
#include <sys/socket.h>

std::atomic<const char*> g_pszFailing{""}; /**< the function of which a call fails */
std::atomic<int> g_nUntilFailure{-1};      /**< how many succeed before that; negative: none fails */
std::atomic<int> g_nError{0};              /**< its errno */

namespace
{

std::string PathOf(int nFile)
{
    std::error_code tNone;
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(nFile), tNone);
}

/** Writes a call down. @return whether it is to fail */
template <class WHAT> bool Meet(const char* pszName, const void* pCaller, WHAT fnWhat)
{
    static const char* const s_pszLog = getenv("CALLS_LOG");
    Dl_info tFrom{};
    if ((s_pszLog == nullptr && g_nUntilFailure < 0) || dladdr(pCaller, &tFrom) == 0)
    {
        return false;
    }
    const std::string_view strFrom = basename(tFrom.dli_fname);
    if (strFrom.find("veltra") + 1 + strFrom.find("libcurl") + 1 + strFrom.find("libglib") + 1 == 0)
    {
        return false;
    }
    if (s_pszLog != nullptr)
    {
        std::ofstream(s_pszLog, std::ios::app) << pszName << ' ' << fnWhat() << '\n';
    }
    return strcmp(pszName, g_pszFailing) == 0 && g_nUntilFailure-- == 0;
}

template <class RESULT> RESULT Failed(RESULT tResult)
{
    errno = g_nError;
    return tResult;
}

} // namespace

/* By another name, so that each can be defined whatever the system's headers make of it. */
#define CALL(RESULT, NAME, PARAMETERS, ARGUMENTS, FAILED, WHAT)                                         \
    extern "C" __attribute__((visibility("default"))) RESULT Own_##NAME PARAMETERS __asm__(#NAME);      \
    RESULT Own_##NAME PARAMETERS                                                                        \
    {                                                                                                   \
        static auto* const s_pfnNext = reinterpret_cast<RESULT(*) PARAMETERS>(dlsym(RTLD_NEXT, #NAME)); \
        const auto fnWhat = [&]() -> std::string { return WHAT; };                                      \
        return Meet(#NAME, __builtin_return_address(0), fnWhat) ? FAILED : s_pfnNext ARGUMENTS;         \
    }

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
/* Closed it is all the same. */
CALL(int, fclose, (FILE * pFile), (pFile), (s_pfnNext(pFile), Failed(EOF)), "")
CALL(int, close, (int nFile), (nFile), (s_pfnNext(nFile), Failed(-1)), "")
CALL(int, rename, (const char* pszFrom, const char* pszTo), (pszFrom, pszTo), Failed(-1),
     std::string(pszFrom) + ' ' + pszTo)
CALL(int, socket, (int nFamily, int nType, int nProtocol), (nFamily, nType, nProtocol), Failed(-1), "")
CALL(int, connect, (int nSocket, const void* ptPeer, socklen_t nSize), (nSocket, ptPeer, nSize), Failed(-1), "")
CALL(int, epoll_create1, (int nFlags), (nFlags), Failed(-1), "")
CALL(int, epoll_ctl, (int nEpoll, int nWhat, int nFile, epoll_event* ptEvent), (nEpoll, nWhat, nFile, ptEvent),
     Failed(-1), "")
CALL(int, epoll_wait, (int nEpoll, epoll_event* ptEvents, int nMost, int nTime), (nEpoll, ptEvents, nMost, nTime),
     Failed(-1), "")
CALL(int, eventfd, (unsigned nValue, int nFlags), (nValue, nFlags), Failed(-1), "")
CALL(int, sem_init, (void* pSemaphore, int nShared, unsigned nValue), (pSemaphore, nShared, nValue), Failed(-1), "")
CALL(int, pthread_create, (void* pThread, const void* pAttributes, void* (*pfnRun)(void*), void* pArgument),
     (pThread, pAttributes, pfnRun, pArgument), EAGAIN, "")
