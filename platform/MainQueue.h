#pragma once

#include <functional>

#include "platform/Export.h"

namespace platform {

/// The queue of tasks that run on the main thread.
class ZOK_EXPORT MainQueue {
public:
    virtual ~MainQueue() = default;

    /// Queues `task` to run on the main thread, after the work that is going on there and the tasks queued
    /// before it. Never runs it from inside the call. Safe from any thread.
    virtual void dispatchAsync(std::function<void()> task) = 0;
};

}  // namespace platform
