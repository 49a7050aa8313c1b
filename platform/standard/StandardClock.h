#pragma once

#include <cstdint>
#include <mutex>

#include "zobi/platform/Clock.h"
#include "zobi/platform/Export.h"

namespace zobi::platform {

/// The clocks of the machine.
class ZOBI_EXPORT SystemTime final : public Clock {
public:
    double timeIntervalSince1970() const override;
    std::int64_t secondsSince1970() const override;
    std::chrono::nanoseconds monotonicTime() const override;
};

/// A virtual clock: it stands still while there is work, and the run loop then moves it to the next timer. So
/// hours pass in a moment, and every run is the same. Its monotonic time starts at 0.
class ZOBI_EXPORT VirtualTime final : public Clock {
public:
    /// The wall-clock time at the start: 2024-01-01 00:00:00 UTC, in seconds since 1970-01-01 UTC.
    static constexpr double defaultStart = 1'704'067'200;

    double timeIntervalSince1970() const override;
    std::chrono::nanoseconds monotonicTime() const override;

    /// Moves the monotonic time, and the wall clock with it, forward to `moment`; never back. The run loop
    /// calls it.
    void jumpTo(std::chrono::nanoseconds moment);

    /// Sets the wall clock, forward or back, to `seconds` since 1970-01-01 UTC. The monotonic time does not
    /// change.
    void setTimeIntervalSince1970(double seconds);

private:
    // Clocks may be read from any thread. Older ARM has no atomics of 8 bytes, hence a mutex.
    mutable std::mutex mutex_;
    std::chrono::nanoseconds monotonicTime_ = std::chrono::nanoseconds::zero();
    double wallTimeAtStart_ = defaultStart;
};

}  // namespace zobi::platform
