#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <vector>

#include "platform/Export.h"
#include "platform/MainQueue.h"
#include "platform/NSTimer.h"

namespace platform {

/// A file descriptor that a run loop waits on, and the `poll` events it waits for.
struct RunLoopDescriptor {
    int fd;
    short events;
};

/// The main thread's loop: its queue, its timers, and the radio that is driven from them.
///
/// The thread that runs the loop is the main thread, and the only one: every callback of the library is
/// made there. Two calls are safe from elsewhere: `dispatchAsync` from any thread, and `stop` from any
/// thread or signal handler.
///
/// A program either gives the thread to the loop (`run`), or drives it from a loop of its own: it waits
/// until `nextDeadline` or until one of `descriptors` is ready, and then calls `processPending`.
///
/// An exception that leaves a task or an action leaves the call that ran it (`run`, `runFor`,
/// `processPending`). Nothing else is lost, and the loop can be run again.
class ZOK_EXPORT RunLoop : public MainQueue {
public:
    /// Schedules a timer that first fires after `seconds` and, if it repeats, every `seconds` from then on.
    /// Timers due at the same moment fire in the order in which they were scheduled.
    ///
    /// A repeating timer keeps its phase: ticks that were missed are skipped, not made up for. An interval
    /// of zero or less, or one that is not a number, is taken as 0.0001.
    /// @param userInfo kept by the timer until it is invalid; may be null.
    virtual std::shared_ptr<NSTimer> scheduledTimerWithTimeIntervalActionUserInfoRepeats(
        double seconds, NSTimer::Action action, std::shared_ptr<void> userInfo, bool repeats) = 0;

    /// Runs until `stop`.
    /// @throws std::logic_error when called from one of the loop's own callbacks; so do `runFor` and
    ///     `processPending`.
    virtual void run() = 0;

    /// Runs for `seconds` of the loop's time, or until `stop`. Timers that are due at the very end still
    /// fire; tasks that are queued by then run in the next run, if not in this one. What is not above 0 only
    /// runs what is pending.
    virtual void runFor(double seconds) = 0;

    /// Makes `run` or `runFor` return once the current callback has; made beforehand, the next run returns
    /// at once. It counts for one run, even if an exception ends that run first.
    virtual void stop() noexcept = 0;

    /// Runs the queued tasks and the timers that are due, and never waits.
    virtual void processPending() = 0;

    /// The monotonic time at which `processPending` has work to do: a past moment when it has some now, none
    /// when only a descriptor or another thread can bring some.
    virtual std::optional<std::chrono::nanoseconds> nextDeadline() const = 0;

    /// What a foreign loop must watch besides the deadline. It changes as radios come and go and have
    /// something to send, so it is asked for after each `processPending`. Empty if the loop waits without
    /// descriptors: it cannot then wake a foreign loop when another thread dispatches.
    virtual std::vector<RunLoopDescriptor> descriptors() const = 0;
};

}  // namespace platform
