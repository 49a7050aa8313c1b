#include "zobi/platform/standard/StandardClock.h"

#include <algorithm>

namespace zobi::platform {

namespace {

double inSeconds(std::chrono::nanoseconds time) {
    return std::chrono::duration<double>(time).count();
}

}  // namespace

double SystemTime::timeIntervalSince1970() const {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

std::int64_t SystemTime::secondsSince1970() const {
    const auto time = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::seconds>(time).count();
}

std::chrono::nanoseconds SystemTime::monotonicTime() const {
    return std::chrono::steady_clock::now().time_since_epoch();
}

double VirtualTime::timeIntervalSince1970() const {
    const std::lock_guard lock(mutex_);
    return wallTimeAtStart_ + inSeconds(monotonicTime_);
}

std::chrono::nanoseconds VirtualTime::monotonicTime() const {
    const std::lock_guard lock(mutex_);
    return monotonicTime_;
}

void VirtualTime::jumpTo(std::chrono::nanoseconds moment) {
    const std::lock_guard lock(mutex_);
    monotonicTime_ = std::max(monotonicTime_, moment);
}

void VirtualTime::setTimeIntervalSince1970(double seconds) {
    const std::lock_guard lock(mutex_);
    wallTimeAtStart_ = seconds - inSeconds(monotonicTime_);
}

}  // namespace zobi::platform
