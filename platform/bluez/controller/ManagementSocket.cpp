#include "platform/bluez/controller/ManagementSocket.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <string>

namespace zobi::platform::bluez {

namespace {

constexpr std::uint16_t noController = 0xFFFF;
constexpr std::uint16_t controlChannel = 3;

constexpr std::uint16_t commandCompleteEvent = 0x0001;
constexpr std::uint16_t disconnectedEvent = 0x000C;
constexpr std::uint16_t connectionInformationCommand = 0x0031;

// Code, controller and size begin a packet.
constexpr std::size_t headerSize = 6;
// An address and its type.
constexpr std::size_t addressSize = 7;
constexpr std::uint8_t randomAddress = 2;
constexpr std::uint8_t publicAddress = 1;
constexpr std::int8_t unknownSignal = 127;

std::uint16_t number(std::span<const std::uint8_t> bytes, std::size_t position) {
    return static_cast<std::uint16_t>(bytes[position] | bytes[position + 1] << 8);
}

/// @param bytes at least `addressSize` of them.
DeviceAddress addressIn(std::span<const std::uint8_t> bytes) {
    DeviceAddress address{.isRandom = bytes[6] == randomAddress};
    std::ranges::reverse_copy(bytes.first(address.bytes.size()), address.bytes.begin());
    return address;
}

bool hasNetworkAdministration() {
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

}  // namespace

std::shared_ptr<ManagementSocket> ManagementSocket::open(std::uint16_t controller, RunLoop& runLoop) {
    if (!hasNetworkAdministration()) return nullptr;
    const auto descriptor = KernelSocket::open(noController, controlChannel);
    return descriptor ? std::make_shared<ManagementSocket>(*descriptor, controller, runLoop) : nullptr;
}

void ManagementSocket::watchLink(const DeviceAddress& device) {
    drain();
    linkIsNew(device);
    watched_.insert(device);
}

void ManagementSocket::packetWasRead(std::span<const std::uint8_t> packet) {
    if (packet.size() < headerSize || number(packet, 2) != controller_) return;
    const std::uint16_t code = number(packet, 0);
    const auto parameters = packet.subspan(headerSize);
    if (code == disconnectedEvent && parameters.size() > addressSize) {
        const DeviceAddress device = addressIn(parameters);
        if (watched_.erase(device) > 0) {
            linkHasEnded(device, linkEndFromManagementReason(parameters[addressSize]));
        }
        return;
    }
    // Command, status, address, signal strength. A failure names the address too.
    constexpr std::size_t lead = 3;
    const bool isAnswer = code == commandCompleteEvent && parameters.size() >= lead + addressSize &&
                          number(parameters, 0) == connectionInformationCommand;
    if (!isAnswer) return;
    const auto reading = parameters.subspan(lead);
    std::optional<int> rssi;
    if (parameters[2] == 0 && reading.size() > addressSize) {
        rssi = static_cast<std::int8_t>(reading[addressSize]);
        if (rssi == unknownSignal) rssi.reset();
    }
    signalWasRead(addressIn(reading), rssi);
}

bool ManagementSocket::requestRSSI(const DeviceAddress& device) {
    std::array<std::uint8_t, headerSize + addressSize> request{
        static_cast<std::uint8_t>(connectionInformationCommand),
        static_cast<std::uint8_t>(connectionInformationCommand >> 8),
        static_cast<std::uint8_t>(controller_),
        static_cast<std::uint8_t>(controller_ >> 8),
        addressSize,
        0};
    std::ranges::reverse_copy(device.bytes, request.begin() + headerSize);
    request.back() = device.isRandom ? randomAddress : publicAddress;
    return send(request);
}

}  // namespace zobi::platform::bluez
