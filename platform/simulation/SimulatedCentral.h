#pragma once

#include <memory>

#include "platform/simulation/SimulatedPeripheral.h"
#include "zobi/platform/RunLoop.h"
#include "zobi/platform/simulation/Advertisement.h"
#include "zobi/platform/simulation/SimulatedDevice.h"
#include "zobi/platform/standard/StandardCentral.h"

namespace zobi::platform::simulation {

/// The central manager of the simulated radio. What it hears comes from the `World` that started it.
class SimulatedCentral final : public StandardCentral {
public:
    SimulatedCentral(RunLoop& runLoop, Log& log, std::weak_ptr<CBCentralManagerDelegate> delegate)
        : StandardCentral(runLoop, log, std::move(delegate)), runLoop_(runLoop) {}

    using StandardCentral::enterState;

    /// A device advertises, and is received at `signalStrength` dBm.
    void hear(SimulatedDevice& device, const Advertisement& advertisement, int signalStrength) {
        if (!isSought(device.description().advertisedServices)) return;
        auto& heard = peripheral<SimulatedPeripheral>(device.index(), runLoop_, device.weak_from_this());
        StandardCentral::hear(heard, advertisement.data(), NSNumber::numberWithInt(signalStrength));
    }

private:
    RunLoop& runLoop_;
};

}  // namespace zobi::platform::simulation
