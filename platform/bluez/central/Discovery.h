#pragma once

#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "platform/bluez/bus/TimedCall.h"
#include "platform/bluez/service/BlueZService.h"
#include "zobi/platform/CBUUID.h"
#include "zobi/platform/NSTimer.h"

namespace zobi::platform::bluez {

/// The service's discovery, as this client wants it: on or off, and with which filter. It brings the service
/// there, one call after the other, and tries again, each half second, what fails or is not answered within
/// 5 s; a stop, for which an attempt to connect waits, within 1 s. Main thread only.
class Discovery final : public std::enable_shared_from_this<Discovery> {
public:
    Discovery(std::shared_ptr<const RadioContext> context, std::shared_ptr<BlueZService> service)
        : context_(std::move(context)), service_(std::move(service)) {}

    /// Discovers, anew if it was on already: everybody is heard again.
    /// @param services what a device must advertise one of; empty for any.
    void begin(const std::vector<CBUUID>& services);
    /// The same if it is not on.
    void goOn(const std::vector<CBUUID>& services);
    /// Discovers anew with the same filter, if it is wanted.
    void restart();
    void end();
    /// Ends, and calls `then` when the service has, or does not answer in time.
    void endThen(std::function<void()> then);
    /// The service has forgotten it, as it does when the adapter is turned off.
    void forget();

private:
    void advance();
    void setFilter();
    void startDiscovery();
    void stopDiscovery();
    void call(const char* member, const std::function<void(Message&)>& append, double seconds,
              void (Discovery::*answered)(const BusError*));
    void filterWasSet(const BusError* error);
    void started(const BusError* error);
    void stopped(const BusError* error);
    void tryAgainLater(const BusError& error);
    void tellEnded();

    std::shared_ptr<const RadioContext> context_;
    std::shared_ptr<BlueZService> service_;
    bool isWanted_ = false;
    bool isOn_ = false;
    /// It is on, but to be begun anew.
    bool isStale_ = false;
    bool isFilterSet_ = false;
    std::vector<CBUUID> services_;
    // Not the same at first, as the last filter may have been another process's.
    unsigned threshold_ = std::random_device{}();
    std::function<void()> whenEnded_;
    TimedCall call_;
    std::shared_ptr<NSTimer> retry_;
    std::string lastTrouble_;
};

}  // namespace zobi::platform::bluez
