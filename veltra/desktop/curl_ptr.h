#pragma once

#include <curl/curl.h>
#include <list>
#include <memory>
#include <string>

namespace WQCurl
{

struct EASY_DELETER_t
{
    void operator()(CURL* pEasy) const { curl_easy_cleanup(pEasy); }
};

struct SLIST_DELETER_t
{
    void operator()(curl_slist* pList) const { curl_slist_free_all(pList); }
};

typedef std::unique_ptr<CURL, EASY_DELETER_t> EASY_PTR_t;
typedef std::unique_ptr<curl_slist, SLIST_DELETER_t> SLIST_PTR_t;

/** Appends a copy of a text to a list. @return false without memory */
inline bool Append(SLIST_PTR_t& pList, const char* pszText)
{
    curl_slist* pLonger = curl_slist_append(pList.get(), pszText);
    if (pLonger != nullptr)
    {
        static_cast<void>(pList.release());
        pList.reset(pLonger);
    }
    return pLonger != nullptr;
}

/** Copies texts into a list of libcurl's, which is null for none. @return false without memory */
inline bool BuildList(const std::list<std::string>& lstTexts, SLIST_PTR_t& pResult)
{
    SLIST_PTR_t pList;
    for (const std::string& strText : lstTexts)
    {
        if (!Append(pList, strText.c_str()))
        {
            return false;
        }
    }
    pResult = std::move(pList);
    return true;
}

} // namespace WQCurl
