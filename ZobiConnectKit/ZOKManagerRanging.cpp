// The report of the live beacons, and the expiry of silent ones.

#include <algorithm>

#include "ZobiConnectKit/ZobiConnectKit.h"

using zobi::platform::NSTimer;

namespace {

constexpr double expiryThreshold = 20.0;

bool isConnected(const ZOKBeacon& beacon) {
    return beacon.peripheral() &&
           beacon.peripheral()->state() == zobi::platform::CBPeripheralState::connected;
}

}  // namespace

void ZOKManager::updateRangedBeaconsTimerFired(const std::shared_ptr<NSTimer>& /*timer*/) {
    const auto delegate = delegate_.lock();
    if (!delegate) return;
    const auto snapshot = liveBeacons_;
    delegate->zobiConnectManagerDidRangeBeacon(shared_from_this(), snapshot);
}

void ZOKManager::checkRangedBeaconsTimerFired(const std::shared_ptr<NSTimer>& /*timer*/) {
    zobi::platform::Log& log = platform_.log();
    const double now = platform_.clock().timeIntervalSince1970();
    std::vector<std::shared_ptr<ZOKBeacon>> expired;
    // A copy, for a log may be an application's, and that may change the list.
    for (const auto& beacon : std::vector(liveBeacons_)) {
        if (isConnected(*beacon)) {
            beacon->setTimestamp(platform_.clock().secondsSince1970());
        }
        const double delta = now - static_cast<double>(beacon->timestamp());
        log.log("DeltaTime: %f", delta);
        if (delta > expiryThreshold && !isConnected(*beacon) && beacon->timestamp() > 0) {
            expired.push_back(beacon);
            log.log("Beacon [%@, %@] removed", beacon->major(), beacon->minor());
        }
    }
    std::ranges::sort(expired);
    std::erase_if(liveBeacons_,
                  [&](const auto& beacon) { return std::ranges::binary_search(expired, beacon); });
}
