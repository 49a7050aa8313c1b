#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/CBCentralManager.h"
#include "platform/Export.h"
#include "platform/RunLoop.h"
#include "platform/simulation/BeaconDescription.h"
#include "platform/simulation/SimulatedBeacon.h"

namespace platform::simulation {

class SimulatedCentral;

/// The simulated air: the beacons around, the machine's own radio, and the central managers that listen
/// through it. Main thread only.
///
/// Everything that happens is an event of the run loop, and all that is random comes from the seed: the same
/// seed and the same calls give the same run, event for event.
class ZOK_EXPORT World {
public:
    /// @param runLoop must outlive the world.
    World(RunLoop& runLoop, std::uint64_t seed);
    ~World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    /// Adds a beacon, out of range. It lives as long as the world.
    /// @throws std::invalid_argument for a description that no beacon can have.
    SimulatedBeacon& addBeacon(BeaconDescription description);

    const std::vector<std::shared_ptr<SimulatedBeacon>>& beacons() const { return beacons_; }

    /// What the radio is now; powered on at first.
    CBManagerState radioState() const { return radioState_; }

    /// Changes the state of the radio; central managers report it through the run loop, each change of
    /// several by itself. The state that it has already is no change.
    void setRadioState(CBManagerState state);

    /// Starts a central manager: it reports the radio's state, and hears what is on the air from then on.
    /// Called by the platform.
    void start(const std::shared_ptr<SimulatedCentral>& central);

private:
    void transmit(SimulatedBeacon& beacon, const Advertisement& advertisement);

    RunLoop& runLoop_;
    std::uint64_t seed_;
    CBManagerState radioState_ = CBManagerState::poweredOn;
    std::vector<std::weak_ptr<SimulatedCentral>> centrals_;
    std::vector<std::shared_ptr<SimulatedBeacon>> beacons_;
};

}  // namespace platform::simulation
