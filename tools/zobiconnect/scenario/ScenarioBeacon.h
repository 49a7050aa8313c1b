#pragma once

#include <cstddef>
#include <map>
#include <string>

#include "ZobiConnectKit/simulation/Scenario.h"
#include "tools/zobiconnect/scenario/CheckedJson.h"

namespace zobi::tool {

/// By their names: the places of the beacons in their scenario.
using BeaconIndices = std::map<std::string, std::size_t>;

/// Adds a beacon of a scenario file to the scenario.
/// @throws Mistake
void readBeacon(const CheckedObject& object, BeaconIndices& indices, Scenario& scenario);

}  // namespace zobi::tool
