#pragma once

#include <curl/curl.h>

#include "veltra/platform/wqcurl.h"

namespace WQCurl
{

/** Tells the observer, if there is one, of the transfer that this handle has made and that is reported next. */
void TellObserver(CURL* pEasy, const WQCurlMulti::MultiMsg& tMsg);

} // namespace WQCurl
