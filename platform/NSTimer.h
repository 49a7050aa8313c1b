#pragma once

#include <functional>
#include <memory>

#include "zobi/platform/Export.h"

namespace zobi::platform {

/// A timer of a run loop, made by `RunLoop::scheduledTimerWithTimeIntervalActionUserInfoRepeats`, `after` or
/// `every`. Main thread only.
///
/// The run loop owns a scheduled timer, and the timer owns its action and its user info. All three are
/// released when the timer is invalidated, when it has fired and does not repeat, or when the run loop is
/// destroyed.
class ZOBI_EXPORT NSTimer {
public:
    /// Called with the timer that fired. It may invalidate the timer.
    using Action = std::function<void(const std::shared_ptr<NSTimer>&)>;

    virtual ~NSTimer();

    /// Stops the timer for good. Does nothing if it is invalid already.
    virtual void invalidate() = 0;

    /// True until `invalidate` or, if it does not repeat, until its action has returned.
    virtual bool isValid() const = 0;

    /// The interval in seconds, at least 0.0001.
    virtual double timeInterval() const = 0;

    /// The object with which the timer was scheduled; null once the timer is invalid.
    virtual std::shared_ptr<void> userInfo() const = 0;
};

}  // namespace zobi::platform
