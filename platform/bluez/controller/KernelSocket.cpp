#include "platform/bluez/controller/KernelSocket.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

namespace zobi::platform::bluez {

namespace {

// As the kernel has them, whose headers do not show them to programs.
constexpr int hciProtocol = 1;
struct SocketAddress {
    sa_family_t family;
    std::uint16_t device;
    std::uint16_t channel;
};

// Larger than any packet of either kind of socket.
constexpr std::size_t largestPacket = 2048;

}  // namespace

std::optional<int> KernelSocket::open(std::uint16_t device, std::uint16_t channel) {
    const int descriptor = ::socket(AF_BLUETOOTH, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, hciProtocol);
    if (descriptor < 0) return std::nullopt;
    const SocketAddress address{AF_BLUETOOTH, device, channel};
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): how sockets are bound
    if (::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ::close(descriptor);
        return std::nullopt;
    }
    return descriptor;
}

KernelSocket::KernelSocket(int descriptor, RunLoop& runLoop)
    : descriptor_(descriptor),
      runLoop_(runLoop),
      source_(runLoop.addSource({descriptor, POLLIN}, [this] { drain(); })) {}

KernelSocket::~KernelSocket() {
    close();
}

void KernelSocket::close() {
    source_.reset();
    if (descriptor_ >= 0) ::close(std::exchange(descriptor_, -1));
}

void KernelSocket::drain() {
    std::array<std::uint8_t, largestPacket> packet;  // NOLINT(cppcoreguidelines-pro-type-member-init)
    while (descriptor_ >= 0) {
        const auto size = ::read(descriptor_, packet.data(), packet.size());
        if (size > 0) {
            packetWasRead(std::span(packet).first(static_cast<std::size_t>(size)));
            continue;
        }
        if (size < 0 && errno == EINTR) continue;
        // The controller is gone.
        if (size == 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) close();
        return;
    }
}

bool KernelSocket::send(std::span<const std::uint8_t> packet) const {
    return descriptor_ >= 0 &&
           ::write(descriptor_, packet.data(), packet.size()) == static_cast<ssize_t>(packet.size());
}

std::optional<LinkEnd> KernelSocket::takeLinkEnd(const DeviceAddress& device) {
    drain();
    const auto node = ends_.extract(device);
    if (node.empty()) return std::nullopt;
    return node.mapped();
}

void KernelSocket::linkHasEnded(const DeviceAddress& device, const LinkEnd& end) {
    ends_.insert_or_assign(device, end);
    runLoop_.dispatchAsync([weakSelf = weak_from_this()] {
        if (const auto self = weakSelf.lock()) self->tellEvent();
    });
}

void KernelSocket::readRSSI(const DeviceAddress& device, std::function<void(std::optional<int>)> answer) {
    answers_.insert_or_assign(device, std::move(answer));
    if (!requestRSSI(device)) signalWasRead(device, std::nullopt);
}

void KernelSocket::signalWasRead(const DeviceAddress& device, std::optional<int> rssi) {
    auto node = answers_.extract(device);
    // In a turn of its own: reading goes on meanwhile.
    if (!node.empty()) runLoop_.dispatchAsync([answer = std::move(node.mapped()), rssi] { answer(rssi); });
}

}  // namespace zobi::platform::bluez
