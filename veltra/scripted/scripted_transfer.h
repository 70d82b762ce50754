#pragma once

#include <chrono>
#include <curl/curl.h>
#include <memory>
#include <string>

#include "veltra/scripted/scripted_url.h"
#include "veltra/scripted/scripts.h"
#include "veltra/scripted/sent_answer.h"

class CScriptedMulti;

/** The options of libcurl that have an effect on a scripted transfer. */
struct SCRIPTED_OPTIONS_t
{
    std::string strUrl;
    std::string strRange;
    std::string strUserAgent;
    bool bPost = false;
    bool bProgress = false;
    bool bFailOnError = false;
    const char* pszPostFields = nullptr;
    long lPostFieldSize = -1;
    const curl_slist* pHeader = nullptr;
    curl_write_callback pfnHeader = nullptr;
    void* pHeaderData = nullptr;
    curl_write_callback pfnWrite = nullptr;
    void* pWriteData = nullptr;
    curl_xferinfo_callback pfnProgress = nullptr;
    void* pProgressData = nullptr;
    char* pszError = nullptr;
    char* pPrivate = nullptr;
};

/** An easy handle. It belongs to the thread that drives it. */
class CScriptedTransfer
{
public:
    enum STATE_e
    {
        STATE_READY,  /**< the next step can be made at once */
        STATE_HELD,   /**< a script holds it */
        STATE_PAUSED, /**< the write function has paused it */
        STATE_ENDED
    };

    /** Prepares another run. */
    void Begin();

    /** Makes the next step of the run. */
    STATE_e Step() noexcept;

    /** Ends a pause. */
    void Resume() { m_tRun.bPaused = false; }

    CURLcode Result() const { return m_tRun.eResult; }

    /* The values of curl_easy_getinfo(). Those that a scripted transfer lacks are null and 0. */
    const char* Text(CURLINFO eInfo) const;
    long Number(CURLINFO eInfo) const;
    curl_off_t Count(CURLINFO eInfo) const;

    SCRIPTED_OPTIONS_t tOptions;
    CScriptedMulti* ptMulti = nullptr; /**< the multi handle that it is registered with */

private:
    typedef std::chrono::steady_clock Clock;

    struct RUN_t
    {
        std::shared_ptr<CScripts> ptScripts;
        std::shared_ptr<const SCRIPT_t> ptScript;
        SCRIPTED_URL_t tUrl;
        SCRIPTED_REQUEST_t tRequest;
        SENT_ANSWER_t tAnswer; /**< complete once its header lines are sent */
        bool bRequested = false;
        bool bPaused = false;
        size_t nReceived = 0; /**< bytes of the body */
        CURLcode eResult = CURLE_OK;
        std::string strContentType;
        std::string strRedirectUrl;
        /* Microseconds since the begin; 0: not reached. */
        Clock::time_point tBegin = Clock::now();
        curl_off_t nSent = 0;
        curl_off_t nFirstByte = 0;
        curl_off_t nEnd = 0;
    };

    STATE_e Proceed();
    STATE_e Request();
    STATE_e SendHeader();
    STATE_e SendBody(size_t nMost);
    STATE_e End(CURLcode eResult, const std::string& strMessage = "");
    STATE_e EndAsScripted();
    bool TakeHeaderLine(std::string strLine) const;
    bool MayGoOn() const;
    curl_off_t Elapsed() const;

    RUN_t m_tRun;
};
