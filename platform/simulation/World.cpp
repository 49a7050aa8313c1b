#include "zobi/platform/simulation/World.h"

#include <utility>

#include "platform/simulation/SimulatedCentral.h"
#include "zobi/platform/standard/ExceptionKeeper.h"

namespace zobi::platform::simulation {

World::World(RunLoop& runLoop, std::uint64_t seed) : runLoop_(runLoop), seed_(seed) {}

World::~World() = default;

SimulatedBeacon& World::addBeacon(BeaconDescription description) {
    beacons_.push_back(std::make_shared<SimulatedBeacon>(
        runLoop_, [this](auto& beacon, const auto& advertisement) { transmit(beacon, advertisement); },
        beacons_.size(), seed_, std::move(description)));
    return *beacons_.back();
}

void World::setRadioState(CBManagerState state) {
    if (std::exchange(radioState_, state) == state) return;
    // A turn for each, so that a delegate that throws does not keep it from the others.
    for (const auto& listening : centrals_) {
        runLoop_.dispatchAsync([listening, state] {
            if (const auto central = listening.lock()) central->enterState(state);
        });
    }
}

std::shared_ptr<CBCentralManager> World::makeCentralManager(
    Log& log, std::weak_ptr<CBCentralManagerDelegate> delegate) {
    auto central = std::make_shared<SimulatedCentral>(runLoop_, log, std::move(delegate));
    runLoop_.dispatchAsync([weakSelf = std::weak_ptr(self_), central] {
        if (const auto self = weakSelf.lock()) self->start(central);
    });
    return central;
}

void World::start(const std::shared_ptr<SimulatedCentral>& central) {
    std::erase_if(centrals_, [](const auto& other) { return other.expired(); });
    centrals_.push_back(central);
    central->enterState(radioState_);
}

void World::transmit(SimulatedBeacon& beacon, const Advertisement& advertisement) {
    const int signalStrength = beacon.nextSignalReading();
    ExceptionKeeper exceptions;
    for (std::size_t i = 0; i < centrals_.size(); ++i) {
        const auto central = centrals_[i].lock();
        if (!central) continue;
        exceptions.run([&] { central->hear(beacon, advertisement, signalStrength); });
    }
    exceptions.rethrow();
}

}  // namespace zobi::platform::simulation
