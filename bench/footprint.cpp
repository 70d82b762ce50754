/*
 * Measures the highest use of heap by requests, compared with before the engine's start: "footprint http|https N CA"
 * makes one synchronous request, or N asynchronous ones of which none is answered before all have arrived. Every
 * allocation of the process counts with its usable size, those of libcurl and the TLS library included; stacks and code
 * do not.
 */

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <malloc.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include "loopback_server.h"
#include "veltra/veltra.h"

namespace
{

std::atomic<size_t> g_nNow{0};
std::atomic<size_t> g_nPeak{0};

void* Count(void* pMemory)
{
    const size_t nNow = g_nNow += malloc_usable_size(pMemory);
    size_t nPeak = g_nPeak;
    while (nNow > nPeak && !g_nPeak.compare_exchange_weak(nPeak, nNow))
    {
    }
    return pMemory;
}

void Uncount(void* pMemory)
{
    g_nNow -= malloc_usable_size(pMemory);
}

} // namespace

/* These replace the C library's allocator; they only count. */
extern "C"
{
    void* __libc_malloc(size_t nSize);
    void* __libc_calloc(size_t nCount, size_t nSize);
    void* __libc_realloc(void* pMemory, size_t nSize);
    void* __libc_memalign(size_t nAlignment, size_t nSize);
    void __libc_free(void* pMemory);

    void* malloc(size_t nSize)
    {
        return Count(__libc_malloc(nSize));
    }

    void* calloc(size_t nCount, size_t nSize)
    {
        return Count(__libc_calloc(nCount, nSize));
    }

    void* realloc(void* pMemory, size_t nSize)
    {
        Uncount(pMemory);
        return Count(__libc_realloc(pMemory, nSize));
    }

    int posix_memalign(void** ppMemory, size_t nAlignment, size_t nSize)
    {
        *ppMemory = Count(__libc_memalign(nAlignment, nSize));
        return *ppMemory != nullptr ? 0 : ENOMEM;
    }

    void free(void* pMemory)
    {
        Uncount(pMemory);
        __libc_free(pMemory);
    }
}

namespace
{

/** Runs the server in a process of its own, so that only the client's memory counts. @return that process */
pid_t StartServer(bool bTls, int nRequests, std::string& strUrl)
{
    int arrPipe[2];
    const pid_t nServer = pipe(arrPipe) == 0 ? fork() : -1;
    if (nServer == 0)
    {
        CGate tArrived;
        const auto fnAnswer = [&tArrived, nRequests](CConnection& tConnection, const REQUEST_t&)
        {
            tArrived.Open();
            tArrived.Wait(nRequests);
            tConnection.Answer(std::string(1024, 'x'));
        };
        const CLoopbackServer tServer(fnAnswer, bTls);
        const std::string strOwnUrl = tServer.Url();
        _exit(write(arrPipe[1], strOwnUrl.data(), strOwnUrl.size()) < 0 ? 1 : pause());
    }
    char szUrl[64] = "";
    strUrl.assign(szUrl, read(arrPipe[0], szUrl, sizeof szUrl) > 0 ? strlen(szUrl) : 0);
    return nServer;
}

} // namespace

int main(int nArguments, char* arrArguments[])
{
    if (nArguments < 4)
    {
        return 2;
    }
    const int nRequests = atoi(arrArguments[2]);
    _HTTP_REQ_INFO_t tRequest;
    tRequest.eMethod = HTTP_METHOD_GET;
    const pid_t nServer = StartServer(arrArguments[1] == std::string("https"), nRequests, tRequest.strUrl);
    if (nServer < 0 || tRequest.strUrl.empty())
    {
        return 1;
    }
    CKVRDebug::SetSink([](unsigned int, const char*, void*) {}, nullptr);
    WQCurl::TRANSFER_SETTINGS_t tSettings;
    const bool bFolder = std::filesystem::is_directory(arrArguments[3]);
    (bFolder ? tSettings.strCaFolder : tSettings.strCaFile) = arrArguments[3];
    WQCurl::SetTransferDefaults(tSettings);
    CGate tSucceeded;
    tRequest.pUserData = &tSucceeded;
    tRequest.pfnRequestCB = [](bool bResult, std::string&, std::string&, void* pGate)
    { static_cast<CGate*>(pGate)->Open(bResult ? 1 : 0); };

    const size_t nBefore = g_nNow;
    g_nPeak = nBefore;
    CWebConnector& tEngine = *CSingleton<CWebConnector>::GetInstance();
    tEngine.Create();
    for (int i = 0; i < nRequests; ++i)
    {
        tEngine.Get(&tRequest, nRequests == 1);
    }
    const bool bAll = tSucceeded.Wait(nRequests);
    if (bAll)
    {
        printf("%zu\n", (g_nPeak - nBefore) / 1024);
    }
    tEngine.Destroy();
    kill(nServer, SIGKILL);
    waitpid(nServer, nullptr, 0);
    return bAll ? 0 : 1;
}
