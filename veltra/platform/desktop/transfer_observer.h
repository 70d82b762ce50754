#pragma once

#include "veltra/platform/desktop/resume.h"

namespace WQCurl
{

/** Tells the observer, if there is one, of the transfer that this handle has made and that is reported next. */
void TellObserver(CURL* pEasy, const CResume& tResume, const WQCurlMulti::MultiMsg& tMsg);

} // namespace WQCurl
