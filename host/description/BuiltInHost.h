// The host the bench serves when no description is given.
#pragma once

#include "host/description/HostConfig.h"

namespace kelvane::host::description {

// Accelerometer, gyroscope and magnetometer in the lid, ambient light in the base and a gravity
// sensor, all streaming generated samples.
HostConfig builtInHost();

}  // namespace kelvane::host::description
