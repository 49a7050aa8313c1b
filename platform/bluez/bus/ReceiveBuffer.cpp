#include "platform/bluez/bus/ReceiveBuffer.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

namespace zobi::platform::bluez {

namespace {

// Most of what gathers in a rest: a look takes two calls at most.
constexpr std::size_t usualCapacity = 32UL * 1024;

}  // namespace

ReceiveBuffer::Result ReceiveBuffer::receive(int socket, std::size_t wanted) {
    if (start_ > 0) std::ranges::copy(unread(), bytes_.begin());
    start_ = 0;
    const std::size_t most = std::max(usualCapacity, wanted);
    if (bytes_.size() == size_) {
        // It grows with what comes, not by what a sender says.
        bytes_.resize(std::min(most, std::max(usualCapacity, 2 * size_)));
    } else if (bytes_.size() > most) {
        bytes_.resize(most);
        bytes_.shrink_to_fit();
    }
    const auto room = std::span(bytes_).subspan(size_);
    const ssize_t received = ::recv(socket, room.data(), room.size(), MSG_DONTWAIT);
    if (received < 0) return {.error = errno};
    if (received == 0) return {.error = ECONNRESET};
    size_ += static_cast<std::size_t>(received);
    return {.isFull = static_cast<std::size_t>(received) == room.size()};
}

void ReceiveBuffer::consume(std::size_t size) {
    start_ += size;
    size_ -= size;
}

}  // namespace zobi::platform::bluez
