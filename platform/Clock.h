#pragma once

#include <chrono>
#include <cstdint>

#include "zobi/platform/Export.h"

namespace zobi::platform {

/// The wall clock and the monotonic clock. Safe to read from any thread.
class ZOBI_EXPORT Clock {
public:
    virtual ~Clock();

    /// The wall-clock time: seconds since 1970-01-01 UTC, with a fraction. It may be set forward and back.
    /// Time stamps are taken from it.
    virtual double timeIntervalSince1970() const = 0;

    /// The same in whole seconds, truncated toward zero, for a time stamp. A clock that can get it faster
    /// overrides it.
    virtual std::int64_t secondsSince1970() const {
        return static_cast<std::int64_t>(timeIntervalSince1970());
    }

    /// The time since some fixed moment in the past. It never goes back. Timers run on it.
    virtual std::chrono::nanoseconds monotonicTime() const = 0;
};

}  // namespace zobi::platform
