#pragma once

#include <atomic>

/** The system calls of the library, and of what it uses, of which one can be made to fail. */
struct CALLS_t
{
    std::atomic<int> nUntilFailure{-1};           /**< calls before that one; negative: none fails */
    std::atomic<int> nError{0};                   /**< its errno */
    std::atomic<const char*> pszFailed = nullptr; /**< which it was; null: none yet */
};

extern CALLS_t g_tCalls;
