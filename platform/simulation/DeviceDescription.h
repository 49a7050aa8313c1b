#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "zobi/platform/CBUUID.h"
#include "zobi/platform/simulation/LinkDescription.h"
#include "zobi/platform/simulation/ServiceDescription.h"

namespace zobi::platform::simulation {

/// One service data element of an advertisement.
struct ServiceData {
    /// The UUID in front of the data.
    CBUUID service;
    /// The bytes after the UUID.
    std::vector<std::uint8_t> data;
};

/// Describes a simulated Bluetooth LE device: what it advertises, its GATT services, and how its links
/// behave.
struct DeviceDescription {
    /// The device address, most significant byte first. Only log lines show it.
    std::array<std::uint8_t, 6> address{};
    /// The local name; absent for a device that does not advertise one.
    std::optional<std::string> localName = std::nullopt;
    /// The advertised services, with which the filter of a scan is compared.
    std::vector<CBUUID> advertisedServices = {};
    /// The advertised service data elements, in this order.
    std::vector<ServiceData> serviceData = {};
    /// Seconds from one advertisement to the next; above 0.
    double advertisingInterval = 1.0;
    /// The maximum of a random delay in seconds that is added to each interval, so that two devices do not
    /// collide each time; not below 0.
    double advertisingJitter = 0.01;
    /// The mean received signal strength in dBm.
    int signalStrength = -60;
    /// How far a reading may be from the mean, in dB; not below 0.
    int signalStrengthSpread = 0;
    /// The GATT services that a central discovers, in this order.
    std::vector<ServiceDescription> services = {};
    /// How a link to the device behaves.
    LinkDescription link = {};
};

}  // namespace zobi::platform::simulation
