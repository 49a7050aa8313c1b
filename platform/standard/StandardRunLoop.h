#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <tuple>
#include <vector>

#include "zobi/platform/Export.h"
#include "zobi/platform/RunLoop.h"
#include "zobi/platform/standard/StandardClock.h"
#include "zobi/platform/standard/Waiting.h"

namespace zobi::platform {

/// The run loop of every `StandardPlatform`. Its clock and its way to wait are independent choices; they do
/// not change the order of tasks and timers.
///
/// After each timer the loop runs the queued tasks, so what a task or timer dispatches runs before the next
/// timer. A descriptor that is ready queues its callback when the loop polls, which it does whenever it has
/// run what was due. Under virtual time the loop moves the clock to the next timer, or the next end of a
/// rest, when the queue is empty and no descriptor is ready.
class ZOBI_EXPORT StandardRunLoop final : public RunLoop {
public:
    /// A loop in real time. The clock must outlive it.
    StandardRunLoop(const SystemTime& time, std::unique_ptr<Waiting> waiting);
    /// A loop in virtual time, which it moves. The clock must outlive it.
    StandardRunLoop(VirtualTime& time, std::unique_ptr<Waiting> waiting);
    ~StandardRunLoop() override;
    StandardRunLoop(const StandardRunLoop&) = delete;
    StandardRunLoop& operator=(const StandardRunLoop&) = delete;

    void dispatchAsync(std::function<void()> task) override;
    void requireMainThread(const char* operation) const override;
    std::shared_ptr<NSTimer> scheduledTimerWithTimeIntervalActionUserInfoRepeats(
        double seconds, NSTimer::Action action, std::shared_ptr<void> userInfo, bool repeats) override;
    [[nodiscard]] std::shared_ptr<RunLoopSource> addSource(RunLoopDescriptor descriptor,
                                                           std::function<void()> ready) override;
    void run() override;
    void runFor(double seconds) override;
    void stop() noexcept override;
    void processPending() override;
    std::optional<std::chrono::nanoseconds> nextDeadline() const override;
    std::vector<RunLoopDescriptor> descriptors() const override;

    /// @throws std::logic_error if called from inside a callback of this loop.
    void requireOutsideCallbacks() const;

    /// The number of valid timers.
    std::size_t timerCount() const;

    /// Invalidates all timers and removes all queued tasks, and destroys what they own. Sources stay with who
    /// holds them.
    void clear();

private:
    class Timer;
    class Source;
    struct Watch;
    struct TimerKey {
        std::chrono::nanoseconds deadline;
        std::uint64_t orderOfScheduling;

        friend bool operator<(const TimerKey& left, const TimerKey& right) {
            return std::tie(left.deadline, left.orderOfScheduling) <
                   std::tie(right.deadline, right.orderOfScheduling);
        }
    };
    // Shared with the timers, which may outlive the loop.
    using Timers = std::map<TimerKey, std::shared_ptr<Timer>>;

    enum class Stopping { obeyed, ignored };

    /// Waits for the sources too, and queues the callbacks of those that are ready.
    void wait(std::optional<std::chrono::nanoseconds> timeout);
    void runUntil(std::optional<std::chrono::nanoseconds> end);
    /// Runs the queued tasks and the timers that are due now, and returns that moment.
    std::chrono::nanoseconds process(Stopping stopping);
    std::chrono::nanoseconds processUnlessStopped();
    void runQueuedTasks(Stopping stopping);
    bool fireNextTimerDueBy(std::chrono::nanoseconds now);
    bool hasQueuedTasks() const;
    bool mustStop(Stopping stopping) const;

    const Clock& clock_;
    VirtualTime* virtualTime_ = nullptr;
    // Shared with the sources, which may outlive the loop.
    std::shared_ptr<Watch> watch_;
    std::shared_ptr<Timers> timers_;
    std::uint64_t timersScheduled_ = 0;
    std::vector<std::weak_ptr<Source>> sources_;
    // For each source. Kept, so that a wait allocates nothing.
    std::vector<WaitedDescriptor> waited_;
    mutable std::mutex queueMutex_;
    std::deque<std::function<void()>> queue_;
    std::atomic<bool> isStopping_ = false;
};

}  // namespace zobi::platform
