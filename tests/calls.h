#pragma once

#include <atomic>

/** Controls the functions that calls.cpp defines in the place of the system's and libcurl's. */
struct CALLS_t
{
    void Fail(const char* pszName, int eError, int nSucceeding = 0)
    {
        pszFailing = pszName;
        nError = eError;
        nUntilFailure = nSucceeding;
    }

    std::atomic<const char*> pszFailing{""}; /**< name of the function of which a call fails */
    std::atomic<int> nUntilFailure{-1};      /**< calls that succeed before that one; negative: none fails */
    std::atomic<int> nError{0};              /**< errno of the failure */

    std::atomic<bool> bNameServerSilent{false};       /**< look-ups of "counted.invalid" do not end */
    std::atomic<int> nLookUps{0};                     /**< look-ups of "counted.invalid" */
    std::atomic<int> nFamily{-1};                     /**< address family of the last of them */
    std::atomic<const char*> pszAddress{"127.0.0.1"}; /**< result of the next of them; null: none */

    /** A wait of 100 ms or more takes a twentieth of its time, and the waiting thread's clocks skip the rest. */
    std::atomic<bool> bHurry{false};
    std::atomic<long> nSecondsAsleep{0};              /**< time that the device has slept */
    std::atomic<const char*> pszAuthorities{nullptr}; /**< folder of the system's authorities; null: the real one */
};

extern CALLS_t g_tCalls;
