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

    /// Makes sure, in a debug build (with `NDEBUG` not defined) of the platform, that the calling thread is
    /// the main thread: otherwise writes the operation's name to stderr and aborts. Does nothing before a
    /// thread has run the queue, and in other builds. Safe from any thread.
    virtual void requireMainThread(const char* /*operation*/) const {}
};

}  // namespace zobi::platform
