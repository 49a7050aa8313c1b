#include "zobi/platform/standard/PollWaiting.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <system_error>

namespace zobi::platform {

using std::chrono::nanoseconds;

PollWaiting::PollWaiting() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        throw std::system_error(errno, std::generic_category(), "run loop: no pipe to wait on");
    }
    readEnd_ = ends[0];
    writeEnd_ = ends[1];
}

PollWaiting::~PollWaiting() {
    ::close(readEnd_);
    ::close(writeEnd_);
}

void PollWaiting::wait(std::optional<nanoseconds> timeout, std::span<WaitedDescriptor> descriptors) {
    polled_.assign(1, {readEnd_, POLLIN, 0});
    for (const auto& [descriptor, isReady] : descriptors) {
        polled_.push_back({descriptor.fd, descriptor.events, 0});
    }
    int milliseconds = -1;
    if (timeout) {
        // Rounded up: a wait that ends just before its deadline would be followed by another.
        const auto whole = std::chrono::ceil<std::chrono::milliseconds>(*timeout).count();
        milliseconds = static_cast<int>(std::clamp<decltype(whole)>(whole, 0, INT_MAX));
    }
    if (::poll(polled_.data(), polled_.size(), milliseconds) <= 0) return;
    if (polled_[0].revents != 0) emptyPipe();
    for (std::size_t i = 0; i < descriptors.size(); ++i) {
        descriptors[i].isReady = polled_[i + 1].revents != 0;
    }
}

void PollWaiting::emptyPipe() const {
    std::array<char, 64> bytes{};
    while (::read(readEnd_, bytes.data(), bytes.size()) > 0) {
    }
}

void PollWaiting::wake() {
    wakeFromSignal();
}

void PollWaiting::wakeFromSignal() noexcept {
    const int interruptedErrno = errno;
    // A full pipe has woken the loop already, so nothing is lost when the write fails.
    [[maybe_unused]] const auto written = ::write(writeEnd_, "", 1);
    errno = interruptedErrno;
}

std::optional<RunLoopDescriptor> PollWaiting::wakeDescriptor() const {
    return RunLoopDescriptor{readEnd_, POLLIN};
}

}  // namespace zobi::platform
