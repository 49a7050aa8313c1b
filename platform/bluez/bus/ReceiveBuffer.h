#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace zobi::platform::bluez {

/// What has arrived over a socket and is not consumed yet.
class ReceiveBuffer {
public:
    /// What came of `receive`.
    struct Result {
        /// 0, or the number of an error: EAGAIN if nothing has arrived, ECONNRESET at the end.
        int error = 0;
        /// Whether the buffer was filled, so that the socket may hold more.
        bool isFull = false;
    };
    /// Takes as much as the socket holds and the buffer has room for. Views of before are no longer valid.
    /// @param wanted the number of unread bytes, those that are there included, for which there must be room.
    Result receive(int socket, std::size_t wanted);

    std::span<const std::uint8_t> unread() const { return std::span(bytes_).subspan(start_, size_); }
    /// Views of what is consumed stay valid until more is received.
    void consume(std::size_t size);

private:
    std::vector<std::uint8_t> bytes_;
    std::size_t start_ = 0;
    std::size_t size_ = 0;
};

}  // namespace zobi::platform::bluez
