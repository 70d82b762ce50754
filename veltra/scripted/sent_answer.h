#pragma once

#include <list>
#include <string>
#include <string_view>

#include "veltra/scripted/scripted_web.h"

/** An answer as a server sends it to one request. */
struct SENT_ANSWER_t
{
    int nStatus = 0;
    std::list<std::string> lstHeader;
    std::string_view strBody;
    long long nLength = -1; /**< the announced one; -1: none */
};

/** Returns the value of the first header line with this name, which ends in ":"; empty if there is none. */
std::string HeaderValue(const std::list<std::string>& lstHeader, std::string_view strName);

/** Makes a script's answer to a request with these header lines. The body stays that of tAnswer. */
SENT_ANSWER_t MakeAnswer(const SCRIPTED_ANSWER_t& tAnswer, const std::list<std::string>& lstRequestHeader);
