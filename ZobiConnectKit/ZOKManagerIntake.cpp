// Advertisements, and the live beacons that they make.

#include <algorithm>
#include <string_view>

#include "ZobiConnectKit/ZobiConnectKit.h"
#include "platform/ThreadCheck.h"

using zobi::platform::CBPeripheral;

namespace {

constexpr std::string_view acceptedLocalName = "morvane";
constexpr std::string_view payloadServiceDescription = "Device Information";
constexpr int firstActionCode = 1;
constexpr int lastActionCode = 3;

bool isButtonAction(const ZOKBeacon& beacon) {
    const int code = beacon.advertAction().charValue();
    return code >= firstActionCode && code <= lastActionCode;
}

}  // namespace

void ZOKManager::centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(
    zobi::platform::CBCentralManager& /*central*/, const std::shared_ptr<CBPeripheral>& peripheral,
    const zobi::platform::CBAdvertisementData& advertisementData, zobi::platform::NSNumber /*rssi*/) {
    for (const zobi::platform::CBServiceData& element : advertisementData.serviceData) {
        if (element.service.description() != payloadServiceDescription) continue;
        if (advertisementData.localName != acceptedLocalName) continue;
        const auto beacon = ZOKProtocolUtils::beaconFromDataOnPlatform(element.data, platform_);
        // Only a record that somebody gets to see needs its peripheral, and counting the reference is not
        // free.
        const bool isPressed = isButtonAction(*beacon);
        if (isPressed) {
            beacon->setPeripheral(peripheral);
            reportButtonAction(beacon);
        }
        if (refreshLiveBeacons(*beacon)) continue;
        if (!isPressed) beacon->setPeripheral(peripheral);
        addLiveBeacon(beacon);
    }
}

void ZOKManager::reportButtonAction(const std::shared_ptr<ZOKBeacon>& beacon) {
    if (const auto delegate = delegate_.lock()) {
        delegate->zobiConnectManagerDidButtonActionChangedForBeacon(
            shared_from_this(), beacon->advertAction().charValue() - firstActionCode, beacon);
    }
}

/// Stamps every live record of the sighted beacon; false if there is none.
bool ZOKManager::refreshLiveBeacons(const ZOKBeacon& sighted) {
    const auto major = sighted.major().integerValue();
    const auto minor = sighted.minor().integerValue();
    bool isLive = false;
    for (const auto& beacon : liveBeacons_) {
        if (beacon->major().integerValue() != major || beacon->minor().integerValue() != minor) continue;
        beacon->setTimestamp(sighted.timestamp());
        isLive = true;
    }
    return isLive;
}

void ZOKManager::addLiveBeacon(const std::shared_ptr<ZOKBeacon>& beacon) {
    zobi::platform::checkThread(platform_.runLoop());
    if (std::ranges::find(liveBeacons_, beacon) != liveBeacons_.end()) {
        platform_.log().log("Beacon already present in live beacons");
        return;
    }
    liveBeacons_.push_back(beacon);
}

std::shared_ptr<ZOKBeacon> ZOKManager::beaconFromPeripheral(
    const std::shared_ptr<CBPeripheral>& peripheral) const {
    for (const auto& beacon : liveBeacons_) {
        if (peripheral && beacon->peripheral() == peripheral) return beacon;
    }
    platform_.log().log("No beacon returned from peripheral");
    return nullptr;
}
