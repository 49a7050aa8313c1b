#include "platform/bluez/controller/HCIEvent.h"

namespace zobi::platform::bluez {

namespace {

constexpr std::uint8_t eventPacket = 0x04;
constexpr std::uint8_t disconnectionCompleteEvent = 0x05;
constexpr std::uint8_t commandCompleteEvent = 0x0E;
constexpr std::uint16_t readRSSICommand = 0x1405;
constexpr std::int8_t unknownSignal = 127;

// Numbers of several bytes begin with the lowest. Handles have twelve bits.
std::uint16_t number(std::span<const std::uint8_t, 2> bytes) {
    return static_cast<std::uint16_t>(bytes[0] | bytes[1] << 8);
}

std::uint16_t handle(std::span<const std::uint8_t, 2> bytes) {
    return number(bytes) & 0x0FFF;
}

}  // namespace

std::optional<HCIEvent> parseHCIEvent(std::span<const std::uint8_t> packet) {
    // Type, code, and how many bytes follow.
    if (packet.size() < 3 || packet[0] != eventPacket || packet.size() - 3 < packet[2]) return std::nullopt;
    const auto parameters = packet.subspan(3, packet[2]);
    if (packet[1] == disconnectionCompleteEvent) {
        // Status, handle, reason. With another status nothing has ended.
        if (parameters.size() < 4 || parameters[0] != 0) return std::nullopt;
        return DisconnectionComplete{handle(parameters.subspan<1, 2>()), parameters[3]};
    }
    if (packet[1] == commandCompleteEvent) {
        // Number of commands, command, status, handle, signal strength.
        if (parameters.size() < 7 || number(parameters.subspan<1, 2>()) != readRSSICommand) {
            return std::nullopt;
        }
        SignalReading reading{handle(parameters.subspan<4, 2>()), std::nullopt};
        const auto rssi = static_cast<std::int8_t>(parameters[6]);
        if (parameters[3] == 0 && rssi != unknownSignal) reading.rssi = rssi;
        return reading;
    }
    return std::nullopt;
}

}  // namespace zobi::platform::bluez
