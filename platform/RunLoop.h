#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "zobi/platform/Export.h"
#include "zobi/platform/MainQueue.h"
#include "zobi/platform/NSTimer.h"
#include "zobi/platform/RunLoopSource.h"

namespace zobi::platform {

/// The loop of the main thread: its queue, its timers, and the descriptors that it watches.
///
/// The thread that runs the loop is the main thread: every callback of the library is made there, and the
/// library has no other thread. Two functions are safe elsewhere: `dispatchAsync` in any thread, and `stop`
/// in any thread or signal handler. In a debug build of the platform any other operation on another thread
/// ends the process: see `MainQueue::requireMainThread`.
///
/// A program either calls `run`, or drives the loop from a loop of its own: it waits until `nextDeadline` or
/// until one of `descriptors` is ready, and then calls `processPending`.
///
/// An exception that leaves a task, the action of a timer or the callback of a source leaves `run`, `runFor`
/// or `processPending`. The other tasks, timers and sources remain, and the loop can be run again.
class ZOBI_EXPORT RunLoop : public MainQueue {
public:
    ~RunLoop() override;

    /// Schedules a timer that fires after `seconds` and, if it repeats, every `seconds` from then on. Timers
    /// that are due at the same moment fire in the order in which they were scheduled.
    ///
    /// A repeating timer keeps its phase: firings that were missed are skipped. An interval below 0.0001, or
    /// one that is not a number, is taken as 0.0001.
    ///
    /// The timer owns `userInfo`, which may be null, until it is invalid.
    virtual std::shared_ptr<NSTimer> scheduledTimerWithTimeIntervalActionUserInfoRepeats(
        double seconds, NSTimer::Action action, std::shared_ptr<void> userInfo, bool repeats) = 0;

    /// Schedules a timer that runs `task` once, after `seconds`. The loop owns the timer: keep it only to
    /// invalidate it.
    std::shared_ptr<NSTimer> after(double seconds, std::function<void()> task);

    /// Schedules a timer that runs `task` every `seconds`, first after that time. It runs until it is
    /// invalidated.
    std::shared_ptr<NSTimer> every(double seconds, std::function<void()> task);

    /// Watches a descriptor, for as long as the source is held. While it is ready `ready` is called again and
    /// again, each time in a task of its own. Once the source is released, `ready` is not called any more; it
    /// may release the source itself. Other tasks run in between, and may have read what there was: use a
    /// descriptor that does not block.
    /// @param descriptor stays the caller's, who releases the source before closing it.
    /// @param ready called while the descriptor is ready.
    /// @throws std::logic_error if the loop waits without descriptors.
    [[nodiscard]] virtual std::shared_ptr<RunLoopSource> addSource(RunLoopDescriptor descriptor,
                                                                   std::function<void()> ready) = 0;

    /// Runs until `stop`.
    /// @throws std::logic_error if called from inside a callback of this loop.
    virtual void run() = 0;

    /// Runs for `seconds` of the loop's clock, or until `stop`. Timers that are due exactly at the end still
    /// fire; a task that is queued then may have to wait for the next run. 0 or less runs only what is
    /// pending.
    /// @throws std::logic_error if called from inside a callback of this loop.
    virtual void runFor(double seconds) = 0;

    /// Makes `run` or `runFor` return as soon as the current callback has returned. If neither is running,
    /// the next one returns at once. One call ends one run, even one that an exception ends first.
    virtual void stop() noexcept = 0;

    /// Runs the queued tasks and the timers that are due, without waiting.
    /// @throws std::logic_error if called from inside a callback of this loop.
    virtual void processPending() = 0;

    /// The monotonic time at which `processPending` has work to do. A moment in the past if it has work now;
    /// absent if only a descriptor or another thread can bring work.
    virtual std::optional<std::chrono::nanoseconds> nextDeadline() const = 0;

    /// The descriptors that a foreign loop must poll besides waiting for the deadline: those of the sources
    /// that do not rest, and one that another thread wakes the loop by. They change, for example when a radio
    /// has something to send: get them again after each `processPending`. Empty if the loop waits without
    /// descriptors; then a task that another thread dispatches does not wake a foreign loop.
    virtual std::vector<RunLoopDescriptor> descriptors() const = 0;
};

}  // namespace zobi::platform
