#pragma once

#include <cstdint>
#include <functional>
#include <random>
#include <vector>

#include "zobi/platform/Export.h"

namespace zobi::platform::simulation {

/// A value that changes at an interval while a central is connected.
struct GeneratedValue {
    /// Seconds from one value to the next; above 0. The first is generated when the link comes up.
    double interval;
    /// Makes the next value. It takes all its randomness from the generator that it is called with, the one
    /// of the device, so that every run is the same.
    std::function<std::vector<std::uint8_t>(std::minstd_rand&)> next;
};

/// A number of two bytes, big-endian, that starts halfway between `smallest` and `largest` and changes by a
/// random amount of up to `step` each time: like a temperature.
/// @throws std::invalid_argument if `largest` is below `smallest`.
ZOBI_EXPORT GeneratedValue driftingValue(double interval, std::uint16_t smallest, std::uint16_t largest,
                                         std::uint16_t step);

/// A number of two bytes, big-endian, that follows a sine from `smallest` to `largest` and back in `period`
/// seconds: like an axis of an accelerometer.
/// @throws std::invalid_argument if `largest` is below `smallest`, or `period` is not above 0.
ZOBI_EXPORT GeneratedValue swingingValue(double interval, std::uint16_t smallest, std::uint16_t largest,
                                         double period);

/// One of `values`, at random: like the presses of a button.
/// @throws std::invalid_argument if `values` is empty.
ZOBI_EXPORT GeneratedValue pickedValue(double interval, std::vector<std::vector<std::uint8_t>> values);

}  // namespace zobi::platform::simulation
