#pragma once

#include <atomic>
#include <cstdint>

#include "platform/Clock.h"
#include "platform/Export.h"

namespace platform {

/// The machine's clocks.
class ZOK_EXPORT SystemTime final : public Clock {
public:
    double timeIntervalSince1970() const override;
    std::int64_t secondsSince1970() const override;
    std::chrono::nanoseconds monotonicTime() const override;
};

/// Time that stands still while there is work and then jumps to the next event: hours pass in a moment, and
/// every run is the same. Its monotonic time starts at 0.
class ZOK_EXPORT VirtualTime final : public Clock {
public:
    /// Where the wall clock stands at first: 2024-01-01 00:00:00 UTC.
    static constexpr double defaultStart = 1'704'067'200;

    double timeIntervalSince1970() const override;
    std::chrono::nanoseconds monotonicTime() const override;

    /// Moves the time forward to `moment`; what has passed stays passed. The run loop calls it.
    void jumpTo(std::chrono::nanoseconds moment);

    /// Sets the wall clock, forward or back; the monotonic time does not change.
    void setTimeIntervalSince1970(double seconds);

private:
    // Atomic because clocks may be read from any thread.
    std::atomic<std::chrono::nanoseconds> monotonicTime_{std::chrono::nanoseconds::zero()};
    std::atomic<double> wallTimeAtStart_{defaultStart};
};

}  // namespace platform
