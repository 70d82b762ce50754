/*
 * Veltra: three GETs of one URL, "veltra_first_answer URL CA_FILE". It prints the seconds of the process's first one,
 * of one over the same connection, and of one after NetworkChanged(), which needs a new connection.
 */

#include <chrono>
#include <cstdio>

#include "veltra_client.h"

int main(int nArguments, char* arrArguments[])
{
    if (nArguments < 3)
    {
        return 2;
    }
    CWebConnector& tEngine = StartEngine(arrArguments[2]);
    bool bAll = true;
    for (const char* pszEnd : {" ", " ", "\n"})
    {
        if (*pszEnd == '\n')
        {
            WQCurl::NetworkChanged();
        }
        _HTTP_REQ_INFO_t tRequest;
        tRequest.eMethod = HTTP_METHOD_GET;
        tRequest.strUrl = arrArguments[1];
        const auto tStart = std::chrono::steady_clock::now();
        bAll = tEngine.Get(&tRequest, true) && bAll;
        printf("%.6f%s", std::chrono::duration<double>(std::chrono::steady_clock::now() - tStart).count(), pszEnd);
    }
    tEngine.Destroy();
    return bAll ? 0 : 1;
}
