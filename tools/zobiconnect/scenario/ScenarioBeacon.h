#pragma once

#include "ZobiConnectKit/simulation/BeaconDescription.h"
#include "tools/zobiconnect/scenario/CheckedJson.h"

namespace zobi::tool {

/// A beacon of a scenario file, but for its name.
/// @throws Mistake
BeaconDescription readBeacon(CheckedObject& object);

}  // namespace zobi::tool
