#include <atomic>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "zobi/platform/Platform.h"
#include "zobi/platform/standard/StandardPlatform.h"

namespace zobi::platform {

namespace {

// Never destroyed, and reachable to the end, so that leak checkers have nothing to say.
std::atomic<Platform*> currentPlatform = nullptr;

std::mutex currentPlatformMutex;

}  // namespace

Platform& Platform::current() {
    if (Platform* const platform = currentPlatform) return *platform;
    const std::lock_guard lock(currentPlatformMutex);
    if (currentPlatform == nullptr) {
        currentPlatform = std::make_unique<StandardPlatform>(StandardPlatform::Time::real,
                                                             std::make_unique<ConditionVariableWaiting>())
                              .release();
    }
    return *currentPlatform;
}

void Platform::install(std::unique_ptr<Platform> platform) {
    if (!platform) throw std::invalid_argument("Platform::install: no platform was given");
    const std::lock_guard lock(currentPlatformMutex);
    if (currentPlatform != nullptr) {
        throw std::logic_error(
            "Platform::install: a platform is current already; install before the first use");
    }
    currentPlatform = platform.release();
}

}  // namespace zobi::platform
