#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>

namespace zobi::platform::bluez {

/// The address of a device as Bluetooth has it.
struct DeviceAddress {
    /// In the order in which it is written: 00:00:5E:00:53:02 begins with 00:00:5E.
    std::array<std::uint8_t, 6> bytes{};
    bool isRandom = false;

    friend bool operator==(const DeviceAddress&, const DeviceAddress&) = default;
    // libc++ 16 cannot compare arrays with <=>.
    friend bool operator<(const DeviceAddress& left, const DeviceAddress& right) {
        return std::tie(left.bytes, left.isRandom) < std::tie(right.bytes, right.isRandom);
    }
};

/// Reads "00:00:5E:00:53:02". Nothing for any other text.
std::optional<DeviceAddress> deviceAddressFromText(std::string_view text, bool isRandom);

std::string textOf(const DeviceAddress& address);

}  // namespace zobi::platform::bluez
