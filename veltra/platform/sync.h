#pragma once

#include "veltra/export.h"

/** A semaphore, which exists only between Create() and Destroy(). */
class VELTRA_API CSync
{
public:
    CSync();
    ~CSync();

    /** Constructs a new semaphore, which is not created. */
    CSync(const CSync& tOther);

    /** Does nothing: the semaphore stays as it is. */
    CSync& operator=(const CSync& tOther);

    /** Creates the semaphore, not signalled, and destroys an existing one first. @return false if the system refuses */
    bool Create();

    /** Blocks the calling thread until a Give(), without a time-out. The semaphore must have been created. */
    void Take();

    /** Releases one waiting thread, which may destroy this object at once. Any thread. */
    void Give();

    /** Destroys the semaphore, if it is created. No thread may be waiting. */
    void Destroy();

    /** True between Create() and Destroy(). */
    bool m_bCreated = false;

private:
    void* m_pSemaphore = nullptr;
};
