#include "veltra/desktop/socket_set.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>

namespace
{

constexpr int REFUSED_MILLISECONDS = 10; // the longest wait while a socket is not registered

/** Returns the inode of an open socket; 0 for any other descriptor. */
ino_t Inode(int nDescriptor)
{
    struct stat tStat = {};
    /* ThreadSanitizer would take fstat() of a descriptor that the application has opened since for a race. */
    return fstatat(nDescriptor, "", &tStat, AT_EMPTY_PATH) == 0 && S_ISSOCK(tStat.st_mode) ? tStat.st_ino : 0;
}

} // namespace

bool CSocketSet::Open()
{
    m_tEpoll.Reset(epoll_create1(EPOLL_CLOEXEC));
    return m_tEpoll.Get() >= 0;
}

void CSocketSet::OnOpened(int nSocket)
{
    const auto nIndex = static_cast<size_t>(nSocket);
    if (nIndex >= m_vecSockets.size())
    {
        m_vecSockets.resize(nIndex + 1);
    }
    m_nOpen += m_vecSockets[nIndex].bTracked ? 0 : 1; // libcurl has not told that it closed the one before
    m_vecSockets[nIndex] = {};
    m_vecSockets[nIndex].bTracked = true;
    m_vecSockets[nIndex].nInode = Inode(nSocket);
}

void CSocketSet::OnClosing(int nSocket)
{
    SOCKET_t* ptSocket = Find(nSocket);
    if (ptSocket == nullptr)
    {
        return;
    }
    if (ptSocket->nRegistered != 0)
    {
        /* close() alone does not unregister a socket if a forked process has a copy of it. */
        epoll_ctl(m_tEpoll.Get(), EPOLL_CTL_DEL, nSocket, nullptr);
    }
    *ptSocket = {};
    --m_nOpen;
}

bool CSocketSet::Want(int nDescriptor, uint32_t nEvents)
{
    SOCKET_t* ptSocket = nEvents != 0 || IsStillOpen(nDescriptor) ? Find(nDescriptor) : nullptr;
    if (ptSocket == nullptr)
    {
        if (nEvents == 0)
        {
            /* It fails for a descriptor that has been closed already. */
            epoll_ctl(m_tEpoll.Get(), EPOLL_CTL_DEL, nDescriptor, nullptr);
            return true;
        }
        return Register(EPOLL_CTL_ADD, nDescriptor, nEvents);
    }
    ptSocket->nWanted = nEvents;
    if (nEvents == 0 || nEvents == ptSocket->nRegistered)
    {
        return true;
    }
    const int nFirst = ptSocket->nRegistered != 0 ? EPOLL_CTL_MOD : EPOLL_CTL_ADD;
    const bool bRegistered = Register(nFirst, nDescriptor, nEvents);
    ptSocket->nRegistered = bRegistered ? nEvents : 0;
    m_bRefused = m_bRefused || !bRegistered;
    return bRegistered;
}

/** Retries sockets that epoll_ctl() has refused. libcurl asks only once: the transfer would stall until its time-out.
 */
void CSocketSet::RegisterRefused()
{
    m_bRefused = false;
    for (size_t nIndex = 0; nIndex < m_vecSockets.size(); ++nIndex)
    {
        const SOCKET_t& tSocket = m_vecSockets[nIndex];
        if (tSocket.nWanted != 0 && tSocket.nRegistered == 0)
        {
            Want(static_cast<int>(nIndex), tSocket.nWanted);
        }
    }
}

int CSocketSet::Wait(epoll_event* ptEvents, int nMost, int nMilliseconds)
{
    if (m_bRefused)
    {
        RegisterRefused();
        nMilliseconds = m_bRefused ? std::min(nMilliseconds, REFUSED_MILLISECONDS) : nMilliseconds;
    }
    const int nEvents = epoll_wait(m_tEpoll.Get(), ptEvents, nMost, nMilliseconds);
    return nEvents < 0 && errno == EINTR ? 0 : nEvents;
}

bool CSocketSet::IsWanted(int nDescriptor)
{
    SOCKET_t* ptSocket = Find(nDescriptor);
    if (ptSocket == nullptr || ptSocket->nWanted != 0)
    {
        return true;
    }
    ptSocket->nRegistered = 0;
    epoll_ctl(m_tEpoll.Get(), EPOLL_CTL_DEL, nDescriptor, nullptr);
    return false;
}

const std::vector<int>& CSocketSet::FindUnexpected()
{
    m_vecPolled.clear();
    for (size_t nIndex = 0; nIndex < m_vecSockets.size(); ++nIndex)
    {
        const SOCKET_t& tSocket = m_vecSockets[nIndex];
        if (tSocket.bTracked && tSocket.nWanted == 0 && !tSocket.bShutDown)
        {
            m_vecPolled.push_back({static_cast<int>(nIndex), POLLIN, 0});
        }
    }
    m_vecUnexpected.clear();
    if (!m_vecPolled.empty() && poll(m_vecPolled.data(), m_vecPolled.size(), 0) > 0)
    {
        for (const pollfd& tPolled : m_vecPolled)
        {
            if (tPolled.revents != 0 && IsStillOpen(tPolled.fd))
            {
                m_vecUnexpected.push_back(tPolled.fd);
            }
        }
    }
    return m_vecUnexpected;
}

void CSocketSet::ShutDown(int nSocket)
{
    Find(nSocket)->bShutDown = true;
    /* First, so that nothing more arrives. */
    shutdown(nSocket, SHUT_RDWR);
    char arrUnused[4096];
    while (recv(nSocket, arrUnused, sizeof arrUnused, MSG_DONTWAIT) > 0)
    {
    }
}

CSocketSet::SOCKET_t* CSocketSet::Find(int nDescriptor)
{
    const auto nIndex = static_cast<size_t>(nDescriptor);
    return nIndex < m_vecSockets.size() && m_vecSockets[nIndex].bTracked ? &m_vecSockets[nIndex] : nullptr;
}

/** Returns whether an opened socket is still the same one, and forgets it otherwise. */
bool CSocketSet::IsStillOpen(int nSocket)
{
    SOCKET_t* ptSocket = Find(nSocket);
    const bool bOpen = ptSocket != nullptr && ptSocket->nInode == Inode(nSocket);
    if (ptSocket != nullptr && !bOpen)
    {
        *ptSocket = {};
        --m_nOpen;
    }
    return bOpen;
}

bool CSocketSet::Register(int nFirst, int nDescriptor, uint32_t nEvents)
{
    epoll_event tEvent{};
    tEvent.events = nEvents;
    tEvent.data.fd = nDescriptor;
    /* libcurl may close a descriptor and reuse its number before it tells: the registration may be another one. */
    const int nOther = nFirst == EPOLL_CTL_MOD ? EPOLL_CTL_ADD : EPOLL_CTL_MOD;
    return epoll_ctl(m_tEpoll.Get(), nFirst, nDescriptor, &tEvent) == 0 ||
           epoll_ctl(m_tEpoll.Get(), nOther, nDescriptor, &tEvent) == 0;
}
