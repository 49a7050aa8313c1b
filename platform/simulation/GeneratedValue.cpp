#include "zobi/platform/simulation/GeneratedValue.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <stdexcept>
#include <utility>

#include "platform/simulation/UniformInteger.h"

namespace zobi::platform::simulation {

namespace {

std::vector<std::uint8_t> bigEndian(int number) {
    return {static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number & 0xFF)};
}

void checkBounds(std::uint16_t smallest, std::uint16_t largest) {
    if (largest < smallest) throw std::invalid_argument("the largest value is below the smallest");
}

}  // namespace

GeneratedValue driftingValue(double interval, std::uint16_t smallest, std::uint16_t largest,
                             std::uint16_t step) {
    checkBounds(smallest, largest);
    return {interval, [=, current = (smallest + largest) / 2](std::minstd_rand& random) mutable {
                const int drift = uniformInteger(random, -step, step);
                const int now = std::exchange(current, std::clamp<int>(current + drift, smallest, largest));
                return bigEndian(now);
            }};
}

GeneratedValue swingingValue(double interval, std::uint16_t smallest, std::uint16_t largest, double period) {
    checkBounds(smallest, largest);
    if (!(period > 0)) throw std::invalid_argument("the period of a swing is above 0 s");
    return {interval, [=, time = 0.0](std::minstd_rand& /*random*/) mutable {
                // Not let grow for ever, so that it stays exact.
                const double phase = std::fmod(std::exchange(time, time + interval), period) / period;
                const double swing = (1 + std::sin(2 * std::numbers::pi * phase)) / 2;
                return bigEndian(static_cast<int>(std::lround(smallest + swing * (largest - smallest))));
            }};
}

GeneratedValue pickedValue(double interval, std::vector<std::vector<std::uint8_t>> values) {
    if (values.empty()) throw std::invalid_argument("there is no value to pick");
    return {interval, [values = std::move(values)](std::minstd_rand& random) {
                const int last = static_cast<int>(values.size()) - 1;
                return values[static_cast<std::size_t>(uniformInteger(random, 0, last))];
            }};
}

}  // namespace zobi::platform::simulation
