#pragma once

#include <cstdint>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/types.h>
#include <vector>

#include "veltra/desktop/descriptor.h"

/**
 * The sockets that libcurl waits on, in an epoll descriptor.
 *
 * libcurl stops waiting on a connection at the end of each transfer and waits on it again for the next. Sockets that
 * OnOpened() has announced stay registered in between, which saves two system calls a transfer. An event on a socket
 * that libcurl does not wait on unregisters it.
 *
 * Some libcurls do not tell that they close a socket whose connection has not been established. The application may
 * open another descriptor with its number, which must be left alone: each socket is recognised by its inode.
 */
class CSocketSet
{
public:
    bool Open();

    /** Announces that a socket has been opened, or is about to be closed. OnOpened() may throw std::bad_alloc. */
    void OnOpened(int nSocket);
    void OnClosing(int nSocket);

    /**
     * Waits for these EPOLL events of a descriptor from now on; for none with 0.
     * @return false if the kernel refuses; Wait() tries again for an opened socket
     */
    bool Want(int nDescriptor, uint32_t nEvents);

    /** Waits as epoll_wait() does. A wait that a signal interrupts returns no events. */
    int Wait(epoll_event* ptEvents, int nMost, int nMilliseconds);

    /** Returns the opened sockets that nobody waits for and that have something to read. Valid until the next call. */
    const std::vector<int>& FindUnexpected();

    /** Ends the connection of an opened socket and discards the data it has received: libcurl then finds it dead. */
    void ShutDown(int nSocket);

    /** Returns the number of opened sockets that are not closed. */
    int CountOpen() const { return m_nOpen; }

    /** Returns whether libcurl waits on the descriptor of an event that Wait() has returned. */
    bool IsWanted(int nDescriptor);

private:
    struct SOCKET_t
    {
        bool bTracked = false;    /**< between OnOpened() and the end of the socket, as far as that is known */
        ino_t nInode = 0;         /**< of the socket */
        bool bShutDown = false;   /**< ShutDown() has been called */
        uint32_t nRegistered = 0; /**< the events that the kernel reports */
        uint32_t nWanted = 0;
    };

    SOCKET_t* Find(int nDescriptor);
    bool IsStillOpen(int nSocket);
    bool Register(int nFirst, int nDescriptor, uint32_t nEvents);
    void RegisterRefused();

    CDescriptor m_tEpoll;
    std::vector<SOCKET_t> m_vecSockets; /**< by number */
    std::vector<pollfd> m_vecPolled;    /**< used by FindUnexpected(); kept, as the next, to save allocations */
    std::vector<int> m_vecUnexpected;
    int m_nOpen = 0;
    bool m_bRefused = false; /**< the kernel has refused to register an opened socket */
};
