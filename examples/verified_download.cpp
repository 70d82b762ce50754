/* Downloads a file, and moves it into place only if it is the right one: verified_download URL FILE SIZE SHA256 */

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <openssl/evp.h>
#include <vector>

#include "veltra/veltra.h"

namespace
{

/** Returns whether the file has that size and that SHA-256, in lower-case hexadecimal digits. */
bool IsRight(const std::string& strPath, long long nSize, const std::string& strSha256)
{
    std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> pContext(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
    std::ifstream tFile(strPath, std::ios::binary);
    bool bRead = tFile && pContext && EVP_DigestInit_ex(pContext.get(), EVP_sha256(), nullptr) == 1;
    std::vector<char> vecBlock(65536);
    long long nRead = 0;
    while (bRead && tFile)
    {
        tFile.read(vecBlock.data(), static_cast<std::streamsize>(vecBlock.size()));
        nRead += tFile.gcount();
        bRead = EVP_DigestUpdate(pContext.get(), vecBlock.data(), static_cast<size_t>(tFile.gcount())) == 1;
    }
    unsigned char arrDigest[EVP_MAX_MD_SIZE];
    unsigned int nDigest = 0;
    if (!bRead || tFile.bad() || EVP_DigestFinal_ex(pContext.get(), arrDigest, &nDigest) != 1)
    {
        return false;
    }
    std::string strDigest;
    for (unsigned int i = 0; i < nDigest; ++i)
    {
        constexpr char DIGITS[] = "0123456789abcdef";
        strDigest += {DIGITS[arrDigest[i] / 16], DIGITS[arrDigest[i] % 16]};
    }
    return nRead == nSize && strDigest == strSha256;
}

} // namespace

int main(int nArguments, char* arrArguments[])
{
    WQCurl::TRANSFER_SETTINGS_t tSettings;
    tSettings.bFailOnHttpError = true; // an error page is not worth its download
    tSettings.nLargestFile = nArguments == 5 ? std::strtoll(arrArguments[3], nullptr, 10) : 0;
    if (tSettings.nLargestFile <= 0 || !WQCurl::SetTransferDefaults(tSettings))
    {
        static_cast<void>(std::fprintf(stderr, "usage: verified_download URL FILE SIZE SHA256\n"));
        return 2;
    }
    const std::string strTarget = arrArguments[2];
    const std::string strNew = strTarget + ".new"; // in the same folder, so that the last step is one rename
    std::string strSha256 = arrArguments[4];
    std::transform(strSha256.begin(), strSha256.end(), strSha256.begin(),
                   [](unsigned char n) { return static_cast<char>(std::tolower(n)); });

    /* A callback that reads a large file would delay all other transfers. */
    const bool bWhole = CSingleton<CWebConnector>::GetInstance()->SyncDownloadFile(arrArguments[1], strNew, 600, 0);
    const bool bRight = bWhole && IsRight(strNew, tSettings.nLargestFile, strSha256);
    const bool bStored = bRight && std::rename(strNew.c_str(), strTarget.c_str()) == 0;
    if (!bStored)
    {
        static_cast<void>(std::remove(strNew.c_str()));
        static_cast<void>(std::remove((strNew + ".bak").c_str())); // what a failed synchronous download leaves
    }
    std::printf("%s\n", bStored ? "stored" : !bWhole ? "not downloaded" : !bRight ? "not the right file" : "not moved");
    return bStored ? 0 : 1;
}
