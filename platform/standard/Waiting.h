#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <vector>

#include "platform/Export.h"
#include "platform/RunLoop.h"

namespace platform {

/// How a run loop waits when it has nothing to do.
class ZOK_EXPORT Waiting {
public:
    virtual ~Waiting() = default;

    /// Waits until `wake` was called since the last wait, a descriptor is ready, or `timeout` has passed
    /// (none: no limit; zero: only looks). It may return earlier. Main thread only.
    virtual void wait(std::optional<std::chrono::nanoseconds> timeout) = 0;

    /// Ends the wait that is going on, or else the next one. Safe from any thread.
    virtual void wake() = 0;

    /// Like `wake`, and safe from a signal handler too.
    virtual void wakeFromSignal() noexcept = 0;

    /// What a foreign loop must watch in place of `wait`.
    virtual std::vector<RunLoopDescriptor> descriptors() const = 0;
};

/// Waits on a condition variable: needs nothing but the C++ standard library.
///
/// A signal handler cannot notify a condition variable, so a waiting loop looks up 20 times a second, and a
/// `stop` may take up to 50 ms to end a wait. `PollWaiting` has neither cost.
class ZOK_EXPORT ConditionVariableWaiting final : public Waiting {
public:
    void wait(std::optional<std::chrono::nanoseconds> timeout) override;
    void wake() override;
    void wakeFromSignal() noexcept override;
    std::vector<RunLoopDescriptor> descriptors() const override;

private:
    std::mutex mutex_;
    std::condition_variable condition_;
    bool isAwake_ = false;
    std::atomic<bool> isSignalled_ = false;
};

}  // namespace platform
