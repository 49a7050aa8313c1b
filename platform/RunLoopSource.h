#pragma once

#include <chrono>
#include <optional>

#include "zobi/platform/Export.h"

namespace zobi::platform {

/// A file descriptor that a run loop polls, and the events that it polls for.
struct RunLoopDescriptor {
    /// The descriptor.
    int fd;
    /// The events, as in `pollfd`: POLLIN, POLLOUT or both. An error, a hang-up, and a descriptor that is not
    /// open are always among them.
    short events;
};

/// A descriptor that a run loop watches, made by `RunLoop::addSource`. It is watched for as long as somebody
/// holds the source. Main thread only.
class ZOBI_EXPORT RunLoopSource {
public:
    virtual ~RunLoopSource();

    /// Watches for other events from now on.
    /// @param events as in `RunLoopDescriptor`.
    virtual void setEvents(short events) = 0;

    /// Leaves the descriptor unwatched for some time, so that what arrives gathers and the loop wakes less
    /// often. The loop, a foreign one too, wakes at the end of the rest; `ready` may then be called though
    /// nothing has arrived.
    /// @param moment the end of the rest, in the loop's monotonic time; nothing to watch at once.
    virtual void restUntil(std::optional<std::chrono::nanoseconds> moment) = 0;
};

}  // namespace zobi::platform
