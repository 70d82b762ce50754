#pragma once

#include <CLI/CLI.hpp>
#include <functional>

#include "session.h"

/** Runs a command, whose own options it holds. @return the exit status */
typedef std::function<int(const OPTIONS_t&)> COMMAND_t;

/** Adds a command to the parser. The command line then chooses the one to run. */
typedef std::function<CLI::App&(const char* pszName, const char* pszDescription, COMMAND_t fnRun)> ADD_COMMAND_t;

void AddQueryCommands(const ADD_COMMAND_t& fnAdd);
void AddFetchCommand(const ADD_COMMAND_t& fnAdd, WQCurl::TRANSFER_SETTINGS_t& tTransfer);
void AddDownloadCommand(const ADD_COMMAND_t& fnAdd, WQCurl::TRANSFER_SETTINGS_t& tTransfer);
void AddRequestCommands(const ADD_COMMAND_t& fnAdd, WQCurl::TRANSFER_SETTINGS_t& tTransfer);
void AddDoctorCommand(const ADD_COMMAND_t& fnAdd);
