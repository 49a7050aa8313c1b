#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "zobi/platform/CBUUID.h"

namespace zobi::platform::bluez {

/// Matches an advertisement that has these bytes at this position of a structure of this type (AD type).
struct AdvertisementPattern {
    std::uint8_t position = 0;
    std::uint8_t type = 0;
    std::vector<std::uint8_t> bytes = {};

    friend bool operator==(const AdvertisementPattern&, const AdvertisementPattern&) = default;
};

/// The patterns of which each legacy advertisement matches one that lists one of the services, at whatever
/// place in its list, or has data of one; the likeliest first. Without services, those of the flags that
/// devices advertise.
std::vector<AdvertisementPattern> patternsOf(std::span<const CBUUID> services);

/// Divides patterns among monitors, as many as BlueZ and the kernel take in each, as far as the monitors
/// reach.
std::vector<std::vector<AdvertisementPattern>> monitorsOf(std::span<const AdvertisementPattern> patterns,
                                                          std::size_t monitors);

}  // namespace zobi::platform::bluez
