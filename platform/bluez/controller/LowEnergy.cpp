#include "platform/bluez/controller/LowEnergy.h"

#include <unistd.h>

#include <array>
#include <chrono>

#include "platform/bluez/controller/HCI.h"
#include "platform/bluez/controller/KernelSocket.h"
#include "platform/bluez/controller/ManagementPacket.h"
#include "platform/bluez/controller/PacketDeadline.h"

namespace zobi::platform::bluez {

namespace {

constexpr std::uint16_t readInformationCommand = 0x0004;
// After command and status; address, version and manufacturer.
constexpr std::size_t settingsPosition = managementHeaderSize + 3 + 9;
constexpr unsigned lowEnergyInSecondByte = 0x02;
constexpr std::chrono::seconds answerDeadline(1);

}  // namespace

LowEnergy lowEnergyIn(std::span<const std::uint8_t> packet) {
    // The settings that there are, and those that are switched on, of four bytes each.
    const bool isAnswer = packet.size() >= settingsPosition + 8 &&
                          number16(packet, 0) == managementCompleteEvent &&
                          number16(packet, managementHeaderSize) == readInformationCommand &&
                          packet[managementHeaderSize + 2] == 0;
    if (!isAnswer) return LowEnergy::unknown;
    if ((packet[settingsPosition + 1] & lowEnergyInSecondByte) == 0) return LowEnergy::missing;
    const bool isOn = (packet[settingsPosition + 5] & lowEnergyInSecondByte) != 0;
    return isOn ? LowEnergy::on : LowEnergy::off;
}

LowEnergy readLowEnergy(std::uint16_t controller) {
    const auto descriptor = KernelSocket::open(noController, controlChannel);
    if (!descriptor) return LowEnergy::unknown;
    const auto request = managementPacket(readInformationCommand, controller);
    LowEnergy found = LowEnergy::unknown;
    if (::write(*descriptor, request.data(), request.size()) == static_cast<ssize_t>(request.size())) {
        const PacketDeadline deadline(answerDeadline);
        // Other events may come first.
        while (found == LowEnergy::unknown && deadline.awaitPacket(*descriptor)) {
            std::array<std::uint8_t, 512> packet{};
            const auto size = ::read(*descriptor, packet.data(), packet.size());
            if (size <= 0) break;
            found = lowEnergyIn(std::span(packet).first(static_cast<std::size_t>(size)));
        }
    }
    ::close(*descriptor);
    return found;
}

}  // namespace zobi::platform::bluez
