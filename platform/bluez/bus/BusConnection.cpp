#include "platform/bluez/bus/BusConnection.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <system_error>

#include "platform/bluez/bus/MessageHeader.h"

namespace zobi::platform::bluez {

namespace {

constexpr std::string_view lineEnd = "\r\n";
constexpr std::size_t longestLine = 4096;

void check(int result) {
    if (result < 0) throw std::system_error(-result, std::generic_category(), "D-Bus");
}

/// Lines of the handshake start with a word; the second byte of a message is its type, a small number.
bool isLine(std::span<const std::uint8_t> bytes) {
    return bytes.size() >= 2 && bytes[1] >= 'A' && bytes[1] <= 'Z';
}

}  // namespace

BusConnection::BusConnection(int socket, Role role) : socket_(socket) {
    FileDescriptor output(socket);
    sd_bus* bus = nullptr;
    check(sd_bus_new(&bus));
    bus_.reset(bus);
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data()) != 0) check(-errno);
    input_ = FileDescriptor(ends[0]);
    FileDescriptor libraryEnd(ends[1]);
    check(sd_bus_set_fd(bus, libraryEnd.get(), output.get()));
    libraryEnd.release();
    output.release();
    // They do not come through. So the bus refuses them to their sender, instead of nobody answering.
    check(sd_bus_negotiate_fds(bus, 0));
    if (role == Role::client) {
        check(sd_bus_set_bus_client(bus, 1));
    } else {
        sd_id128_t id{};
        check(sd_id128_randomize(&id));
        check(sd_bus_set_server(bus, 1, id));
    }
    check(sd_bus_start(bus));
}

short BusConnection::events() const {
    return static_cast<short>(POLLIN | (std::max(sd_bus_get_events(bus_.get()), 0) & POLLOUT));
}

void BusConnection::look() {
    isDrained_ = false;
    received_ = 0;
    if (!isReady_ || (events() & POLLOUT) != 0) process();
    // Writing may have failed, while the other end still sends.
    if (sd_bus_is_open(bus_.get()) <= 0) lose(ECONNRESET);
}

std::optional<std::span<const std::uint8_t>> BusConnection::next() {
    while (!error_) {
        const std::size_t size = nextSize();
        if (size == 0) {
            if (!receive()) break;
            continue;
        }
        const auto bytes = buffer_.unread().first(size);
        buffer_.consume(size);
        if (isReady_) return bytes;
        passOn(bytes);
    }
    return std::nullopt;
}

std::size_t BusConnection::nextSize() {
    const auto unread = buffer_.unread();
    wanted_ = 0;
    if (!isReady_ && isLine(unread)) {
        const std::string_view text(reinterpret_cast<const char*>(unread.data()), unread.size());
        const std::size_t end = text.find(lineEnd);
        if (end != std::string_view::npos) return end + lineEnd.size();
        if (unread.size() > longestLine) lose(EBADMSG);
        return 0;
    }
    if (unread.size() < MessageHeader::fixedSize) return 0;
    const auto size = MessageHeader::sizeOfMessage(unread);
    if (!size) {
        lose(EBADMSG);
        return 0;
    }
    if (*size <= unread.size()) return *size;
    wanted_ = *size;
    return 0;
}

bool BusConnection::receive() {
    if (isDrained_ || error_) return false;
    const std::size_t before = buffer_.unread().size();
    const auto [error, isFull] = buffer_.receive(socket_, wanted_);
    received_ += buffer_.unread().size() - before;
    isDrained_ = !isFull;
    if (error != 0 && error != EAGAIN && error != EINTR) lose(error);
    return error == 0;
}

MessagePointer BusConnection::passOn(std::span<const std::uint8_t> bytes) {
    MessagePointer message;
    while (!bytes.empty() && !error_) {
        const ssize_t passed = ::send(input_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (passed < 0 && errno != EAGAIN) lose(errno);
        bytes = bytes.subspan(static_cast<std::size_t>(std::max<ssize_t>(passed, 0)));
        message = process();
    }
    return message;
}

MessagePointer BusConnection::process() {
    MessagePointer message;
    for (int result = 1; result > 0 && !message;) {
        sd_bus_message* read = nullptr;
        result = sd_bus_process(bus_.get(), &read);
        message.reset(read);
        if (result < 0) lose(-result);
        if (sd_bus_is_open(bus_.get()) <= 0) lose(ECONNRESET);
    }
    isReady_ = sd_bus_is_ready(bus_.get()) > 0;
    return message;
}

}  // namespace zobi::platform::bluez
