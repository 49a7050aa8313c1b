#pragma once

#include <functional>

#include "zobi/platform/Export.h"

namespace zobi::platform {

/// The queue of tasks that run on the main thread.
class ZOBI_EXPORT MainQueue {
public:
    virtual ~MainQueue();

    /// Queues `task` to run on the main thread, after what runs there now and the tasks queued before it,
    /// never from inside this call. Safe from any thread.
    virtual void dispatchAsync(std::function<void()> task) = 0;
};

}  // namespace zobi::platform
