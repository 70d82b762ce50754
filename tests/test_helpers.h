#pragma once

#include <fstream>
#include <string>

inline std::string ReadFile(const std::string& strPath)
{
    std::ifstream tFile(strPath, std::ios::binary);
    return {std::istreambuf_iterator<char>(tFile), {}};
}
