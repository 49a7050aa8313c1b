#include "zobi/platform/standard/Waiting.h"

#include <algorithm>

namespace zobi::platform {

Waiting::~Waiting() = default;

namespace {

// A signal handler cannot notify a condition variable, so a wait looks up this often to see whether one came.
constexpr std::chrono::milliseconds longestDeafness{50};

}  // namespace

void ConditionVariableWaiting::wait(std::optional<std::chrono::nanoseconds> timeout,
                                    std::span<WaitedDescriptor> /*descriptors*/) {
    const auto slice = std::min<std::chrono::nanoseconds>(timeout.value_or(longestDeafness), longestDeafness);
    std::unique_lock lock(mutex_);
    if (slice > std::chrono::nanoseconds::zero()) {
        condition_.wait_for(lock, slice, [this] { return isAwake_ || isSignalled_; });
    }
    isAwake_ = false;
    isSignalled_ = false;
}

void ConditionVariableWaiting::wake() {
    {
        const std::lock_guard lock(mutex_);
        isAwake_ = true;
    }
    condition_.notify_one();
}

void ConditionVariableWaiting::wakeFromSignal() noexcept {
    isSignalled_ = true;
}

std::optional<RunLoopDescriptor> ConditionVariableWaiting::wakeDescriptor() const {
    return std::nullopt;
}

}  // namespace zobi::platform
