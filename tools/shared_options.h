#pragma once

#include <CLI/CLI.hpp>

#include "download_run.h"
#include "query.h"

/* Options that several commands share. The records must outlive the parser. */

/** Adds the flag that changes the command's default: --fail or --no-fail. @param bFail has the default */
void AddFailFlag(CLI::App& tCommand, bool& bFail);

/** Adds --id, --cert and --default. */
void AddEntryOptions(CLI::App& tCommand, ENTRY_CHOICE_t& tChoice);

/** Adds -H. */
void AddHeaderOption(CLI::App& tCommand, WQCurl::TRANSFER_SETTINGS_t& tTransfer);

/** Adds --location. */
void AddLocationFlag(CLI::App& tCommand, WQCurl::TRANSFER_SETTINGS_t& tTransfer);

/** Adds the options of every command that downloads, and sets their defaults. */
void AddRunOptions(CLI::App& tCommand, DOWNLOAD_OPTIONS_t& tOptions, WQCurl::TRANSFER_SETTINGS_t& tTransfer);
