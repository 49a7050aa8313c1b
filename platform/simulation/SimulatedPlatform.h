#pragma once

#include <cstdint>
#include <memory>

#include "platform/Export.h"
#include "platform/simulation/World.h"
#include "platform/standard/StandardPlatform.h"

namespace platform::simulation {

/// A platform whose radio is simulated: it needs no hardware, and in virtual time no time either.
///
///     SimulatedPlatform platform(StandardPlatform::Time::virtualTime);
///     auto manager = ZOKManager::managerOnPlatform(platform);
///     platform.world().addBeacon({.major = 1, .minor = 7}).comeIntoRange();
///     platform.runLoop().runFor(60);
class ZOK_EXPORT SimulatedPlatform final : public StandardPlatform {
public:
    /// @param seed decides all that is random in the world.
    /// @param waiting how the run loop waits; a condition variable unless another is given.
    explicit SimulatedPlatform(
        Time time, std::uint64_t seed = 0,
        std::unique_ptr<Waiting> waiting = std::make_unique<ConditionVariableWaiting>());
    ~SimulatedPlatform() override;

    std::shared_ptr<CBCentralManager> makeCentralManager(
        std::weak_ptr<CBCentralManagerDelegate> delegate) override;

    World& world() { return world_; }

private:
    World world_;
};

}  // namespace platform::simulation
