#pragma once

#include <functional>
#include <memory>

#include "platform/Export.h"

namespace platform {

/// A timer of the run loop, made by `RunLoop::scheduledTimerWithTimeIntervalActionUserInfoRepeats`. Main
/// thread only.
///
/// The run loop owns a scheduled timer, and the timer owns its action and user info; all three are let go
/// when the timer is invalidated, when it has fired and does not repeat, or when its run loop dies.
class ZOK_EXPORT NSTimer {
public:
    /// Called with the timer that fired. It may invalidate the timer.
    using Action = std::function<void(const std::shared_ptr<NSTimer>&)>;

    virtual ~NSTimer() = default;

    /// Keeps the timer from ever firing again. Harmless when repeated.
    virtual void invalidate() = 0;

    /// True until the timer is invalidated, by `invalidate` or by a single firing.
    virtual bool isValid() const = 0;

    /// The interval in seconds, as the run loop took it.
    virtual double timeInterval() const = 0;

    /// What the timer was scheduled with; null once it is invalid.
    virtual std::shared_ptr<void> userInfo() const = 0;
};

}  // namespace platform
