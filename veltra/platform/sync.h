#pragma once

#include "veltra/export.h"

/** A semaphore that exists only between Create() and Destroy(). */
class VELTRA_API CSync
{
public:
    CSync();
    ~CSync();

    /** A copy is a fresh semaphore that is not created. */
    CSync(const CSync& tOther);

    /** Changes nothing. */
    CSync& operator=(const CSync& tOther);

    /** Makes the underlying semaphore, not signalled; one that exists is destroyed first.
     * @return false when the system has none left
     */
    bool Create();

    /** Blocks the calling thread until a Give(), without a time-out. Needs Create() before it. */
    void Take();

    /** Releases one waiter; any thread. The waiter it releases may destroy this object at once. */
    void Give();

    /** Frees the underlying semaphore; nobody may be waiting. Does nothing when it is not created. */
    void Destroy();

    /** True between Create() and Destroy(). */
    bool m_bCreated = false;

private:
    void* m_pSemaphore = nullptr;
};
