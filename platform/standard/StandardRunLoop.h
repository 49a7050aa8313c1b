#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <tuple>

#include "platform/Export.h"
#include "platform/RunLoop.h"
#include "platform/standard/StandardClock.h"
#include "platform/standard/Waiting.h"

namespace platform {

/// The run loop of every platform here. Where its time comes from and how it waits are two independent
/// choices; the queue, the timers and their order are the same with all.
///
/// Each queued task and each timer is a turn of its own: what a turn dispatches runs before the next timer.
/// Under virtual time the loop jumps to the next timer when the queue is empty and a look at the
/// descriptors found nothing.
class ZOK_EXPORT StandardRunLoop final : public RunLoop {
public:
    /// In real time. The clock must outlive the loop.
    StandardRunLoop(const SystemTime& time, std::unique_ptr<Waiting> waiting);
    /// In virtual time, which the loop moves. The clock must outlive the loop.
    StandardRunLoop(VirtualTime& time, std::unique_ptr<Waiting> waiting);
    ~StandardRunLoop() override;
    StandardRunLoop(const StandardRunLoop&) = delete;
    StandardRunLoop& operator=(const StandardRunLoop&) = delete;

    void dispatchAsync(std::function<void()> task) override;
    std::shared_ptr<NSTimer> scheduledTimerWithTimeIntervalActionUserInfoRepeats(
        double seconds, NSTimer::Action action, std::shared_ptr<void> userInfo, bool repeats) override;
    void run() override;
    void runFor(double seconds) override;
    void stop() noexcept override;
    void processPending() override;
    std::optional<std::chrono::nanoseconds> nextDeadline() const override;
    std::vector<RunLoopDescriptor> descriptors() const override;

    /// How many timers are valid.
    std::size_t timerCount() const;

    /// Drops all timers, valid or due, and all queued tasks, and lets go of what they hold.
    void clear();

private:
    class Timer;
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

    void runUntil(std::optional<std::chrono::nanoseconds> end);
    /// Runs what is queued and what is due, and returns the moment by which it was due.
    std::chrono::nanoseconds process(Stopping stopping);
    std::chrono::nanoseconds processUnlessStopped();
    void runQueuedTasks(Stopping stopping);
    bool fireNextTimerDueBy(std::chrono::nanoseconds now);
    bool hasQueuedTasks() const;
    bool mustStop(Stopping stopping) const;

    const Clock& clock_;
    VirtualTime* virtualTime_ = nullptr;
    std::unique_ptr<Waiting> waiting_;
    std::shared_ptr<Timers> timers_;
    std::uint64_t timersScheduled_ = 0;
    mutable std::mutex queueMutex_;
    std::deque<std::function<void()>> queue_;
    std::atomic<bool> isStopping_ = false;
    bool isProcessing_ = false;
};

}  // namespace platform
