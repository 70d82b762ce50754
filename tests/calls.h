#pragma once

#include <atomic>

extern std::atomic<int> g_nUntilFailure;         /**< calls before the one that fails; negative: none does */
extern std::atomic<int> g_nError;                /**< its errno */
extern std::atomic<const char*> g_pszFailed;     /**< which it was */
extern thread_local int t_nAllocationsToFailure; /**< the same for what this thread allocates */
