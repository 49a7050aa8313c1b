#pragma once

#include <cstdint>
#include <functional>
#include <random>
#include <vector>

#include "platform/Export.h"

namespace platform::simulation {

/// A value that changes by itself for as long as a central is connected.
struct GeneratedValue {
    /// Seconds from one value to the next, above 0. The first comes with the link.
    double interval;
    /// Gives the next value; all that is random in it comes from the beacon's own generator.
    std::function<std::vector<std::uint8_t>(std::minstd_rand&)> next;
};

/// Two bytes, big-endian, that start halfway from `smallest` to `largest` and drift from one value to the
/// next by up to `step`: a temperature.
/// @throws std::invalid_argument when `largest` is below `smallest`; so does `swingingValue`.
ZOK_EXPORT GeneratedValue driftingValue(double interval, std::uint16_t smallest, std::uint16_t largest,
                                        std::uint16_t step);

/// Two bytes, big-endian, that swing from `smallest` to `largest` and back once in `period` seconds: an axis
/// of an accelerometer.
ZOK_EXPORT GeneratedValue swingingValue(double interval, std::uint16_t smallest, std::uint16_t largest,
                                        double period);

/// One of `values` at random: presses of a button.
/// @throws std::invalid_argument when there is none.
ZOK_EXPORT GeneratedValue pickedValue(double interval, std::vector<std::vector<std::uint8_t>> values);

}  // namespace platform::simulation
