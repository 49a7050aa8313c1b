#include "platform/simulation/World.h"

#include <utility>

#include "platform/simulation/SimulatedCentral.h"

namespace platform::simulation {

World::World(RunLoop& runLoop, std::uint64_t seed) : runLoop_(runLoop), seed_(seed) {}

World::~World() = default;

SimulatedBeacon& World::addBeacon(BeaconDescription description) {
    beacons_.push_back(std::make_unique<SimulatedBeacon>(
        runLoop_, [this](auto& beacon, const auto& advertisement) { transmit(beacon, advertisement); },
        beacons_.size(), seed_, std::move(description)));
    return *beacons_.back();
}

void World::setRadioState(CBManagerState state) {
    radioState_ = state;
    runLoop_.dispatchAsync([this, state] {
        for (std::size_t i = 0; i < centrals_.size(); ++i) {
            if (const auto central = centrals_[i].lock()) central->enterState(state);
        }
    });
}

void World::start(const std::shared_ptr<SimulatedCentral>& central) {
    std::erase_if(centrals_, [](const auto& other) { return other.expired(); });
    centrals_.push_back(central);
    central->enterState(radioState_);
}

void World::transmit(SimulatedBeacon& beacon, const Advertisement& advertisement) {
    for (std::size_t i = 0; i < centrals_.size(); ++i) {
        if (const auto central = centrals_[i].lock()) central->hear(beacon, advertisement);
    }
}

}  // namespace platform::simulation
