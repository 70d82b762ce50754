/*
 * The functions of libcurl that move data, over scripted transfers. They are hidden: the library's own calls are bound
 * to them when it is linked, and an application that links libcurl besides keeps libcurl's. The other functions of
 * libcurl, which read URLs and keep lists, are libcurl's here, too.
 *
 * Options and infos without an effect on a scripted transfer are accepted and ignored.
 */

#include <cstdarg>
#include <memory>
#include <new>

#include "veltra/scripted/scripted_multi.h"

/* Their names are libcurl's, whose releases differ in those of the parameters. */
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)

/* An argument of an enumeration type is passed as an int, behind which va_start() finds the others. */
#pragma GCC diagnostic ignored "-Wvarargs"

/* Macros that check the types of the arguments. */
#undef curl_easy_setopt
#undef curl_easy_getinfo
#undef curl_multi_setopt
#undef curl_share_setopt

namespace
{

CScriptedTransfer& Transfer(CURL* pEasy)
{
    return *static_cast<CScriptedTransfer*>(pEasy);
}

CScriptedMulti& Multi(CURLM* pMulti)
{
    return *static_cast<CScriptedMulti*>(pMulti);
}

const char* TextOf(va_list& tArguments)
{
    const char* pszText = va_arg(tArguments, const char*);
    return pszText != nullptr ? pszText : "";
}

/** Sets a function, or the data that it receives, to the next argument. */
void SetFunction(SCRIPTED_OPTIONS_t& tOptions, CURLoption eOption, va_list& tArguments)
{
    switch (eOption)
    {
    case CURLOPT_HEADERFUNCTION:
        tOptions.pfnHeader = va_arg(tArguments, curl_write_callback);
        break;
    case CURLOPT_HEADERDATA:
        tOptions.pHeaderData = va_arg(tArguments, void*);
        break;
    case CURLOPT_WRITEFUNCTION:
        tOptions.pfnWrite = va_arg(tArguments, curl_write_callback);
        break;
    case CURLOPT_WRITEDATA:
        tOptions.pWriteData = va_arg(tArguments, void*);
        break;
    case CURLOPT_XFERINFOFUNCTION:
        tOptions.pfnProgress = va_arg(tArguments, curl_xferinfo_callback);
        break;
    case CURLOPT_XFERINFODATA:
        tOptions.pProgressData = va_arg(tArguments, void*);
        break;
    case CURLOPT_ERRORBUFFER:
        tOptions.pszError = va_arg(tArguments, char*);
        break;
    case CURLOPT_PRIVATE:
        tOptions.pPrivate = va_arg(tArguments, char*);
        break;
    default:
        break;
    }
}

/** Sets an option of the request to the next argument, and passes the others on. May throw std::bad_alloc. */
void SetOption(SCRIPTED_OPTIONS_t& tOptions, CURLoption eOption, va_list& tArguments)
{
    switch (eOption)
    {
    case CURLOPT_URL:
        tOptions.strUrl = TextOf(tArguments);
        break;
    case CURLOPT_RANGE:
        tOptions.strRange = TextOf(tArguments);
        break;
    case CURLOPT_USERAGENT:
        tOptions.strUserAgent = TextOf(tArguments);
        break;
    case CURLOPT_POST:
        tOptions.bPost = va_arg(tArguments, long) != 0;
        break;
    case CURLOPT_HTTPGET:
        tOptions.bPost = tOptions.bPost && va_arg(tArguments, long) == 0;
        break;
    case CURLOPT_NOPROGRESS:
        tOptions.bProgress = va_arg(tArguments, long) == 0;
        break;
    case CURLOPT_FAILONERROR:
        tOptions.bFailOnError = va_arg(tArguments, long) != 0;
        break;
    case CURLOPT_POSTFIELDS:
        tOptions.pszPostFields = va_arg(tArguments, const char*);
        break;
    case CURLOPT_POSTFIELDSIZE:
        tOptions.lPostFieldSize = va_arg(tArguments, long);
        break;
    case CURLOPT_HTTPHEADER:
        tOptions.pHeader = va_arg(tArguments, const curl_slist*);
        break;
    default:
        SetFunction(tOptions, eOption, tArguments);
        break;
    }
}

} // namespace

CURL* curl_easy_init()
{
    return new (std::nothrow) CScriptedTransfer;
}

void curl_easy_cleanup(CURL* pEasy)
{
    if (pEasy != nullptr && Transfer(pEasy).ptMulti != nullptr)
    {
        Transfer(pEasy).ptMulti->Remove(Transfer(pEasy));
    }
    delete static_cast<CScriptedTransfer*>(pEasy);
}

