#pragma once

#include <atomic>

extern std::atomic<const char*> g_pszFailing;    /**< the function of which a call fails */
extern std::atomic<int> g_nUntilFailure;         /**< how many succeed before that; negative: none fails */
extern std::atomic<int> g_nError;                /**< its errno */
extern thread_local int t_nAllocationsToFailure; /**< as g_nUntilFailure, for what this thread allocates */
