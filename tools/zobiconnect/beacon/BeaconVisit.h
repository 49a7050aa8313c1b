#pragma once

#include <functional>
#include <memory>
#include <string>

#include "tools/zobiconnect/beacon/BeaconClient.h"
#include "tools/zobiconnect/beacon/BeaconOptions.h"
#include "tools/zobiconnect/terminal/Console.h"
#include "tools/zobiconnect/terminal/StopOnSignal.h"
#include "zobi/platform/RunLoop.h"

namespace zobi::tool {

/// A moment of a run loop's time, at which the loop is stopped.
class Deadline {
public:
    Deadline(platform::RunLoop& runLoop, double seconds);
    ~Deadline() { timer_->invalidate(); }
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;

    bool hasPassed() const { return !timer_->isValid(); }

private:
    std::shared_ptr<platform::NSTimer> timer_;
};

/// A command's dealings with one beacon: the radio, the client on it, and the time that there is.
///
/// The library answers by callbacks, and does not tell of requests that fail. So the visit runs the loop
/// until what it waits for has come, or until its time is over.
class BeaconVisit {
public:
    /// Installs the process's platform, and starts the client.
    explicit BeaconVisit(const BeaconOptions& options);

    BeaconClient& client() { return *client_; }
    platform::Platform& platform() { return platform_; }
    const Deadline& deadline() const { return deadline_; }

    /// Carries out a command's task, and ends the link, whatever comes of the task.
    /// @throws Failure when the link does not end; and what the task throws.
    void carryOut(const std::function<void()>& task);

    /// Runs the loop until the condition holds. False when first the deadline, if there is one, passes, or a
    /// signal comes.
    bool runUntil(const std::function<bool()>& condition, const Deadline* deadline);

    /// Waits for the connection.
    /// @throws Failure as `await` does.
    void connect();

    /// @throws Failure when the characteristic was not found, or the link is down: the library would do
    ///     nothing and say nothing.
    void require(const platform::CBUUID& characteristic, const platform::CBUUID& service) const;

    /// Waits until the condition holds.
    /// @param doing what the user is told in the meantime.
    /// @throws Failure when time is over, when interrupted, when the attempt to connect has failed, and when
    ///     the link has ended.
    void await(const std::string& doing, const std::function<bool()>& condition);

    /// The same, but false when time is over.
    bool awaitInTime(const std::string& doing, const std::function<bool()>& condition);

    /// Why there is no connection, though time is over or a signal has come.
    std::string whyNotConnected() const;

private:
    void disconnect();

    double timeout_;
    Radio radio_;
    platform::Platform& platform_;
    StopOnSignal stopOnSignal_;
    Deadline deadline_;
    std::shared_ptr<BeaconClient> client_;
    bool wasInterrupted_ = false;
};

}  // namespace zobi::tool
