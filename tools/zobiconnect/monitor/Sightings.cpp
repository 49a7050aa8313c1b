#include "tools/zobiconnect/monitor/Sightings.h"

#include <set>

namespace zobi::tool {

BeaconIdentity identityOf(const ZOKBeacon& beacon) {
    return {beacon.major().integerValue(), beacon.minor().integerValue()};
}

void Sightings::noteBeacon(Reception::Time now, const ZOKBeacon& latest, platform::NSNumber rssi) {
    Sighting& sighting = sightings_[identityOf(latest)];
    sighting.latest = {.rssi = rssi,
                       .scanRspVersion = latest.scanRspVersion(),
                       .advertBatteryLevel = latest.advertBatteryLevel(),
                       .temperature = latest.temperature(),
                       .advertAction = latest.advertAction()};
    sighting.reception.noteReport(now);
}

void Sightings::noteButton(const ZOKBeacon& beacon, Sighting::Button button) {
    sightings_[identityOf(beacon)].lastButton = button;
}

void Sightings::keepOnly(const std::vector<std::shared_ptr<ZOKBeacon>>& beacons) {
    std::set<BeaconIdentity> kept;
    for (const auto& beacon : beacons) kept.insert(identityOf(*beacon));
    std::erase_if(sightings_, [&](const auto& entry) { return !kept.contains(entry.first); });
}

const Sighting& Sightings::of(const ZOKBeacon& beacon) const {
    static const Sighting none;
    const auto found = sightings_.find(identityOf(beacon));
    return found == sightings_.end() ? none : found->second;
}

}  // namespace zobi::tool
