#pragma once

#include <chrono>

#include "platform/Export.h"
#include "platform/RunLoop.h"

namespace platform {

/// What `PollWaiting` waits for besides `wake`: a socket of a radio, for example. Main thread only.
class ZOK_EXPORT PollSource {
public:
    virtual ~PollSource() = default;

    /// What to wait for; asked before each wait. A negative descriptor is passed over.
    virtual RunLoopDescriptor descriptor() const = 0;

    /// For how long a wait shall pass the source over, so that work gathers and the loop wakes less often.
    /// A wait that only looks passes nothing over.
    virtual std::chrono::nanoseconds rest() const { return std::chrono::nanoseconds::zero(); }

    /// The descriptor is ready. Called from inside the wait, so it does no work but queues a task, from which
    /// exceptions have their usual way out.
    virtual void becomeReady() = 0;
};

}  // namespace platform
