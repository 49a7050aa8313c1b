// The signal strength of a connection, read once or by a timer.

#include "ZobiConnectKit/ZobiConnectKit.h"
#include "platform/ThreadCheck.h"

using zobi::platform::NSTimer;

// The manager's, though it needs nothing of it.
// NOLINTNEXTLINE(readability-convert-member-functions-to-static)
void ZOKManager::RSSIForBeaconWithCompletion(const std::shared_ptr<ZOKBeacon>& beacon,
                                             const ZOKBeaconCompletion& /*completion*/) {
    zobi::platform::checkThread(platform_.runLoop());
    if (!beacon) return;
    const auto peripheral = beacon->peripheral();
    if (!peripheral || peripheral->state() != zobi::platform::CBPeripheralState::connected) return;
    peripheral->readRSSI();
}

std::optional<std::string> ZOKManager::keyFromBeacon(const std::shared_ptr<ZOKBeacon>& beacon) {
    if (!beacon) return std::nullopt;
    return beacon->major().description() + '_' + beacon->minor().description();
}

void ZOKManager::startRSSIMonitoringForBeaconIntervalWithCompletion(
    const std::shared_ptr<ZOKBeacon>& beacon, double interval, const ZOKBeaconCompletion& /*completion*/) {
    zobi::platform::checkThread(platform_.runLoop());
    const auto key = keyFromBeacon(beacon);
    if (!key) return;
    auto& running = rssiMonitoringTimersDic_[*key];
    if (running) return;
    running = platform_.runLoop().scheduledTimerWithTimeIntervalActionUserInfoRepeats(
        interval, [self = shared_from_this()](const auto& timer) { self->RSSITimerFired(timer); }, beacon,
        true);
}

void ZOKManager::RSSITimerFired(const std::shared_ptr<NSTimer>& timer) {
    if (!timer) return;
    RSSIForBeaconWithCompletion(std::static_pointer_cast<ZOKBeacon>(timer->userInfo()), nullptr);
}

void ZOKManager::stopRSSIMonitoringForBeacon(const std::shared_ptr<ZOKBeacon>& beacon) {
    zobi::platform::checkThread(platform_.runLoop());
    const auto key = keyFromBeacon(beacon);
    if (!key) return;
    const auto found = rssiMonitoringTimersDic_.find(*key);
    if (found == rssiMonitoringTimersDic_.end()) return;
    // The timer holds the manager, perhaps as the last.
    const auto self = shared_from_this();
    if (const auto timer = found->second) timer->invalidate();
    rssiMonitoringTimersDic_.erase(*key);
}
