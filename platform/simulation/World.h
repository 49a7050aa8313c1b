#pragma once

#include <concepts>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "zobi/platform/CBCentralManager.h"
#include "zobi/platform/Export.h"
#include "zobi/platform/Log.h"
#include "zobi/platform/RunLoop.h"
#include "zobi/platform/simulation/DeviceDescription.h"
#include "zobi/platform/simulation/SimulatedDevice.h"
#include "zobi/platform/standard/StandardCentral.h"

namespace zobi::platform::simulation {

class SimulatedCentral;

/// The simulated surroundings: the devices, the radio of this machine, and the central managers that use it.
/// Main thread only.
///
/// Everything that happens is a task or timer of the run loop, and all randomness comes from the seed: in
/// virtual time, the same seed and the same calls give the same events. It may not be destroyed from inside a
/// callback.
class ZOBI_EXPORT World {
public:
    /// A world without devices, with the radio powered on.
    /// @param runLoop runs all its events; must outlive the world.
    /// @param seed seeds all randomness.
    World(RunLoop& runLoop, std::uint64_t seed);
    ~World();
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    /// Adds a device, out of range. It exists as long as the world.
    /// @throws std::invalid_argument for a description that has a value out of range.
    SimulatedDevice& addDevice(DeviceDescription description);

    /// Adds a device of a class derived from `SimulatedDevice`. Its constructor is called with a
    /// `SimulatedDevice::Context` and `description`, and may throw.
    template <std::derived_from<SimulatedDevice> Device, typename Description>
    Device& add(Description description) {
        auto device = std::make_shared<Device>(nextContext(), std::move(description));
        devices_.push_back(device);
        return *device;
    }

    /// All devices, in the order in which they were added.
    const std::vector<std::shared_ptr<SimulatedDevice>>& devices() const { return devices_; }

    /// The state of the radio; powered on at first.
    CBManagerState radioState() const { return radioState_; }

    /// Changes the state of the radio. The central managers report each change, from tasks on the main queue.
    /// Setting the same state again does nothing.
    void setRadioState(CBManagerState state);

    /// Calls `observer` with the state of the radio, now and whenever it is changed.
    void setRadioObserver(std::function<void(CBManagerState)> observer);

    /// Makes a central manager. From a task on the main queue it reports the state of the radio, and receives
    /// the advertisements from then on.
    /// @param log its log; must outlive every call.
    /// @param delegate receives its events.
    std::shared_ptr<StandardCentral> makeCentralManager(Log& log,
                                                        std::weak_ptr<CBCentralManagerDelegate> delegate);

private:
    SimulatedDevice::Context nextContext();
    void start(const std::shared_ptr<SimulatedCentral>& central);
    void transmit(SimulatedDevice& device, const Advertisement& advertisement);

    RunLoop& runLoop_;
    std::uint64_t seed_;
    CBManagerState radioState_ = CBManagerState::poweredOn;
    std::function<void(CBManagerState)> radioObserver_ = [](CBManagerState /*state*/) {};
    std::vector<std::weak_ptr<SimulatedCentral>> centrals_;
    std::vector<std::shared_ptr<SimulatedDevice>> devices_;
    // Weakly held by tasks, which may come after the world.
    std::shared_ptr<World> self_{this, [](World* /*self*/) {}};
};

}  // namespace zobi::platform::simulation