void curl_easy_reset(CURL* pEasy)
{
    Transfer(pEasy).tOptions = SCRIPTED_OPTIONS_t();
    Transfer(pEasy).Begin();
}

CURL* curl_easy_duphandle(CURL* pEasy)
{
    try
    {
        auto ptCopy = std::make_unique<CScriptedTransfer>();
        ptCopy->tOptions = Transfer(pEasy).tOptions;
        return ptCopy.release();
    }
    catch (...)
    {
        return nullptr;
    }
}

CURLcode curl_easy_setopt(CURL* pEasy, CURLoption eOption, ...)
{
    if (pEasy == nullptr)
    {
        return CURLE_BAD_FUNCTION_ARGUMENT;
    }
    if (curl_easy_option_by_id(eOption) == nullptr)
    {
        return CURLE_UNKNOWN_OPTION;
    }
    CURLcode eResult = CURLE_OK;
    va_list tArguments;
    va_start(tArguments, eOption);
    try
    {
        SetOption(Transfer(pEasy).tOptions, eOption, tArguments);
    }
    catch (...)
    {
        eResult = CURLE_OUT_OF_MEMORY;
    }
    va_end(tArguments);
    return eResult;
}

CURLcode curl_easy_getinfo(CURL* pEasy, CURLINFO eInfo, ...)
{
    if (pEasy == nullptr)
    {
        return CURLE_BAD_FUNCTION_ARGUMENT;
    }
    CURLcode eResult = CURLE_OK;
    va_list tArguments;
    va_start(tArguments, eInfo);
    switch (static_cast<int>(eInfo) & CURLINFO_TYPEMASK)
    {
    case CURLINFO_STRING:
        *va_arg(tArguments, const char**) = Transfer(pEasy).Text(eInfo);
        break;
    case CURLINFO_LONG:
        *va_arg(tArguments, long*) = Transfer(pEasy).Number(eInfo);
        break;
    case CURLINFO_OFF_T:
        *va_arg(tArguments, curl_off_t*) = Transfer(pEasy).Count(eInfo);
        break;
    default:
        eResult = CURLE_UNKNOWN_OPTION;
        break;
    }
    va_end(tArguments);
    return eResult;
}

/** libcurl pauses receiving only as the write function asks for it. Here each call ends the pause. */
CURLcode curl_easy_pause(CURL* pEasy, int /*nBits*/)
{
    Transfer(pEasy).Resume();
    if (Transfer(pEasy).ptMulti != nullptr)
    {
        Transfer(pEasy).ptMulti->Hurry();
    }
    return CURLE_OK;
}

CURLM* curl_multi_init()
{
    return new (std::nothrow) CScriptedMulti;
}

CURLMcode curl_multi_cleanup(CURLM* pMulti)
{
    delete static_cast<CScriptedMulti*>(pMulti);
    return CURLM_OK;
}

CURLMcode curl_multi_setopt(CURLM* pMulti, CURLMoption eOption, ...)
{
    va_list tArguments;
    va_start(tArguments, eOption);
    if (eOption == CURLMOPT_TIMERFUNCTION)
    {
        Multi(pMulti).pfnTimer = va_arg(tArguments, curl_multi_timer_callback);
    }
    else if (eOption == CURLMOPT_TIMERDATA)
    {
        Multi(pMulti).pTimerData = va_arg(tArguments, void*);
    }
    va_end(tArguments);
    return CURLM_OK;
}

CURLMcode curl_multi_add_handle(CURLM* pMulti, CURL* pEasy)
{
    try
    {
        Multi(pMulti).Add(Transfer(pEasy));
        return CURLM_OK;
    }
    catch (...)
    {
        return CURLM_OUT_OF_MEMORY;
    }
}

CURLMcode curl_multi_remove_handle(CURLM* pMulti, CURL* pEasy)
{
    Multi(pMulti).Remove(Transfer(pEasy));
    return CURLM_OK;
}

CURLMcode curl_multi_socket_action(CURLM* pMulti, curl_socket_t /*nSocket*/, int /*nEvents*/, int* /*pnRunning*/)
{
    Multi(pMulti).Step();
    return CURLM_OK;
}

CURLMsg* curl_multi_info_read(CURLM* pMulti, int* pnLeft)
{
    *pnLeft = 0; // nobody asks for it
    return Multi(pMulti).TakeMessage();
}

CURLSH* curl_share_init()
{
    static int s_nShare = 0; // there is nothing to share
    return &s_nShare;
}

CURLSHcode curl_share_setopt(CURLSH* /*pShare*/, CURLSHoption /*eOption*/, ...)
{
    return CURLSHE_OK;
}

// NOLINTEND(readability-inconsistent-declaration-parameter-name)
