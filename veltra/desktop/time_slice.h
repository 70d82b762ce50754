#pragma once

#include <cstddef>

namespace WQCurl
{

/**
 * Counts the data that a transfer takes before others get their turn. Without a limit libcurl would read a hundred
 * buffers before it returns, and a body in tiny chunks would cost a call for each.
 */
class CTimeSlice
{
public:
    /** Counts one call with data. */
    void Use(size_t nBytes)
    {
        m_nBytes += nBytes;
        ++m_nCalls;
    }

    bool IsUsedUp() const { return m_nBytes >= MOST_BYTES || m_nCalls >= MOST_CALLS; }

private:
#ifdef FUZZING_BUILD_MODE_UNSAFE_FOR_PRODUCTION
    static constexpr size_t MOST_BYTES = 16; // for the short bodies that fuzzers make
#else
    static constexpr size_t MOST_BYTES = 2097152;
#endif
    static constexpr size_t MOST_CALLS = 256; // a call may cost a system call, however few bytes it brings

    size_t m_nBytes = 0;
    size_t m_nCalls = 0;
};

} // namespace WQCurl
