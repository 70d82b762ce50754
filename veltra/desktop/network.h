#pragma once

/**
 * @file
 * Desktop platform only: a device maker's platform need not offer it.
 */

#include "veltra/export.h"

namespace WQCurl
{

/**
 * Tells the library that the device is in another network, or that its connections are dead. Transfers that begin from
 * now on look names up again and use no connection that was open before. Downloads that wait for their next attempt
 * make it within about a second. Transfers under way are not disturbed. Time that the device has slept has the same
 * effect by itself.
 */
VELTRA_API void NetworkChanged();

} // namespace WQCurl
