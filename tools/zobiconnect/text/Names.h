#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "zobi/platform/CBUUID.h"

namespace zobi::tool {

/// By the numbers of the states of Bluetooth.
inline constexpr auto radioStateNames = std::to_array<std::string_view>(
    {"unknown", "resetting", "unsupported", "unauthorized", "poweredOff", "poweredOn"});

/// A radio may report a state that has no name.
constexpr std::string_view radioStateName(int state) {
    const auto index = static_cast<std::size_t>(state);
    return index < radioStateNames.size() ? radioStateNames[index] : "unnamed";
}

/// The standard name of a service or characteristic, or what it is to beacons; empty for any other.
std::string_view gattName(const platform::CBUUID& uuid);

/// As in "temperature (FFF2)".
std::string gattText(const platform::CBUUID& uuid);

}  // namespace zobi::tool
