#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "ZobiConnectKit/simulation/BeaconDescription.h"
#include "zobi/platform/Export.h"
#include "zobi/platform/NSTimer.h"
#include "zobi/platform/simulation/SimulatedDevice.h"
#include "zobi/platform/simulation/World.h"

namespace zobi {

/// A simulated beacon: a simulated device that advertises the payload of a beacon, and has its values. Made
/// by `addBeacon`. Main thread only.
class ZOBI_EXPORT SimulatedBeacon final : public platform::simulation::SimulatedDevice {
public:
    /// A beacon that is out of range.
    /// @param context what its world gives it.
    /// @param description what it is.
    /// @throws std::invalid_argument for a description that has a value out of range.
    SimulatedBeacon(Context context, BeaconDescription description);
    ~SimulatedBeacon() override;
    SimulatedBeacon(const SimulatedBeacon&) = delete;
    SimulatedBeacon& operator=(const SimulatedBeacon&) = delete;

    /// The first half of its identity.
    std::uint16_t major() const { return payload_.major; }
    /// The second half of its identity.
    std::uint16_t minor() const { return payload_.minor; }
    /// The battery level, in percent.
    std::uint8_t batteryLevel() const { return payload_.batteryLevel; }
    /// The temperature, in degrees Celsius.
    std::int32_t temperature() const { return payload_.temperature; }
    /// The code of the button action that it advertises; 0 when none is pressed.
    std::int8_t buttonAction() const { return payload_.buttonAction; }

    /// Advertises the code of a button action for `seconds` of the loop's clock, then 0 again; another press
    /// before that replaces it. Also sets the code in FFE1, where it stays, and notifies it.
    void pressButton(std::int8_t action, double seconds);

    /// Sets the battery level that is advertised and that is in 2A19, and notifies it.
    void setBatteryLevel(std::uint8_t level);
    /// Sets the temperature, in degrees Celsius, that is advertised and that is in FFF2, and notifies it.
    /// @throws std::invalid_argument below -4 or above 65531.
    void setTemperature(std::int32_t degrees);

    /// Advertises `serviceData` in place of the payload.
    void setServiceData(std::vector<platform::simulation::ServiceData> serviceData) override;
    /// Advertises the payload again.
    void setServiceData(std::nullopt_t payload);

private:
    /// The payload has changed.
    void refreshPayload();

    // Kept up to date as far as it is in the payload. All else has its place in the description of the
    // device.
    BeaconDescription payload_;
    bool isPayloadAdvertised_;
    std::shared_ptr<platform::NSTimer> buttonTimer_;
};

/// Adds a beacon to a world, out of range. It exists as long as the world.
/// @throws std::invalid_argument for a description that has a value out of range.
ZOBI_EXPORT SimulatedBeacon& addBeacon(platform::simulation::World& world, BeaconDescription description);

}  // namespace zobi
