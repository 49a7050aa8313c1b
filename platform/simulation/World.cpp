#include "zobi/platform/simulation/World.h"

#include <utility>

#include "platform/simulation/SimulatedCentral.h"
#include "zobi/platform/standard/ExceptionKeeper.h"

namespace zobi::platform::simulation {

World::World(RunLoop& runLoop, std::uint64_t seed) : runLoop_(runLoop), seed_(seed) {}

World::~World() = default;

SimulatedDevice& World::addDevice(DeviceDescription description) {
    return add<SimulatedDevice>(std::move(description));
}

SimulatedDevice::Context World::nextContext() {
    return {runLoop_, [this](auto& device, const auto& advertisement) { transmit(device, advertisement); },
            devices_.size(), seed_};
}

void World::setRadioState(CBManagerState state) {
    if (std::exchange(radioState_, state) == state) return;
    // A turn for each, so that a delegate that throws does not keep it from the others.
    for (const auto& listening : centrals_) {
        runLoop_.dispatchAsync([listening, state] {
            if (const auto central = listening.lock()) central->enterState(state);
        });
    }
    radioObserver_(state);
}

void World::setRadioObserver(std::function<void(CBManagerState)> observer) {
    radioObserver_ = std::move(observer);
    radioObserver_(radioState_);
}

std::shared_ptr<StandardCentral> World::makeCentralManager(Log& log,
                                                           std::weak_ptr<CBCentralManagerDelegate> delegate) {
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

void World::transmit(SimulatedDevice& device, const Advertisement& advertisement) {
    const int signalStrength = device.nextSignalReading();
    ExceptionKeeper exceptions;
    for (std::size_t i = 0; i < centrals_.size(); ++i) {
        const auto central = centrals_[i].lock();
        if (!central) continue;
        exceptions.run([&] { central->hear(device, advertisement, signalStrength); });
    }
    exceptions.rethrow();
}

}  // namespace zobi::platform::simulation
