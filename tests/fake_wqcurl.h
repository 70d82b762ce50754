#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>

#include "veltra/platform/wqcurl.h"

/** One transfer of the fake wrapper: what the engine has set, and how it is to end. */
struct FAKE_TRANSFER_t
{
    WQCurl::WRITE_FUNCTION_t pfnWrite = nullptr;
    void* pWriteData = nullptr;
    WQCurl::PROGRESS_FUNCTION_t pfnProgress = nullptr;
    void* pProgressData = nullptr;
    void* pPrivate = nullptr;
    bool bReadable = true; /**< PRIVATE_INFO can be read */
    std::string strError;  /**< with one, it fails */
    std::string strLastError;
};

/**
 * Stands for libcurl behind the wrapper's classes: transfers nothing, writes down what it is asked for, and refuses
 * what it is told to refuse. Each test makes a new one; change the script while no request is under way.
 */
struct FAKE_WQCURL_t
{
    std::atomic<int> nMultiRefusals{0}; /**< how often the multi handle will not initialise */
    bool bInitialize = true;
    int nRefusedOption = 0;
    bool bAdd = true;
    bool bRemove = true;
    bool bPerform = true;
    std::atomic<int> nSelectFailures{0};              /**< how many waits will fail */
    int nRunning = 0;                                 /**< the number of running handles that is told */
    size_t nTogether = 1;                             /**< transfers end as soon as so many run */
    std::function<void(FAKE_TRANSFER_t&)> fnTransfer; /**< runs each transfer, on the thread that drives it */

    std::atomic<int> nSelects{0};
    std::string strJournal; /**< all settings and steps in order, a line each, options by number */
    std::mutex tLock;

    void Note(const std::string& strStep)
    {
        const std::lock_guard<std::mutex> tGuard(tLock);
        strJournal += strStep + "\n";
    }
};

extern std::optional<FAKE_WQCURL_t> g_tFake;
