#pragma once

#include <algorithm>
#include <cstdint>
#include <random>

namespace zobi::platform::simulation {

/// A random number from `smallest` to `largest`: the same with every standard library, which is free in what
/// its std::uniform_int_distribution makes of a generator.
inline int uniformInteger(std::minstd_rand& random, int smallest, int largest) {
    constexpr auto last = std::minstd_rand::max() - std::minstd_rand::min();
    const auto count = std::minstd_rand::result_type{static_cast<std::uint32_t>(largest) -
                                                     static_cast<std::uint32_t>(smallest)} +
                       1;
    const auto drawsOfEach = std::max<std::minstd_rand::result_type>(last / count, 1);
    auto drawn = last;
    do {
        drawn = random() - std::minstd_rand::min();
    } while (drawn >= drawsOfEach * count);
    return smallest + static_cast<int>(drawn / drawsOfEach);
}

}  // namespace zobi::platform::simulation
