#pragma once

#include <cstdint>
#include <memory>

#include "zobi/platform/Export.h"
#include "zobi/platform/simulation/World.h"
#include "zobi/platform/standard/StandardPlatform.h"

namespace zobi::platform::simulation {

/// A platform with a simulated radio. It needs no hardware, and in virtual time hours pass in a moment.
///
///     SimulatedPlatform platform(StandardPlatform::Time::virtualTime);
///     auto central = platform.makeCentralManager(delegate);
///     platform.world().addDevice({.localName = "thermometer"}).comeIntoRange();
///     platform.runLoop().runFor(60);
class ZOBI_EXPORT SimulatedPlatform final : public StandardPlatform {
public:
    /// @param time the clock.
    /// @param seed seeds all randomness of the world.
    /// @param waiting how the run loop waits; not null.
    explicit SimulatedPlatform(
        Time time, std::uint64_t seed = 0,
        std::unique_ptr<Waiting> waiting = std::make_unique<ConditionVariableWaiting>());
    ~SimulatedPlatform() override;

    /// The simulated surroundings: devices, and the state of the radio.
    World& world() { return world_; }

protected:
    std::shared_ptr<StandardCentral> makeCentral(std::weak_ptr<CBCentralManagerDelegate> delegate) override;

private:
    World world_;
};

}  // namespace zobi::platform::simulation
