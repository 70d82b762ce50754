#pragma once

#include <string>

#include "veltra/veltra.h"

constexpr int FIRST_HTTP_ERROR = 400; /* status */

/** Prints "veltra: SUBJECT: CAUSE" on standard error, without control characters. @return the exit status 1 */
int PrintError(const std::string& strSubject, const std::string& strCause);

/** Prints a fault of the command line and the name of the help. @param strCommand empty: none. @return exit status 2 */
int PrintUsageError(const std::string& strFault, const std::string& strCommand);

/**
 * The reason why a transfer failed: an HTTP status, a redirect or the library's text.
 * @param tReport empty if no transfer was started
 */
std::string Reason(const WQCurl::TRANSFER_REPORT_t& tReport);

/**
 * The exit status for a failed transfer: 3 for a network failure, 4 for an HTTP status or a redirect, 5 if the body was
 * not the expected one, otherwise 1.
 */
int ExitStatus(const WQCurl::TRANSFER_REPORT_t& tReport);

/** The text of an errno. */
std::string SystemText(int nError);
