#pragma once

#include <unistd.h>
#include <utility>

/** Owns a file descriptor, and closes it. */
class CDescriptor
{
public:
    CDescriptor() = default;
    ~CDescriptor() { Reset(-1); }
    CDescriptor(const CDescriptor&) = delete;
    CDescriptor& operator=(const CDescriptor&) = delete;

    void Reset(int nDescriptor)
    {
        if (m_nDescriptor >= 0)
        {
            close(m_nDescriptor);
        }
        m_nDescriptor = nDescriptor;
    }
    /** Hands the descriptor to the caller, who closes it. */
    int Release() { return std::exchange(m_nDescriptor, -1); }
    int Get() const { return m_nDescriptor; }

private:
    int m_nDescriptor = -1;
};
