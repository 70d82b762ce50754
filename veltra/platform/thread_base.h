#pragma once

#include <memory>

#include "veltra/export.h"

/** A thread that runs t_Main() of the derived class. Not copyable. */
class VELTRA_API CThreadBase
{
public:
    CThreadBase();

    /** The caller must have stopped the thread with Destroy(). */
    virtual ~CThreadBase();

    CThreadBase(const CThreadBase&) = delete;
    CThreadBase& operator=(const CThreadBase&) = delete;

    /**
     * Starts the thread. It receives no signals of the process, except those of its own faults (SIGSEGV and similar).
     * @param ulStackSize the minimum stack size in bytes
     * @return false if the thread runs already or the system refuses it
     */
    bool Create(unsigned long ulStackSize);

    /** Waits until t_Main() has returned, if the thread runs. The thread itself must not call this. */
    virtual void Destroy();

protected:
    /** Runs on the thread, which ends when this returns. It must not throw. */
    virtual void t_Main() = 0;

private:
    struct IMPL_t;
    std::unique_ptr<IMPL_t> m_pImpl;
};
