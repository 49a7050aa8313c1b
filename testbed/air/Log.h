#pragma once

#include <chrono>
#include <iostream>

namespace air {

using Clock = std::chrono::steady_clock;
using Time = Clock::time_point;

/// Writes a line at once.
template <typename... Parts>
void log(const Parts&... parts) {
    (std::cout << ... << parts) << std::endl;
}

}  // namespace air
