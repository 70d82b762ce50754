/* Downloads files side by side, and tells what has become of each: manager URL FILE [URL FILE]… */

#include <cstdio>
#include <list>

#include "download.h"

int main(int nArguments, char* arrArguments[])
{
    if (nArguments < 3 || nArguments % 2 == 0)
    {
        static_cast<void>(std::fprintf(stderr, "usage: manager URL FILE [URL FILE]…\n"));
        return 2;
    }
    CSingleton<CWebConnector>::GetInstance()->Create();
    std::list<CDownload> lstDownloads;
    for (int i = 1; i < nArguments; i += 2)
    {
        lstDownloads.emplace_back(arrArguments[i], arrArguments[i + 1]).Start();
    }
    bool bAllStored = true;
    for (CDownload& tDownload : lstDownloads)
    {
        const std::string strReason = tDownload.Wait().strReason;
        bAllStored = bAllStored && strReason.empty();
        std::printf("%s\n", strReason.empty() ? "Stored" : strReason.c_str());
    }
    CSingleton<CWebConnector>::GetInstance()->Destroy();
    return bAllStored ? 0 : 1;
}
