#pragma once

#include <cstdint>
#include <poll.h>
#include <sys/epoll.h>
#include <vector>

#include "veltra/desktop/descriptor.h"

/**
 * The sockets that libcurl waits on, in an epoll descriptor.
 *
 * libcurl drops its interest in a connection at the end of each transfer and takes it up again with the next. Sockets
 * whose opening and closing are told here stay registered in between, which saves two system calls a transfer; an event
 * that nobody wants takes them out.
 */
class CSocketSet
{
public:
    bool Open();

    /** A connection's socket has been opened, or is about to be closed. OnOpened() may throw std::bad_alloc. */
    void OnOpened(int nSocket);
    void OnClosing(int nSocket);

    /**
     * Waits for these EPOLL events of any descriptor from now on; for none with 0.
     * @return false when it cannot; of an opened socket Wait() tries that again
     */
    bool Want(int nDescriptor, uint32_t nEvents);

    /** As epoll_wait(); interrupted by a signal, it has no events. */
    int Wait(epoll_event* ptEvents, int nMost, int nMilliseconds);

    /** Returns the opened sockets that nobody waits for and that have something to read. Valid until the next call. */
    const std::vector<int>& FindUnexpected();

    /** Ends the connection of an opened socket, and reads away what it has received: libcurl then finds it dead. */
    void ShutDown(int nSocket);

    /** How many of the sockets that were opened are not closed. */
    int CountOpen() const { return m_nOpen; }

    /** Whether anybody waits for the descriptor of an event that Wait() has returned. */
    bool IsWanted(int nDescriptor);

private:
    struct SOCKET_t
    {
        bool bTracked = false;    /**< open, and its closing will be told */
        bool bShutDown = false;   /**< ShutDown() has been called */
        uint32_t nRegistered = 0; /**< the events that the kernel reports */
        uint32_t nWanted = 0;
    };

    SOCKET_t* Find(int nDescriptor);
    bool Register(int nFirst, int nDescriptor, uint32_t nEvents);
    void RegisterRefused();

    CDescriptor m_tEpoll;
    std::vector<SOCKET_t> m_vecSockets; /**< by number */
    std::vector<pollfd> m_vecPolled;    /**< of FindUnexpected(), kept for its memory; as the next */
    std::vector<int> m_vecUnexpected;
    int m_nOpen = 0;
    bool m_bRefused = false; /**< the kernel does not report an opened socket that is wanted */
};
