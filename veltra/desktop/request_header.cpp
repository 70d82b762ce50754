#include "veltra/desktop/request_header.h"

#include <algorithm>

namespace WQCurl
{

namespace
{

bool HaveSameName(const std::string& strOne, const std::string& strOther)
{
    const size_t nName = strOne.find_first_of(":;"); // ";" marks a line with an empty value
    return nName == strOther.find_first_of(":;") && nName != std::string::npos &&
           curl_strnequal(strOne.c_str(), strOther.c_str(), nName) != 0;
}

} // namespace

bool BuildRequestHeader(const curl_slist* pOwn, const std::list<std::string>& lstSettings,
                        const std::string& strIfRange, SLIST_PTR_t& pResult)
{
    std::list<std::string> lstLines;
    for (; pOwn != nullptr; pOwn = pOwn->next)
    {
        lstLines.emplace_back(pOwn->data);
    }
    const std::list<std::string> lstOwn = lstLines;
    for (const std::string& strLine : lstSettings)
    {
        const auto fnReplaces = [&strLine](const std::string& strOwn) { return HaveSameName(strOwn, strLine); };
        if (std::none_of(lstOwn.begin(), lstOwn.end(), fnReplaces))
        {
            lstLines.push_back(strLine);
        }
    }
    if (!strIfRange.empty())
    {
        lstLines.push_back("If-Range: " + strIfRange);
    }
    return BuildList(lstLines, pResult);
}

} // namespace WQCurl
