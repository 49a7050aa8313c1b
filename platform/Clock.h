#pragma once

#include <chrono>
#include <cstdint>

#include "platform/Export.h"

namespace platform {

/// What time it is. Safe to read from any thread.
class ZOK_EXPORT Clock {
public:
    virtual ~Clock() = default;

    /// Wall-clock time: seconds since 1970-01-01 UTC with their fraction. Time stamps are made from it; it
    /// may be set forward and back.
    virtual double timeIntervalSince1970() const = 0;

    /// The same in whole seconds, truncated toward zero: a time stamp. A clock that has them for less
    /// overrides it.
    virtual std::int64_t secondsSince1970() const {
        return static_cast<std::int64_t>(timeIntervalSince1970());
    }

    /// Time since a fixed moment of the past. Never goes back; timers run on it.
    virtual std::chrono::nanoseconds monotonicTime() const = 0;
};

}  // namespace platform
