#pragma once

#include <poll.h>

#include <cerrno>
#include <chrono>

namespace zobi::platform::bluez {

/// The time by which packets of a socket are waited for, however many come before.
class PacketDeadline {
public:
    explicit PacketDeadline(std::chrono::milliseconds time) : end_(Clock::now() + time) {}

    /// Whether there is a packet to be read before that.
    bool awaitPacket(int descriptor) const {
        pollfd arrival{descriptor, POLLIN, 0};
        while (true) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now()).count();
            if (left <= 0) return false;
            const int ready = ::poll(&arrival, 1, static_cast<int>(left));
            if (ready >= 0 || errno != EINTR) return ready > 0;
        }
    }

private:
    using Clock = std::chrono::steady_clock;

    Clock::time_point end_;
};

}  // namespace zobi::platform::bluez
