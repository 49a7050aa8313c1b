#pragma once

#include "platform/simulation/BeaconDescription.h"
#include "tools/zobiconnect/CheckedJson.h"

namespace zobiconnect {

/// A beacon of a scenario file, but for its name.
/// @throws Mistake
platform::simulation::BeaconDescription readBeacon(CheckedObject& object);

}  // namespace zobiconnect
