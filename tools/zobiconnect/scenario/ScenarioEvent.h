#pragma once

#include "tools/zobiconnect/scenario/ScenarioBeacon.h"

namespace zobi::tool {

/// Adds an event of a scenario file to the scenario, whose beacons have been read.
/// @throws Mistake
void readEvent(const CheckedObject& event, const BeaconIndices& beacons, Scenario& scenario);

}  // namespace zobi::tool
