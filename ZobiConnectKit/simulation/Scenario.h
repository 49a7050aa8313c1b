#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

#include "ZobiConnectKit/simulation/SimulatedBeacon.h"
#include "zobi/platform/Export.h"
#include "zobi/platform/Platform.h"
#include "zobi/platform/simulation/World.h"

namespace zobi {

/// Where a scenario is played.
struct Stage {
    /// Its run loop has the timers of the scenario; its application may change state.
    platform::Platform& platform;
    /// Has the beacons, and may have other devices.
    platform::simulation::World& world;
    /// The beacons of the scenario, in its order.
    std::vector<SimulatedBeacon*> beacons;
};

/// Beacons, and what happens to them and around them.
struct Scenario {
    /// Something that happens.
    struct Event {
        /// Seconds after the start of a round.
        double at;
        /// Makes it happen.
        std::function<void(const Stage&)> happen;
    };

    /// The beacons, which are out of range at first.
    std::vector<BeaconDescription> beacons = {};
    /// The events of a round, in any order. Those of the same time happen in this order.
    std::vector<Event> timeline = {};
    /// Seconds from one round to the next, above 0; absent for one round only.
    std::optional<double> repeatEvery = std::nullopt;

    /// Adds an event that happens to a beacon.
    /// @param at seconds after the start of a round.
    /// @param index the index of the beacon in `beacons`.
    /// @param happen called with the beacon.
    /// @throws std::out_of_range if there is no such beacon.
    ZOBI_EXPORT void addBeaconEvent(double at, std::size_t index,
                                    std::function<void(SimulatedBeacon&)> happen);
};

/// Adds the beacons of a scenario to a world and plays its timeline, by timers. An event at 0 or earlier
/// happens from inside the call.
/// @param scenario what is played.
/// @param platform,world the stage; they must outlive the run loop's last run. The world must be on the run
///     loop of the platform.
/// @returns the beacons, in the order of the scenario. They exist as long as the world.
/// @throws std::invalid_argument if a description of a beacon or `repeatEvery` is out of range.
ZOBI_EXPORT std::vector<SimulatedBeacon*> playScenario(Scenario scenario, platform::Platform& platform,
                                                       platform::simulation::World& world);

}  // namespace zobi
