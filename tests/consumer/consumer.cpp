/* An application of the installed library, which hides all symbols of its own. */

#include "veltra/veltra.h"
#include <cstdio>
#include <string>

int main()
{
    std::string strLog;
    CKVRDebug::SetSink([](unsigned int, const char* record, void* pLog) { *static_cast<std::string*>(pLog) += record; },
                       &strLog);
    CSingleton<CAIAuth>::GetInstance();
    CSingleton<CWebConnector>::GetInstance()->Create();
    std::string strInfo;
    const bool bAnswered = CHttpRequest().RequestServerAppBinaryInfo("file:///", strInfo);
    CSingleton<CWebConnector>::GetInstance()->Destroy();
    CKVRDebug::SetSink(nullptr, nullptr);

    /* The query client's own engine must be the one that was started here: only then libcurl gets to refuse the URL. */
    if (bAnswered || strLog.find("Https request error reason = [") == std::string::npos)
    {
        std::fprintf(stderr, "The library does not share the application's engine:\n%s", strLog.c_str());
        return 1;
    }
    std::printf("%s\n", VELTRA_VERSION);
    return 0;
}
