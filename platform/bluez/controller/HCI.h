#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

// Numbers of the Host Controller Interface (HCI) and of the sockets that Linux has for it, whose headers are
// not installed everywhere.

namespace zobi::platform::bluez {

// The type byte in front of a packet of the raw socket.
inline constexpr std::uint8_t commandPacket = 0x01;
inline constexpr std::uint8_t eventPacket = 0x04;

inline constexpr std::uint8_t disconnectionCompleteEvent = 0x05;
inline constexpr std::uint8_t commandCompleteEvent = 0x0E;
inline constexpr std::uint16_t readRSSICommand = 0x1405;
// Both begin or end a scan; the second is that of controllers with extended advertising.
inline constexpr std::uint16_t setScanEnableCommand = 0x200C;
inline constexpr std::uint16_t setExtendedScanEnableCommand = 0x2042;

/// The signal strength that a controller reports when it does not know it.
inline constexpr int unknownRSSI = 127;

/// Reasons in `disconnectionCompleteEvent`.
enum class DisconnectionReason : std::uint8_t {
    connectionTimeout = 0x08,
    remoteUserTerminated = 0x13,
    remoteLowResources = 0x14,
    remotePowerOff = 0x15,
    localHostTerminated = 0x16,
    integrityCheckFailed = 0x3D,
};

/// The protocol of a Bluetooth socket.
inline constexpr int hciProtocol = 1;
/// Channels of a Bluetooth socket.
inline constexpr std::uint16_t rawChannel = 0;
inline constexpr std::uint16_t controlChannel = 3;
/// What the management socket is bound to, in place of a controller.
inline constexpr std::uint16_t noController = 0xFFFF;

/// Reads a little-endian number of 16 bits.
inline std::uint16_t number16(std::span<const std::uint8_t> bytes, std::size_t position) {
    return static_cast<std::uint16_t>(bytes[position] | bytes[position + 1] << 8);
}
constexpr std::uint8_t lowByte(std::uint16_t number) {
    return static_cast<std::uint8_t>(number & 0xFF);
}
constexpr std::uint8_t highByte(std::uint16_t number) {
    return static_cast<std::uint8_t>(number >> 8);
}

}  // namespace zobi::platform::bluez
