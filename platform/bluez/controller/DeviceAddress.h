#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zobi::platform::bluez {

/// The address of a device as Bluetooth has it.
struct DeviceAddress {
    /// In the order in which it is written: 00:00:5E:00:53:02 begins with 00:00:5E.
    std::array<std::uint8_t, 6> bytes{};
    bool isRandom = false;

    // NOLINTNEXTLINE(modernize-use-nullptr): the comparison that the compiler makes has a 0 in it
    friend auto operator<=>(const DeviceAddress&, const DeviceAddress&) = default;
};

/// Reads "00:00:5E:00:53:02". Nothing for any other text.
std::optional<DeviceAddress> deviceAddressFromText(std::string_view text, bool isRandom);

std::string textOf(const DeviceAddress& address);

}  // namespace zobi::platform::bluez
