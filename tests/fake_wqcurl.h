#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <optional>

#include "veltra/platform/wqcurl.h"

struct FAKE_TRANSFER_t
{
    WQCurl::WRITE_FUNCTION_t pfnWrite = nullptr;
    WQCurl::PROGRESS_FUNCTION_t pfnProgress = nullptr;
    std::map<int, void*> mapPointers; /**< by WQCURL_OPTION_TYPE */
};

/** The state of the fake wrapper, which transfers nothing, notes its calls and lets them fail on demand. */
struct FAKE_WQCURL_t
{
    std::list<std::string> lstWords;                  /**< options and operations that fail, and other conditions */
    std::function<void(FAKE_TRANSFER_t&)> fnTransfer; /**< runs each transfer, on the thread that drives it */
    std::function<void()> fnBeforeLstat;              /**< called before each lstat() */
    std::atomic<bool> bHold{false};                   /**< registered transfers do not run */
    std::mutex tLock;
};

extern std::optional<FAKE_WQCURL_t> g_tFake;

/** Takes one occurrence of a word out of g_tFake's. @return false if there is none */
bool Takes(const std::string& strWord);

/** Writes a step to the log, between the engine's records. */
void Note(const std::string& strStep);
