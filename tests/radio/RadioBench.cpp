#include "RadioBench.h"

#include <chrono>

bool RadioBench::runUntil(zobi::platform::Platform& platform, const std::function<bool()>& condition,
                          double seconds) {
    constexpr double step = 0.01;
    const auto end = platform.clock().monotonicTime() + std::chrono::duration_cast<std::chrono::nanoseconds>(
                                                            std::chrono::duration<double>(seconds));
    while (!condition()) {
        if (platform.clock().monotonicTime() >= end) return false;
        platform.runLoop().runFor(step);
    }
    return true;
}
