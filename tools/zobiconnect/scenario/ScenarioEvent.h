#pragma once

#include <cstddef>
#include <map>
#include <string>

#include "ZobiConnectKit/simulation/Scenario.h"
#include "tools/zobiconnect/scenario/CheckedJson.h"

namespace zobi::tool {

/// By their names: the places of the beacons in their scenario.
using BeaconIndices = std::map<std::string, std::size_t>;

/// Adds an event of a scenario file to the scenario, whose beacons have been read.
/// @throws Mistake
void readEvent(CheckedObject& event, const BeaconIndices& beacons, Scenario& scenario);

}  // namespace zobi::tool
