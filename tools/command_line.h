#pragma once

#include "options.h"

/**
 * Reads the command line. Says on standard error, in one line that begins with "veltra:", what is wrong with it.
 * @param pfnCommand receives the command; null when there is nothing more to do
 * @return the exit status then: 0 after --help and --version, 2 for a wrong command line
 */
int ParseCommandLine(int argc, char** argv, OPTIONS_t& tOptions, COMMAND_t& pfnCommand);
