#pragma once

#include "commands.h"

/**
 * Reads the command line, and prints what is wrong with it on standard error.
 * @param fnCommand receives the command; empty if there is none to run
 * @return the exit status in that case: 0 after --help and --version, 2 for a wrong command line
 */
int ParseCommandLine(int argc, char** argv, OPTIONS_t& tOptions, COMMAND_t& fnCommand);
