#pragma once

#include <cstddef>
#include <cstdint>

#include "ZobiConnectKit/simulation/Scenario.h"

namespace zobi::tool {

/// How many beacons the demonstration has unless told.
inline constexpr std::size_t demoBeacons = 8;

/// A lively scenario of `count` beacons that never ends, the same for the same seed: beacons of several
/// layouts come into range, report buttons, change, fall silent for longer than the library keeps them, and
/// come back. While one is connected, its accelerometer swings.
Scenario demoScenario(std::size_t count, std::uint64_t seed);

}  // namespace zobi::tool
