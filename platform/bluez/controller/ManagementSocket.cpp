#include "platform/bluez/controller/ManagementSocket.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <string>

#include "platform/bluez/controller/HCI.h"
#include "platform/bluez/controller/ManagementPacket.h"

namespace zobi::platform::bluez {

namespace {

constexpr std::uint16_t disconnectedEvent = 0x000C;
constexpr std::uint16_t startDiscoveryCommand = 0x0023;
constexpr std::uint16_t connectionInformationCommand = 0x0031;

// An address and its type.
constexpr std::size_t addressSize = 7;
constexpr std::uint8_t randomAddress = 2;
constexpr std::uint8_t publicAddress = 1;
// A bit for each of the two.
constexpr std::uint8_t lowEnergyAddresses = 1U << publicAddress | 1U << randomAddress;

/// @param bytes at least `addressSize` of them.
DeviceAddress addressIn(std::span<const std::uint8_t> bytes) {
    DeviceAddress address{.isRandom = bytes[6] == randomAddress};
    std::ranges::reverse_copy(bytes.first(address.bytes.size()), address.bytes.begin());
    return address;
}

}  // namespace

bool ManagementSocket::isAllowed() {
    constexpr unsigned long long capability = 1ULL << 12;
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        constexpr std::string_view lead = "CapEff:";
        if (line.starts_with(lead)) {
            return (std::stoull(line.substr(lead.size()), nullptr, 16) & capability) != 0;
        }
    }
    return false;
}

std::shared_ptr<ManagementSocket> ManagementSocket::open(std::uint16_t controller, RunLoop& runLoop) {
    if (!isAllowed()) return nullptr;
    const auto descriptor = KernelSocket::open(noController, controlChannel);
    return descriptor ? std::make_shared<ManagementSocket>(*descriptor, controller, runLoop) : nullptr;
}

bool ManagementSocket::startDiscovery(std::uint16_t controller) {
    if (!isAllowed()) return false;
    const auto descriptor = KernelSocket::open(noController, controlChannel);
    if (!descriptor) return false;
    const auto request = managementPacket(startDiscoveryCommand, controller, std::array{lowEnergyAddresses});
    const auto size = static_cast<ssize_t>(request.size());
    const bool isSent = ::write(*descriptor, request.data(), request.size()) == size;
    ::close(*descriptor);
    return isSent;
}

void ManagementSocket::watchLink(const DeviceAddress& device) {
    drain();
    linkIsNew(device);
    watched_.insert(device);
}

void ManagementSocket::packetWasRead(std::span<const std::uint8_t> packet) {
    if (packet.size() < managementHeaderSize || number16(packet, 2) != controller_) return;
    const std::uint16_t code = number16(packet, 0);
    const auto parameters = packet.subspan(managementHeaderSize);
    if (code == disconnectedEvent && parameters.size() > addressSize) {
        const DeviceAddress device = addressIn(parameters);
        if (watched_.erase(device) > 0) {
            linkHasEnded(device, linkEndFromManagementReason(parameters[addressSize]));
        }
        return;
    }
    // Command, status, address, signal strength. A failure names the address too.
    constexpr std::size_t lead = 3;
    const bool isAnswer = code == managementCompleteEvent && parameters.size() >= lead + addressSize &&
                          number16(parameters, 0) == connectionInformationCommand;
    if (!isAnswer) return;
    const auto reading = parameters.subspan(lead);
    std::optional<int> rssi;
    if (parameters[2] == 0 && reading.size() > addressSize) {
        rssi = static_cast<std::int8_t>(reading[addressSize]);
        if (rssi == unknownRSSI) rssi.reset();
    }
    signalWasRead(addressIn(reading), rssi);
}

bool ManagementSocket::requestRSSI(const DeviceAddress& device) {
    std::array<std::uint8_t, addressSize> address{};
    std::ranges::reverse_copy(device.bytes, address.begin());
    address.back() = device.isRandom ? randomAddress : publicAddress;
    return send(managementPacket(connectionInformationCommand, controller_, address));
}

}  // namespace zobi::platform::bluez
