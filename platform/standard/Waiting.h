#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <span>

#include "zobi/platform/Export.h"
#include "zobi/platform/RunLoopSource.h"

namespace zobi::platform {

/// A descriptor that a wait looks at.
struct WaitedDescriptor {
    /// What to wait for. A negative descriptor is passed over.
    RunLoopDescriptor descriptor{-1, 0};
    /// Whether the wait found it ready. False before.
    bool isReady = false;
};

/// The way in which a run loop waits when it has nothing to do.
class ZOBI_EXPORT Waiting {
public:
    virtual ~Waiting();

    /// Waits until `wake` was called since the last wait, a descriptor is ready, or `timeout` has passed. It
    /// may return earlier. Main thread only.
    /// @param timeout absent to wait without a limit; zero only to poll.
    /// @param descriptors empty if there is no `wakeDescriptor`.
    virtual void wait(std::optional<std::chrono::nanoseconds> timeout,
                      std::span<WaitedDescriptor> descriptors) = 0;

    /// Ends the current wait or, if there is none, the next one. Safe from any thread.
    virtual void wake() = 0;

    /// The same as `wake`, also safe from a signal handler.
    virtual void wakeFromSignal() noexcept = 0;

    /// The descriptor that `wake` makes ready, for a foreign loop. Nothing if this way waits without
    /// descriptors.
    virtual std::optional<RunLoopDescriptor> wakeDescriptor() const = 0;
};

/// Waits on a condition variable. It needs only the C++ standard library, and has no descriptors.
///
/// A signal handler cannot notify a condition variable. So a waiting loop wakes 20 times a second, and `stop`
/// may take up to 50 ms to end a wait. `PollWaiting` has neither cost.
class ZOBI_EXPORT ConditionVariableWaiting final : public Waiting {
public:
    void wait(std::optional<std::chrono::nanoseconds> timeout,
              std::span<WaitedDescriptor> descriptors) override;
    void wake() override;
    void wakeFromSignal() noexcept override;
    std::optional<RunLoopDescriptor> wakeDescriptor() const override;

private:
    std::mutex mutex_;
    std::condition_variable condition_;
    bool isAwake_ = false;
    std::atomic<bool> isSignalled_ = false;
};

}  // namespace zobi::platform
