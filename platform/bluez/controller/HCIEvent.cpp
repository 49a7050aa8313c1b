#include "platform/bluez/controller/HCIEvent.h"

#include "platform/bluez/controller/HCI.h"

namespace zobi::platform::bluez {

namespace {

/// A handle has twelve bits.
std::uint16_t handle(std::span<const std::uint8_t> bytes, std::size_t position) {
    return number16(bytes, position) & 0x0FFF;
}

}  // namespace

std::optional<HCIEvent> parseHCIEvent(std::span<const std::uint8_t> packet) {
    // Type, code, and how many bytes follow.
    if (packet.size() < 3 || packet[0] != eventPacket || packet.size() - 3 < packet[2]) return std::nullopt;
    const auto parameters = packet.subspan(3, packet[2]);
    if (packet[1] == disconnectionCompleteEvent) {
        // Status, handle, reason. With another status nothing has ended.
        if (parameters.size() < 4 || parameters[0] != 0) return std::nullopt;
        return DisconnectionComplete{handle(parameters, 1), parameters[3]};
    }
    if (packet[1] == commandCompleteEvent) {
        // Number of commands, command, status.
        if (parameters.size() < 4) return std::nullopt;
        const std::uint16_t command = number16(parameters, 1);
        const bool succeeded = parameters[3] == 0;
        if (command == setScanEnableCommand || command == setExtendedScanEnableCommand) {
            return succeeded ? std::optional(ScanSwitch()) : std::nullopt;
        }
        // Then handle, signal strength.
        if (parameters.size() < 7 || command != readRSSICommand) return std::nullopt;
        SignalReading reading{handle(parameters, 4), std::nullopt};
        const auto rssi = static_cast<std::int8_t>(parameters[6]);
        if (succeeded && rssi != unknownRSSI) reading.rssi = rssi;
        return reading;
    }
    return std::nullopt;
}

}  // namespace zobi::platform::bluez
