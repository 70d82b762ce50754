#pragma once

#include "options.h"

/* One file each, or a pair that shares most. */

int RunServers(const OPTIONS_t& tOptions);
int RunInfo(const OPTIONS_t& tOptions);
int RunGet(const OPTIONS_t& tOptions);
int RunPost(const OPTIONS_t& tOptions);
int RunDownload(const OPTIONS_t& tOptions);
int RunFetch(const OPTIONS_t& tOptions);
int RunDoctor(const OPTIONS_t& tOptions);
