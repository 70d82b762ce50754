#pragma once

#include <CLI/CLI.hpp>

#include "options.h"

/** Adds the options that every command takes, and sets their defaults. */
void AddGeneralOptions(CLI::App& tApp, OPTIONS_t& tOptions);
