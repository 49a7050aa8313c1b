#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/bluez/controller/HCI.h"

namespace zobi::platform::bluez {

// Packets of the kernel's management socket: a code, the controller and the size of what follows, of two
// bytes each; then the parameters.

inline constexpr std::size_t managementHeaderSize = 6;
/// Answers to a command. Both begin with its code and a status; the first has what it returns after that.
inline constexpr std::uint16_t managementCompleteEvent = 0x0001;
inline constexpr std::uint16_t managementStatusEvent = 0x0002;

/// A command as it is sent.
inline std::vector<std::uint8_t> managementPacket(std::uint16_t command, std::uint16_t controller,
                                                  std::span<const std::uint8_t> parameters = {}) {
    std::vector<std::uint8_t> packet;
    for (const std::uint16_t number : {command, controller, static_cast<std::uint16_t>(parameters.size())}) {
        packet.push_back(lowByte(number));
        packet.push_back(highByte(number));
    }
    packet.insert(packet.end(), parameters.begin(), parameters.end());
    return packet;
}

}  // namespace zobi::platform::bluez
