#pragma once

/** While it lives, what the library writes to files on this thread fails, as on a full disk, if bFull is true. */
class CFullDisk
{
public:
    explicit CFullDisk(bool bFull);
    ~CFullDisk();
    CFullDisk(const CFullDisk&) = delete;
    CFullDisk& operator=(const CFullDisk&) = delete;
};
