#pragma once

namespace WQCurl
{

/**
 * How often the network has changed so far: by NetworkChanged(), or because the device has slept since the last call.
 * What was connected or looked up in an earlier epoch is of no use. Any thread.
 */
unsigned NetworkEpoch();

} // namespace WQCurl
