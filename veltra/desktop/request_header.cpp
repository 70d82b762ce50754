#include "veltra/desktop/request_header.h"

namespace WQCurl
{

namespace
{

/** Returns whether a list has a line with the name of this one. */
bool HasNameOf(const curl_slist* pLines, const std::string& strLine)
{
    const size_t nName = strLine.find(':');
    for (; pLines != nullptr; pLines = pLines->next)
    {
        const bool bSameBegin = curl_strnequal(pLines->data, strLine.c_str(), nName) != 0;
        if (bSameBegin && (pLines->data[nName] == ':' || pLines->data[nName] == ';')) // ";" marks an empty value
        {
            return true;
        }
    }
    return false;
}

} // namespace

bool BuildRequestHeader(const curl_slist* pOwn, const std::list<std::string>& lstSettings,
                        const std::string& strIfRange, SLIST_PTR_t& pResult)
{
    SLIST_PTR_t pLines;
    bool bBuilt = true;
    for (const curl_slist* pLine = pOwn; pLine != nullptr; pLine = pLine->next)
    {
        bBuilt = bBuilt && Append(pLines, pLine->data);
    }
    for (const std::string& strLine : lstSettings)
    {
        bBuilt = bBuilt && (HasNameOf(pOwn, strLine) || Append(pLines, strLine.c_str()));
    }
    bBuilt = bBuilt && (strIfRange.empty() || Append(pLines, ("If-Range: " + strIfRange).c_str()));
    pResult = std::move(pLines);
    return bBuilt;
}

} // namespace WQCurl
