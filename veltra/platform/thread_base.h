#pragma once

#include <memory>

#include "veltra/export.h"

/** A thread that runs the t_Main() of the class derived from it. Not copyable. */
class VELTRA_API CThreadBase
{
public:
    CThreadBase();

    /** The thread must have been stopped with Destroy() before. */
    virtual ~CThreadBase();

    CThreadBase(const CThreadBase&) = delete;
    CThreadBase& operator=(const CThreadBase&) = delete;

    /**
     * Starts the thread, which receives none of the process's signals, but those of its own faults (SIGSEGV and its
     * like).
     * @param ulStackSize the least stack size in bytes
     * @return false when it runs already or the system refuses it
     */
    bool Create(unsigned long ulStackSize);

    /** Waits for t_Main() to return and reclaims the thread; does nothing when none runs. Never on the thread itself.
     */
    virtual void Destroy();

protected:
    /** What the thread runs; the thread ends when it returns. It must not throw. */
    virtual void t_Main() = 0;

private:
    struct IMPL_t;
    std::unique_ptr<IMPL_t> m_pImpl;
};
