#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "zobi/platform/CBUUID.h"
#include "zobi/platform/Export.h"
#include "zobi/platform/simulation/DeviceDescription.h"

namespace zobi {

/// The seven services of a beacon with all their characteristics. The button mode is 0, the firmware revision
/// "1.0.0". Battery level, temperature and button action have no value: see `BeaconDescription::services`.
ZOBI_EXPORT std::vector<platform::simulation::ServiceDescription> beaconServices();

/// Describes a simulated beacon. With the defaults, the library accepts its advertisements and can connect to
/// it.
struct BeaconDescription {
    /// The MAC address in the payload, most significant byte first, as it is written. It is the device
    /// address too.
    std::array<std::uint8_t, 6> macAddress{};
    /// The first half of the identity in the payload.
    std::uint16_t major = 0;
    /// The second half of the identity in the payload.
    std::uint16_t minor = 0;
    /// The layout version of the payload. Version 1 is the short layout, which does not contain the version;
    /// one other than 1, 2 and 3 ends after the battery level.
    std::int8_t layoutVersion = 3;
    /// In percent, but any byte can be sent. Not in layout version 1.
    std::uint8_t batteryLevel = 100;
    /// In degrees Celsius, from -4 to 65531. Only in layout version 3.
    std::int32_t temperature = 20;
    /// The code of the button action: 0 for none, 1 to 3 for the actions. Only in layout versions 2 and 3.
    std::int8_t buttonAction = 0;
    /// The local name; absent for a beacon that does not advertise one.
    std::optional<std::string> localName = "morvane";
    /// The advertised services, with which the filter of a scan is compared.
    std::vector<platform::CBUUID> advertisedServices = {platform::CBUUID::UUIDWithString("1320")};
    /// Service data to advertise in place of the payload under Device Information (180A); absent to advertise
    /// the payload.
    std::optional<std::vector<platform::simulation::ServiceData>> serviceData = std::nullopt;
    /// Seconds from one advertisement to the next; above 0.
    double advertisingInterval = 1.0;
    /// The maximum of a random delay in seconds that is added to each interval, so that two beacons do not
    /// collide each time; not below 0.
    double advertisingJitter = 0.01;
    /// The mean received signal strength in dBm.
    int signalStrength = -60;
    /// How far a reading may be from the mean, in dB; not below 0.
    int signalStrengthSpread = 0;
    /// The GATT services that a central discovers, in this order. Any are possible: some of a beacon's may be
    /// missing or repeated, and others added. A characteristic without a value gets that of the beacon: its
    /// battery level in 2A19, its temperature in FFF2 (two bytes, big-endian), its button action in FFE1.
    std::vector<platform::simulation::ServiceDescription> services = beaconServices();
    /// How a link to the beacon behaves.
    platform::simulation::LinkDescription link = {};
};

}  // namespace zobi
