#pragma once

#include <fstream>
#include <functional>
#include <list>
#include <string>
#include <thread>

inline std::string ReadFile(const std::string& strPath)
{
    std::ifstream tFile(strPath, std::ios::binary);
    return {std::istreambuf_iterator<char>(tFile), {}};
}

/** Runs an operation for each index below nCount, spread over so many threads. */
inline void ForEach(size_t nThreads, size_t nCount, const std::function<void(size_t)>& fnOperation)
{
    std::list<std::thread> lstThreads;
    for (size_t nFirst = 0; nFirst < nThreads; ++nFirst)
    {
        lstThreads.emplace_back(
            [=, &fnOperation]
            {
                for (size_t i = nFirst; i < nCount; i += nThreads)
                {
                    fnOperation(i);
                }
            });
    }
    for (std::thread& tThread : lstThreads)
    {
        tThread.join();
    }
}
