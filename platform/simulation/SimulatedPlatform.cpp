#include "zobi/platform/simulation/SimulatedPlatform.h"

#include <utility>

namespace zobi::platform::simulation {

SimulatedPlatform::SimulatedPlatform(Time time, std::uint64_t seed, std::unique_ptr<Waiting> waiting)
    : StandardPlatform(time, std::move(waiting)), world_(runLoop(), seed) {
    world_.setRadioObserver(
        [this](CBManagerState state) { setRadioCondition(RadioCondition::ofState(state)); });
}

SimulatedPlatform::~SimulatedPlatform() {
    clear();
}

std::shared_ptr<StandardCentral> SimulatedPlatform::makeCentral(
    std::weak_ptr<CBCentralManagerDelegate> delegate) {
    return world_.makeCentralManager(log(), std::move(delegate));
}

}  // namespace zobi::platform::simulation
