#pragma once

namespace WQCurl
{

/**
 * Returns the number of changes of network so far: calls of NetworkChanged(), and times that the device has slept.
 * Connections and look-ups of an earlier epoch must not be used. Any thread.
 */
unsigned NetworkEpoch();

} // namespace WQCurl
