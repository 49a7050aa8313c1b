#include "platform/bluez/controller/HCISocket.h"

#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <optional>
#include <span>
#include <vector>

#include "platform/bluez/controller/HCI.h"
#include "platform/bluez/controller/HCIEvent.h"

namespace zobi::platform::bluez {

namespace {

// As the kernel has them, whose headers do not show them to programs.
constexpr int hciLevel = 0;
constexpr int filterOption = 2;
struct Filter {
    std::uint32_t types;
    std::array<std::uint32_t, 2> events;
    std::uint16_t command;
    std::uint16_t padding;
};
static_assert(sizeof(Filter) == 16);

constexpr std::size_t mostLinks = 32;
struct Link {
    std::uint16_t handle;
    std::array<std::uint8_t, 6> address;
    std::uint8_t type;
    std::uint8_t isOutgoing;
    std::uint16_t state;
    std::uint32_t mode;
};
static_assert(sizeof(Link) == 16);
struct LinkList {
    std::uint16_t controller;
    std::uint16_t count;
    std::array<Link, mostLinks> links;
};
constexpr unsigned long listLinks = _IOR('H', 212, int);
constexpr std::uint8_t lowEnergy = 0x80;

/// The links of LE to a device, of which there is one at most. Nothing where the kernel does not list
/// them.
std::optional<std::vector<Link>> linksTo(int socket, std::uint16_t controller, const DeviceAddress& device) {
    LinkList list{controller, mostLinks, {}};
    if (::ioctl(socket, listLinks, &list) != 0) return std::nullopt;
    const auto links = std::span(list.links).first(std::min<std::size_t>(list.count, mostLinks));
    auto address = device.bytes;
    std::ranges::reverse(address);
    std::vector<Link> found;
    std::ranges::copy_if(links, std::back_inserter(found),
                         [&](const Link& link) { return link.type == lowEnergy && link.address == address; });
    return found;
}

}  // namespace

std::shared_ptr<HCISocket> HCISocket::open(std::uint16_t controller, RunLoop& runLoop) {
    const auto descriptor = KernelSocket::open(controller, rawChannel);
    if (!descriptor) return nullptr;
    auto socket = std::make_shared<HCISocket>(*descriptor, controller, runLoop);
    // Only the two events that are read here: among the others is every advertisement.
    const Filter filter{
        1U << eventPacket, {1U << disconnectionCompleteEvent | 1U << commandCompleteEvent, 0}, 0, 0};
    if (::setsockopt(*descriptor, hciLevel, filterOption, &filter, sizeof filter) != 0) return nullptr;
    return socket;
}

void HCISocket::watchLink(const DeviceAddress& device) {
    // First, as a queued event for a reused handle belongs to the previous link.
    drain();
    linkIsNew(device);
    std::erase_if(devices_, [&](const auto& entry) { return entry.second == device; });
    const auto links = linksTo(fileDescriptor(), controller_, device);
    if (links && !links->empty()) devices_.insert_or_assign(links->front().handle, device);
}

std::optional<bool> HCISocket::isIncomingLink(const DeviceAddress& device) const {
    const auto links = linksTo(fileDescriptor(), controller_, device);
    if (!links) return std::nullopt;
    return !links->empty() && links->front().isOutgoing == 0;
}

void HCISocket::packetWasRead(std::span<const std::uint8_t> packet) {
    const auto event = parseHCIEvent(packet);
    if (!event) return;
    if (const auto* const ended = std::get_if<DisconnectionComplete>(&*event)) {
        const auto node = devices_.extract(ended->handle);
        if (!node.empty()) linkHasEnded(node.mapped(), linkEndFromHCIReason(ended->reason));
    } else if (const auto* const reading = std::get_if<SignalReading>(&*event)) {
        const auto link = devices_.find(reading->handle);
        if (link != devices_.end()) signalWasRead(link->second, reading->rssi);
    } else {
        ++scanSwitches_;
    }
}

bool HCISocket::requestRSSI(const DeviceAddress& device) {
    const auto link =
        std::ranges::find_if(devices_, [&](const auto& entry) { return entry.second == device; });
    if (link == devices_.end()) return false;
    const std::uint16_t handle = link->first;
    const std::array<std::uint8_t, 6> packet{
        commandPacket, lowByte(readRSSICommand), highByte(readRSSICommand),
        sizeof handle, lowByte(handle),          highByte(handle)};
    return send(packet);
}

}  // namespace zobi::platform::bluez
