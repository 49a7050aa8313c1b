#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

#include "platform/bluez/RadioContext.h"
#include "platform/bluez/central/HeardDevice.h"
#include "zobi/platform/NSTimer.h"

namespace zobi::platform::bluez {

/// A device that an application wants to connect to.
class WantedDevice {
public:
    virtual ~WantedDevice() = default;

    virtual const HeardDevice& heard() const = 0;
    /// Its turn has begun: it is to be connected now.
    virtual void turnDidBegin() = 0;
    /// Its turn ends without a link, and it does not wait any more. It gives the attempt up, and tells that
    /// by `ConnectionAttempts::attemptWasGivenUp` when it is done.
    virtual void turnEnds() = 0;
};

/// Which devices wait for a connection, and whose turn it is.
///
/// BlueZ connects to one device at a time, tries for 40 seconds if the device is away, and scans badly
/// meanwhile. So a device gets a turn of 3.5 s, with discovery paused for 4 s at most, and only after it was
/// heard. The next turn goes to the device that was heard and has waited longest. While another program keeps
/// discovery on, which cannot be paused, a turn may take 12 s. Main thread only.
class ConnectionAttempts final : public std::enable_shared_from_this<ConnectionAttempts> {
public:
    /// @param pauseDiscovery pauses discovery and calls what it is given when that is done.
    /// @param isDiscovering whether others keep discovery on while it is paused here.
    /// @param onChange called when a device begins or ceases to wait, or a turn has ended.
    ConnectionAttempts(std::shared_ptr<const RadioContext> context,
                       std::function<void(std::function<void()>)> pauseDiscovery,
                       std::function<bool()> isDiscovering, std::function<void()> onChange)
        : context_(std::move(context)),
          pauseDiscovery_(std::move(pauseDiscovery)),
          isDiscovering_(std::move(isDiscovering)),
          onChange_(std::move(onChange)) {}

    /// The device waits for a turn.
    void add(const std::shared_ptr<WantedDevice>& device);
    /// A device was heard: it may be its turn.
    void deviceWasHeard();
    /// The device does not wait any more, and if it was its turn, that is over.
    void remove(const WantedDevice& device);
    /// The same, but as the attempt is being given up, discovery pauses for another moment: until
    /// `attemptWasGivenUp`, for half a second at most. BlueZ puts a scan off by 5 s if an attempt fails after
    /// the scan was asked for.
    void giveUp(const WantedDevice& device);
    void attemptWasGivenUp(const WantedDevice& device);
    void clear();

    /// Those that wait, in the order of their turns.
    const std::vector<std::shared_ptr<WantedDevice>>& waiting() const { return waiting_; }
    bool isAttempting() const { return current_ != nullptr; }

private:
    std::chrono::nanoseconds now() const { return context_->clock.monotonicTime(); }
    bool wasJustHeard(const WantedDevice& device) const;
    void beginNext();
    void checkTurnIn(std::chrono::nanoseconds delay);
    void endTurnInTime();
    void waitForEnd();
    void endTurn();

    std::shared_ptr<const RadioContext> context_;
    std::function<void(std::function<void()>)> pauseDiscovery_;
    std::function<bool()> isDiscovering_;
    std::function<void()> onChange_;
    // In the order of their turns.
    std::vector<std::shared_ptr<WantedDevice>> waiting_;
    std::shared_ptr<WantedDevice> current_;
    /// The attempt of the current one is being given up.
    bool isGivingUp_ = false;
    std::chrono::nanoseconds turnBegan_{};
    // After a turn, discovery gets as much time as the turn took.
    std::chrono::nanoseconds quietUntil_{};
    std::shared_ptr<NSTimer> deadline_;
    std::shared_ptr<NSTimer> quietTimer_;
};

}  // namespace zobi::platform::bluez
