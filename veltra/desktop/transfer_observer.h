#pragma once

#include "veltra/desktop/transfer.h"
#include "veltra/desktop/transfer_report.h"

namespace WQCurl
{

/** Describes a transfer, which runs or has ended. Its own driving thread, or after its end the thread that has it. */
TRANSFER_REPORT_t Describe(const TRANSFER_t& tTransfer);

/** Gives the observer, if there is one, the report of a transfer whose end is about to be reported. */
void TellObserver(const TRANSFER_t& tTransfer);

} // namespace WQCurl
