#pragma once

#include "tools/zobiconnect/CheckedJson.h"
#include "zobi/platform/simulation/BeaconDescription.h"

namespace zobi::tool {

/// A beacon of a scenario file, but for its name.
/// @throws Mistake
platform::simulation::BeaconDescription readBeacon(CheckedObject& object);

}  // namespace zobi::tool
