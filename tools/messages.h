#pragma once

#include <optional>
#include <string>

#include "veltra/veltra.h"

constexpr int FIRST_HTTP_ERROR = 400; /* status */

/** The report of a transfer; empty if no transfer was started. */
typedef std::optional<WQCurl::TRANSFER_REPORT_t> TRANSFER_END_t;

/** Prints "veltra: SUBJECT: CAUSE" on standard error, without control characters. @return the exit status 1 */
int PrintError(const std::string& strSubject, const std::string& strCause);

/** Prints a fault of the command line and the name of the help. @param strCommand empty: none. @return exit status 2 */
int PrintUsageError(const std::string& strFault, const std::string& strCommand);

/** The reason why a transfer failed: an HTTP status, a redirect or the library's text. */
std::string Reason(const TRANSFER_END_t& tEnd);

/** The phases of a transfer in seconds. */
std::string PhasesText(const WQCurl::TRANSFER_REPORT_t& tReport);

/** The text of an errno. */
std::string SystemText(int nError);
