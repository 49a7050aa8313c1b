#include "zobi/platform/RunLoop.h"

#include <utility>

namespace zobi::platform {

std::shared_ptr<NSTimer> RunLoop::after(double seconds, std::function<void()> task) {
    return scheduledTimerWithTimeIntervalActionUserInfoRepeats(
        seconds, [task = std::move(task)](const auto& /*timer*/) { task(); }, nullptr, false);
}

std::shared_ptr<NSTimer> RunLoop::every(double seconds, std::function<void()> task) {
    return scheduledTimerWithTimeIntervalActionUserInfoRepeats(
        seconds, [task = std::move(task)](const auto& /*timer*/) { task(); }, nullptr, true);
}

}  // namespace zobi::platform
