#pragma once

#include <chrono>

#include "zobi/platform/Export.h"
#include "zobi/platform/RunLoop.h"

namespace zobi::platform {

/// A descriptor that `PollWaiting` polls, for example the socket of a radio. Main thread only.
class ZOBI_EXPORT PollSource {
public:
    virtual ~PollSource();

    /// The descriptor and the events to poll for. Called before each wait. A negative descriptor is not
    /// polled.
    virtual RunLoopDescriptor descriptor() const = 0;

    /// How long to leave the descriptor unpolled so that work batches and the loop wakes less often; 0 to
    /// poll it at once. Ignored by zero-timeout polls.
    virtual std::chrono::nanoseconds batchingDelay() const { return std::chrono::nanoseconds::zero(); }

    /// The descriptor is ready. Called from inside the wait: it must only queue a task, whose exceptions can
    /// leave the run loop.
    virtual void handleReady() = 0;
};

}  // namespace zobi::platform
