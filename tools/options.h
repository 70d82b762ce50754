#pragma once

#include <CLI/CLI.hpp>

#include "download_run.h"
#include "query.h"

/* The options that several commands take. The records must outlive the parser. */

/** Accepts values that match a pattern from end to end. @param bSecret the refusal must not repeat the value */
CLI::Validator Matching(const char* pszPattern, const std::string& strFault, bool bSecret = false);

/** Accepts a text that is not empty. */
CLI::Validator NotEmpty();

/** Accepts 64 hexadecimal digits. */
CLI::Validator Sha256Digits();

/** Adds an option with a value. @param pszType the value's name in the help */
template <typename Value>
CLI::Option* AddValue(CLI::App& tApp, const char* pszName, Value& tValue, const char* pszType,
                      const CLI::Validator& tValidator, const char* pszDescription)
{
    return tApp.add_option(pszName, tValue, pszDescription)->type_name(pszType)->transform(tValidator.description(""));
}

/** Adds the options that every command takes, and sets their defaults. */
void AddGeneralOptions(CLI::App& tApp, OPTIONS_t& tOptions);

/** Adds --id, --cert and --default, one of which is required. */
void AddEntryOptions(CLI::App& tCommand, ENTRY_CHOICE_t& tChoice);

/** Adds -H. */
void AddHeaderOption(CLI::App& tCommand, WQCurl::TRANSFER_SETTINGS_t& tTransfer);

/** Adds --location. */
void AddLocationFlag(CLI::App& tCommand, WQCurl::TRANSFER_SETTINGS_t& tTransfer);

/** Adds the options of every command that downloads, and sets their defaults. */
void AddRunOptions(CLI::App& tCommand, DOWNLOAD_OPTIONS_t& tOptions, WQCurl::TRANSFER_SETTINGS_t& tTransfer);
