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

/// Waits in `poll`, on a descriptor of its own that `wake` makes readable: for POSIX systems, and for driving
/// the loop from a foreign one.
class ZOK_EXPORT PollWaiting final : public Waiting {
public:
    /// @throws std::system_error when the process has no descriptor left.
    PollWaiting();
    ~PollWaiting() override;
    PollWaiting(const PollWaiting&) = delete;
    PollWaiting& operator=(const PollWaiting&) = delete;

    void wait(std::optional<std::chrono::nanoseconds> timeout) override;
    void wake() override;
    void wakeFromSignal() noexcept override;
    std::vector<RunLoopDescriptor> descriptors() const override;

private:
    int readEnd_ = -1;
    int writeEnd_ = -1;
};

}  // namespace platform
