#pragma once

#include "veltra/desktop/resume.h"
#include "veltra/platform/wqcurl.h"

namespace WQCurl
{

/** Returns whether the transfer had a connection that had been used before, and no other. */
bool IsReused(CURL* pEasy);

/** Tells the observer, if there is one, of the transfer that this handle has made and that is reported next. */
void TellObserver(CURL* pEasy, const CResume& tResume, const WQCurlMulti::MultiMsg& tMsg);

} // namespace WQCurl
