#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/CBUUID.h"
#include "platform/simulation/LinkDescription.h"
#include "platform/simulation/ServiceDescription.h"

namespace platform::simulation {

/// One service data element, as a beacon sends it.
struct ServiceData {
    CBUUID service;
    std::vector<std::uint8_t> data;
};

/// What a simulated beacon is. As it stands by default, the library accepts its advertisements, and connects
/// to it.
struct BeaconDescription {
    /// As it is written: most significant byte first.
    std::array<std::uint8_t, 6> macAddress{};
    std::uint16_t major = 0;
    std::uint16_t minor = 0;
    /// 3 and 2 have layouts of their own; 1 is the short layout, which does not carry the version; any other
    /// ends after the battery level.
    std::int8_t layoutVersion = 3;
    /// In percent; any byte can be sent. Not carried by layout version 1.
    std::uint8_t batteryLevel = 100;
    /// In degrees Celsius, from -4 to 65531. Carried by layout version 3 alone.
    std::int32_t temperature = 20;
    /// The code of the button: 0 for none, 1 to 3 for the actions. Carried by layout versions 2 and 3.
    std::int8_t buttonAction = 0;
    /// Absent for a beacon that advertises no name.
    std::optional<std::string> localName = "morvane";
    /// What a scan's service filter looks at.
    std::vector<CBUUID> advertisedServices = {CBUUID::UUIDWithString("1320")};
    /// Absent for the beacon's own payload under Device Information; else whatever is sent in its place.
    std::optional<std::vector<ServiceData>> serviceData = std::nullopt;
    /// Seconds from one advertisement to the next, above 0.
    double advertisingInterval = 1.0;
    /// A random delay of up to so many seconds is added to each interval, as real beacons add it so as not to
    /// collide for ever.
    double advertisingJitter = 0.01;
    /// The mean received signal strength in dBm, and how far a reading may lie from it in dB.
    int signalStrength = -60;
    int signalStrengthSpread = 0;
    /// What a connected central finds, in this order; missing, doubled and foreign ones included.
    std::vector<ServiceDescription> services = beaconServices();
    LinkDescription link = {};
};

}  // namespace platform::simulation
