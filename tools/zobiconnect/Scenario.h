#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "zobi/platform/RunLoop.h"
#include "zobi/platform/UIApplication.h"
#include "zobi/platform/simulation/World.h"

namespace zobi::tool {

/// Where a scenario is played. What it refers to outlives the playing.
struct Stage {
    platform::RunLoop& runLoop;
    platform::UIApplication& application;
    platform::simulation::World& world;
};

/// Beacons, and what happens to them and around them.
struct Scenario {
    struct Event {
        /// Seconds after the start of a round.
        double at;
        std::function<void(const Stage&)> happen;
    };

    std::vector<platform::simulation::BeaconDescription> beacons;
    std::vector<Event> timeline;
    /// Seconds from one round to the next; absent for one round only.
    std::optional<double> repeatEvery;

    /// Adds an event that happens to the beacon at place `index` in the list.
    void addBeaconEvent(double at, std::size_t index,
                        std::function<void(platform::simulation::SimulatedBeacon&)> happen);
};

/// Runs `happen` after `seconds` of the run loop's time; at once for 0.
void happenAfter(platform::RunLoop& runLoop, double seconds, std::function<void()> happen);

/// Puts the scenario's beacons into an empty world and sets its timeline going. What happens at 0 happens
/// from inside the call.
void playScenario(const std::shared_ptr<const Scenario>& scenario, const Stage& stage);

}  // namespace zobi::tool
