#include "zobi/platform/simulation/SimulatedPlatform.h"

#include <utility>

#include "platform/simulation/SimulatedCentral.h"

namespace zobi::platform::simulation {

SimulatedPlatform::SimulatedPlatform(Time time, std::uint64_t seed, std::unique_ptr<Waiting> waiting)
    : StandardPlatform(time, std::move(waiting)), world_(runLoop(), seed) {}

SimulatedPlatform::~SimulatedPlatform() {
    shutDown();
}

std::shared_ptr<CBCentralManager> SimulatedPlatform::makeCentralManager(
    std::weak_ptr<CBCentralManagerDelegate> delegate) {
    auto central = std::make_shared<SimulatedCentral>(runLoop(), log(), std::move(delegate));
    runLoop().dispatchAsync([this, central] { world_.start(central); });
    return central;
}

}  // namespace zobi::platform::simulation
