#pragma once

#include "veltra/veltra.h"

/** The options that every command takes. */
struct OPTIONS_t
{
    DEVICE_IDENTITY_t tIdentity;
    WQCurl::TRANSFER_SETTINGS_t tTransfer;
    bool bVerbose = false;
};
