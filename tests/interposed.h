#pragma once

#include "loopback_server.h"

/** What the system's and libcurl's functions do that the tests put others before, also for the libraries themselves. */
struct INTERPOSED_t
{
    CGate tNameServer;                      /**< "silent.invalid" is looked up until it opens */
    std::atomic<int> nLookUps{0};           /**< of "counted.invalid", which is this machine */
    std::atomic<int> nFamily{-1};           /**< of the last such look-up */
    std::atomic<bool> bRefuseMemory{false}; /**< curl_multi_add_handle() and curl_slist_append() have none */
    std::atomic<bool> bFailWaits{false};    /**< epoll_wait() fails */
    std::atomic<int> nWaits{0};             /**< calls of epoll_wait() */
    std::atomic<long> nSecondsAsleep{0};    /**< time that the device has slept besides */
};

extern INTERPOSED_t g_tInterposed;
