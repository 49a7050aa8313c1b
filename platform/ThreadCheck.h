#pragma once

#include "zobi/platform/MainQueue.h"

namespace zobi::platform {

/// Called first in each operation that is for the main thread alone: see `MainQueue::requireMainThread`.
/// Costs nothing in a release build.
inline void checkThread([[maybe_unused]] const MainQueue& queue,
                        [[maybe_unused]] const char* operation = __builtin_FUNCTION()) {
#ifndef NDEBUG
    queue.requireMainThread(operation);
#endif
}

}  // namespace zobi::platform
