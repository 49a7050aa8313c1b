#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/bluez/bus/TimedCall.h"
#include "platform/bluez/service/BlueZService.h"
#include "zobi/platform/CBUUID.h"
#include "zobi/platform/NSTimer.h"

namespace zobi::platform::bluez {

/// Brings the discovery of BlueZ to the state that this client wants: on or off, and with which filter. It
/// makes one call at a time. One that fails, or is not answered within 5 s, is made again after half a
/// second; the deadline of a stop is 1 s, as an attempt to connect waits for it. Main thread only.
class Discovery final : public std::enable_shared_from_this<Discovery> {
public:
    Discovery(std::shared_ptr<const RadioContext> context, std::shared_ptr<BlueZService> service)
        : context_(std::move(context)), service_(std::move(service)) {}

    /// Starts discovery with this filter. If it is on, it is stopped first, so that all devices are reported
    /// again.
    /// @param services what a device must advertise one of; empty for any.
    void start(const std::vector<CBUUID>& services);
    /// Starts discovery if it is not on with this filter.
    void resume(const std::vector<CBUUID>& services);
    /// Starts it again with the same filter, if it is on or to be on.
    void restart();
    void stop();
    /// Stops discovery, and calls `then` when BlueZ has done so, or does not answer in time.
    void stopThen(std::function<void()> then);
    /// BlueZ has forgotten it, as it does when the adapter is turned off.
    void forget();
    /// Whether it is off, and nothing is asked of BlueZ.
    bool isIdle() const { return !isOn_ && !call_.isPending(); }

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
    void tellStopped();

    std::shared_ptr<const RadioContext> context_;
    std::shared_ptr<BlueZService> service_;
    bool isWanted_ = false;
    bool isOn_ = false;
    /// It is on, and must be stopped and started again.
    bool isStale_ = false;
    bool isFilterSet_ = false;
    std::vector<CBUUID> services_;
    std::function<void()> whenStopped_;
    TimedCall call_;
    std::shared_ptr<NSTimer> retry_;
    std::string lastTrouble_;
};

}  // namespace zobi::platform::bluez
