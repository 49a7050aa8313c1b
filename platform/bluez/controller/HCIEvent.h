#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <variant>

namespace zobi::platform::bluez {

/// A link has ended. As the controller sends it: event 0x05.
struct DisconnectionComplete {
    std::uint16_t handle;
    std::uint8_t reason;
};

/// The answer to a request for the signal strength of a link: event 0x0E for command 0x1405.
struct SignalReading {
    std::uint16_t handle;
    /// In dBm; nothing when the controller reports an error, or that it does not know.
    std::optional<std::int8_t> rssi;
};

/// The controller has begun or ended a scan, as it was told to: event 0x0E for command 0x200C or 0x2042.
/// Which of the two is not in the event.
struct ScanSwitch {};

using HCIEvent = std::variant<DisconnectionComplete, SignalReading, ScanSwitch>;

/// Reads a packet of the Host Controller Interface, its type byte included. Nothing for any other packet, and
/// for one that is too short.
std::optional<HCIEvent> parseHCIEvent(std::span<const std::uint8_t> packet);

}  // namespace zobi::platform::bluez
