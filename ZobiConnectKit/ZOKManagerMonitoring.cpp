// Starting, stopping and restarting the scan; foreground and background.

#include <array>
#include <utility>

#include "ZobiConnectKit/ZobiConnectKit.h"
#include "platform/ThreadCheck.h"

using zobi::platform::NSTimer;

namespace {

constexpr double reportInterval = 1.0;
constexpr double expiryCheckInterval = 10.0;
constexpr double scanRestartInterval = 30.0;
constexpr std::string_view beaconService = "1320";

void invalidateIfSet(const std::shared_ptr<NSTimer>& timer) {
    if (timer) timer->invalidate();
}

}  // namespace

bool ZOKManager::isApplicationActive() const {
    return platform_.application().applicationState() == zobi::platform::UIApplicationState::active;
}

void ZOKManager::startMonitoring() {
    zobi::platform::checkThread(platform_.runLoop());
    platform_.log().log("StartMonitoring with active: %@", isApplicationActive());
    invalidateIfSet(updateRangedBeaconsTimer_);
    updateRangedBeaconsTimer_ = platform_.runLoop().scheduledTimerWithTimeIntervalActionUserInfoRepeats(
        reportInterval,
        [self = shared_from_this()](const auto& timer) { self->updateRangedBeaconsTimerFired(timer); },
        nullptr, true);
    invalidateIfSet(checkRangedBeaconsTimer_);
    checkRangedBeaconsTimer_ = platform_.runLoop().scheduledTimerWithTimeIntervalActionUserInfoRepeats(
        expiryCheckInterval,
        [self = shared_from_this()](const auto& timer) { self->checkRangedBeaconsTimerFired(timer); },
        nullptr, true);
    startMonitoringWithAllowDuplicate(isApplicationActive());
}

void ZOKManager::startMonitoringWithAllowDuplicate(bool allowDuplicate) {
    zobi::platform::checkThread(platform_.runLoop());
    if (monitoring_) {
        platform_.log().log("Already monitoring, returning");
        return;
    }
    if (!centralManager_ || centralManager_->state() != zobi::platform::CBManagerState::poweredOn) {
        platform_.log().log("CentralManagerState is not ON, exiting");
        return;
    }
    invalidateIfSet(updateRestartMonitoringTimer_);
    platform_.log().log("Restarting updateRestartMonitoringTimer");
    updateRestartMonitoringTimer_ = platform_.runLoop().scheduledTimerWithTimeIntervalActionUserInfoRepeats(
        scanRestartInterval,
        [self = shared_from_this()](const auto& timer) { self->updateRestartMonitoringTimer(timer); },
        nullptr, false);
    monitoring_ = true;
    // The scan starts after what is going on now, even if monitoring is stopped before then.
    platform_.runLoop().dispatchAsync(
        [self = shared_from_this(), allowDuplicate, isActive = isApplicationActive()] {
            if (!isActive) {
                self->platform_.log().log(
                    "Starting background monitoring for community scanning with allowDuplicate: %@",
                    allowDuplicate);
            }
            const std::array services{zobi::platform::CBUUID::UUIDWithString(beaconService)};
            if (self->centralManager_) {
                self->centralManager_->scanForPeripheralsWithServicesOptions(
                    services, {.allowDuplicates = allowDuplicate});
            }
        });
}

void ZOKManager::updateRestartMonitoringTimer(const std::shared_ptr<NSTimer>& /*timer*/) {
    if (!isApplicationActive()) return;
    platform_.log().log("---->Restarting Monitoring timer");
    monitoring_ = false;
    if (centralManager_) centralManager_->stopScan();
    startMonitoringWithAllowDuplicate(true);
}

void ZOKManager::stopMonitoring() {
    zobi::platform::checkThread(platform_.runLoop());
    monitoring_ = false;
    platform_.log().log("StopMonitoring");
    if (centralManager_) centralManager_->stopScan();
    invalidateIfSet(updateRestartMonitoringTimer_);
    invalidateIfSet(checkRangedBeaconsTimer_);
    invalidateIfSet(updateRangedBeaconsTimer_);
}

void ZOKManager::observeApplication() {
    const auto restart = [self = shared_from_this()](const zobi::platform::NSNotification& /*notification*/) {
        self->restartMonitoringIfRunning();
    };
    zobi::platform::NSNotificationCenter& center = platform_.notificationCenter();
    center.addObserverForNameObjectUsingBlock(zobi::platform::UIApplicationDidBecomeActiveNotification,
                                              nullptr, restart);
    center.addObserverForNameObjectUsingBlock(zobi::platform::UIApplicationDidEnterBackgroundNotification,
                                              nullptr, restart);
}

void ZOKManager::restartMonitoringIfRunning() {
    if (!monitoring_) return;
    stopMonitoring();
    startMonitoring();
}
