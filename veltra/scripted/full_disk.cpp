/* The library's own fwrite(), in the place of the C library's. It is hidden: the application keeps the C library's. */

#include "veltra/scripted/full_disk.h"

#include <cerrno>
#include <cstdio>

namespace
{

thread_local bool t_bFull = false;

} // namespace

CFullDisk::CFullDisk(bool bFull)
{
    t_bFull = bFull;
}

CFullDisk::~CFullDisk()
{
    t_bFull = false;
}

/* It has a name of its own for the compiler, which would not hide a function that it knows. */
size_t WriteUnlessFull(const void* pData, size_t nSize, size_t nCount, FILE* pFile) __asm__("fwrite");

size_t WriteUnlessFull(const void* pData, size_t nSize, size_t nCount, FILE* pFile)
{
    if (t_bFull)
    {
        errno = ENOSPC;
        return 0;
    }
    flockfile(pFile);
    const size_t nWritten = fwrite_unlocked(pData, nSize, nCount, pFile);
    funlockfile(pFile);
    return nWritten;
}
