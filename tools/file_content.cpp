#include "file_content.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>

int ReadContent(const std::string& strPath, std::string& strContent)
{
    const std::unique_ptr<FILE, int (*)(FILE*)> pFile(strPath == "-" ? stdin : fopen(strPath.c_str(), "rbe"), &fclose);
    if (pFile == nullptr)
    {
        return errno;
    }
    std::array<char, 65536> arrData{};
    for (size_t nRead = 0; (nRead = fread(arrData.data(), 1, arrData.size(), pFile.get())) > 0;)
    {
        strContent.append(arrData.data(), nRead);
    }
    return ferror(pFile.get()) != 0 ? errno : 0;
}
