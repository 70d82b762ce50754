#pragma once

#include <list>

namespace WQCurl
{

struct TRANSFER_t;

/** The downloads that wait until fewer run than may run at the same time, in their order. Driving thread only. */
class CWaitingDownloads
{
public:
    /** Takes over the first download of a list. */
    void AddFirst(std::list<TRANSFER_t*>& lstDownloads);

    bool IsEmpty() const { return m_lstWaiting.empty(); }

    /** Returns whether the next download may start, as far as is known. */
    bool CanStart() const { return !m_lstWaiting.empty() && (m_nMost == 0 || m_nRunning < m_nMost); }

    /** Takes out the next download, which runs from now on. @param nMost 0: any number. @return null if all must wait
     */
    TRANSFER_t* Start(int nMost);

    int CountRunning() const { return m_nRunning; }

    /** Removes a download that waits or runs. */
    void Remove(TRANSFER_t& tTransfer);

private:
    std::list<TRANSFER_t*> m_lstWaiting;
    int m_nRunning = 0;
    int m_nMost = 0; /**< the last limit */
};

} // namespace WQCurl
