#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

#include "platform/bluez/RadioContext.h"
#include "zobi/platform/NSTimer.h"

namespace zobi::platform::bluez {

class BlueZPeripheral;

/// Who waits for a connection, and whose turn it is.
///
/// The service can try for one device at a time, tries for 40 seconds if the device is away, and hears
/// nothing else meanwhile. So an attempt is made only for a device that was heard just now, with discovery
/// paused, and is given up after 4 s; the device then waits until it is heard again, and whoever has waited
/// longest for a turn comes first. While another program keeps discovery on, nothing is silent and a turn may
/// take 12 s. Main thread only.
class ConnectionAttempts final : public std::enable_shared_from_this<ConnectionAttempts> {
public:
    /// @param pauseDiscovery pauses discovery and calls what it is given when that is done.
    /// @param isDiscovering whether others keep discovery on while it is paused here.
    /// @param onChange called when someone waits, or none does, or an attempt is over.
    ConnectionAttempts(std::shared_ptr<const RadioContext> context,
                       std::function<void(std::function<void()>)> pauseDiscovery,
                       std::function<bool()> isDiscovering, std::function<void()> onChange)
        : context_(std::move(context)),
          pauseDiscovery_(std::move(pauseDiscovery)),
          isDiscovering_(std::move(isDiscovering)),
          onChange_(std::move(onChange)) {}

    /// Waits for a turn, in which `takeTurn` is called.
    void add(const std::shared_ptr<BlueZPeripheral>& peripheral);
    /// The device was heard.
    void heard(BlueZPeripheral& peripheral);
    /// No longer waits, and if it was its turn, that is over.
    void remove(const BlueZPeripheral& peripheral);
    void clear();

    bool isWaited() const { return !waiting_.empty(); }
    /// Those that wait, in the order of their turns.
    const std::vector<std::shared_ptr<BlueZPeripheral>>& waiting() const { return waiting_; }
    bool isAttempting() const { return current_ != nullptr; }

private:
    std::chrono::nanoseconds now() const { return context_->clock.monotonicTime(); }
    bool wasJustHeard(const BlueZPeripheral& peripheral) const;
    void beginNext();
    void timeTurn();
    void endTurnInTime();
    void endTurn();

    std::shared_ptr<const RadioContext> context_;
    std::function<void(std::function<void()>)> pauseDiscovery_;
    std::function<bool()> isDiscovering_;
    std::function<void()> onChange_;
    // In the order of their turns.
    std::vector<std::shared_ptr<BlueZPeripheral>> waiting_;
    std::shared_ptr<BlueZPeripheral> current_;
    std::chrono::nanoseconds turnBegan_{};
    // Discovery has the time back that the last turn took.
    std::chrono::nanoseconds quietUntil_{};
    std::shared_ptr<NSTimer> deadline_;
    std::shared_ptr<NSTimer> quietTimer_;
};

}  // namespace zobi::platform::bluez
