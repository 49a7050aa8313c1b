#include "tools/zobiconnect/monitor/Monitor.h"

namespace zobi::tool {

Monitor::Monitor(ObservedPlatform& platform, MonitorView& view)
    : platform_(platform), view_(view), start_(platform.clock().monotonicTime()) {}

void Monitor::start() {
    ZOKManager::shared()->setDelegate(weak_from_this());
    platform_.notificationCenter().addObserverForNameObjectUsingBlock(
        platform::RadioConditionDidChangeNotification, nullptr,
        [weakSelf = weak_from_this()](const auto& /*notification*/) {
            if (const auto self = weakSelf.lock()) self->showRadioCondition();
        });
    const auto showApplicationState = [weakSelf = weak_from_this()](const auto& /*notification*/) {
        if (const auto self = weakSelf.lock()) self->view_.applicationStateChanged(self->now());
    };
    // After the manager's own observers: it has taken the change in when it is shown.
    for (const auto name : {platform::UIApplicationDidBecomeActiveNotification,
                            platform::UIApplicationDidEnterBackgroundNotification}) {
        platform_.notificationCenter().addObserverForNameObjectUsingBlock(name, nullptr,
                                                                          showApplicationState);
    }
}

void Monitor::end() {
    ZOKManager::shared()->stopMonitoring();
    const Sightings& sightings = platform_.sightings();
    view_.ended(now(), {.beacons = beaconsSeen_.size(),
                        .reports = reports_,
                        .buttonActions = buttonActions_,
                        .advertisements = sightings.advertisements(),
                        .malformedAdvertisements = sightings.malformedAdvertisements()});
}

void Monitor::showRadioCondition() {
    const platform::RadioCondition condition = platform_.radioCondition();
    // It is posted too when Bluetooth is found usable at first.
    if (condition.advice() == shownAdvice_) return;
    shownAdvice_ = condition.advice();
    view_.radioConditionChanged(now(), condition);
}

void Monitor::zobiConnectManagerDidBluetoothStateChanged(const std::shared_ptr<ZOKManager>& manager,
                                                         int state) {
    bluetoothState_ = state;
    if (state == static_cast<int>(platform::CBManagerState::poweredOn)) hasBeenPoweredOn_ = true;
    view_.bluetoothStateChanged(now());
    monitorIfPoweredOn(*manager, state);
}

void Monitor::zobiConnectManagerDidRangeBeacon(const std::shared_ptr<ZOKManager>& /*manager*/,
                                               const std::vector<std::shared_ptr<ZOKBeacon>>& beacons) {
    ++reports_;
    for (const auto& beacon : beacons) beaconsSeen_.insert(identityOf(*beacon));
    platform_.sightings().keepOnly(beacons);
    view_.beaconsRanged(now(), beacons, platform_.sightings());
}

void Monitor::zobiConnectManagerDidButtonActionChangedForBeacon(
    const std::shared_ptr<ZOKManager>& /*manager*/, int action, const std::shared_ptr<ZOKBeacon>& beacon) {
    ++buttonActions_;
    // Over a connection it may come from a beacon that is not live.
    if (!beacon) return;
    const Moment moment = now();
    platform_.sightings().noteButton(*beacon, {action, moment.time});
    view_.buttonUsed(moment, action, *beacon);
}

Moment Monitor::now() const {
    const auto monotonicTime = platform_.clock().monotonicTime();
    const std::chrono::duration<double> elapsed = monotonicTime - start_;
    return {platform_.clock().timeIntervalSince1970(), monotonicTime, elapsed.count(), bluetoothState_,
            platform_.application().applicationState()};
}

}  // namespace zobi::tool
