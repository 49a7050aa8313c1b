#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/bluez/central/DiscoveryWatchdog.h"
#include "platform/bluez/service/BlueZService.h"
#include "zobi/platform/CBUUID.h"
#include "zobi/platform/NSTimer.h"

namespace zobi::platform::bluez {

/// Brings the discovery of BlueZ to the state that this client wants: on or off, and with which filter; and
/// has a watchdog for it. It makes one call at a time. One that fails is made again after 0.5 s, and later
/// and later while it fails in the same way. One that is not answered is made again only if BlueZ answers
/// another one meanwhile: a service that hangs would carry out each of them when it goes on. Main thread
/// only.
class Discovery final : public std::enable_shared_from_this<Discovery>, private WatchedDiscovery {
public:
    /// @param scanSwitches see `ControllerChannel::scanSwitches`.
    Discovery(std::shared_ptr<const RadioContext> context, std::shared_ptr<BlueZService> service,
              std::function<std::optional<unsigned>()> scanSwitches)
        : context_(std::move(context)),
          service_(std::move(service)),
          scanSwitches_(std::move(scanSwitches)),
          watchdog_(*context_, *this) {}

    /// Starts discovery with this filter. If it is on, it is stopped first, so that all devices are reported
    /// again.
    /// @param services what a device must advertise one of; empty for any.
    void start(const std::vector<CBUUID>& services);
    /// Starts discovery if it is not on with this filter.
    void resume(const std::vector<CBUUID>& services);
    /// Starts it again with the same filter, if it is on or to be on.
    void restart() override;
    void stop();
    /// Stops discovery, and calls `then` when BlueZ has done so, or does not answer in time.
    void stopThen(std::function<void()> then);
    /// Whether it is off, and nothing is asked of BlueZ.
    bool isIdle() const { return !isOn_ && !answered_; }
    /// BlueZ has forgotten it, as it does when the adapter is turned off.
    /// @param hasServiceLeft whether BlueZ has ended, and not in good order.
    void forget(bool hasServiceLeft);
    /// A device was heard, whether it is looked for or not.
    void deviceWasHeard(const Device& device);
    /// BlueZ has signalled whether the adapter scans.
    void scanWasTold() { watchdog_.scanWasTold(); }

private:
    using Answered = void (Discovery::*)(const BusError*);

    bool isServiceHanging() const override { return isProbing_; }
    bool isToldToScan() const override { return service_->isDiscovering(); }
    std::optional<unsigned> scanSwitches() const override { return scanSwitches_(); }
    bool restartPastService() override;

    void advance();
    void setFilter();
    void startDiscovery();
    void stopDiscovery();
    void call(const char* member, const std::function<void(Message&)>& append, double seconds,
              Answered answered);
    void answerIsLate();
    void callIsLost();
    void finishCall(const BusError* error);
    void cancelCall();
    BusError lateness() const { return {"", "the service does not answer " + member_}; }
    void filterWasSet(const BusError* error);
    void started(const BusError* error);
    void stopped(const BusError* error);
    void tellTrouble(const BusError& error);
    void tryAgainLater(const BusError& error);
    void tellStopped();

    std::shared_ptr<const RadioContext> context_;
    std::shared_ptr<BlueZService> service_;
    std::function<std::optional<unsigned>()> scanSwitches_;
    DiscoveryWatchdog watchdog_;
    bool isWanted_ = false;
    bool isOn_ = false;
    /// It is on, and must be stopped and started again.
    bool isStale_ = false;
    bool isFilterSet_ = false;
    bool hasServicesInFilter_ = false;
    /// A device with a list of services was heard since BlueZ came.
    bool hasHeardServices_ = false;
    /// How many of the keys that are not needed BlueZ does not know.
    std::ptrdiff_t unknownKeys_ = 0;
    std::vector<CBUUID> services_;
    std::function<void()> whenStopped_;
    // The call that is to be answered; null for none.
    Answered answered_ = nullptr;
    std::string member_;
    Slot call_;
    Slot probe_;
    bool isProbing_ = false;
    std::shared_ptr<NSTimer> deadline_;
    std::shared_ptr<NSTimer> retry_;
    std::string lastTrouble_;
    double retryDelay_ = 0;
};

}  // namespace zobi::platform::bluez
