#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <mutex>
#include <optional>

#include "veltra/platform/wqcurl.h"

/** One transfer of the fake wrapper: what the engine has set. */
struct FAKE_TRANSFER_t
{
    WQCurl::WRITE_FUNCTION_t pfnWrite = nullptr;
    void* pWriteData = nullptr;
    WQCurl::PROGRESS_FUNCTION_t pfnProgress = nullptr;
    void* pProgressData = nullptr;
    void* pPrivate = nullptr;
};

/** Stands for libcurl behind the wrapper's classes: transfers nothing, writes down what it is asked for, and refuses
 * what it is told to refuse. Each scenario makes a new one. */
struct FAKE_WQCURL_t
{
    /** @return false for a step that is to be refused, once for each time that it is named */
    bool Allows(const std::string& strStep);

    std::list<std::string> lstRefused;                /**< names of steps and options */
    std::function<void(FAKE_TRANSFER_t&)> fnTransfer; /**< runs each transfer, on the thread that drives it */
    std::atomic<size_t> nTogether{1};                 /**< transfers end as soon as so many run */
    std::mutex tLock;
};

extern std::optional<FAKE_WQCURL_t> g_tFake;
extern std::atomic<int> g_nInterruptions; /**< so many of the next writes and waits for a semaphore are interrupted */

/** Writes a step down, between the log's records. */
void Note(const std::string& strStep);
