#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "ZobiConnectKit/ZobiConnectKit.h"
#include "tools/zobiconnect/monitor/Reception.h"

namespace zobi::tool {

/// Major and minor: what tells beacons apart.
using BeaconIdentity = std::pair<std::int32_t, std::int32_t>;

BeaconIdentity identityOf(const ZOKBeacon& beacon);

/// What the library tells of a beacon only in passing, or not at all.
struct Sighting {
    struct Button {
        int action;
        /// By the wall clock.
        double time;
    };

    /// What an advertisement tells that may differ in the next. Not a whole record, which takes much room.
    struct Advertisement {
        /// Nothing when the radio could not tell.
        platform::NSNumber rssi;
        platform::NSNumber scanRspVersion;
        platform::NSNumber advertBatteryLevel;
        platform::NSNumber temperature;
        platform::NSNumber advertAction;
    };

    /// Nothing before the first.
    std::optional<Advertisement> latest;
    Reception reception;
    std::optional<Button> lastButton;
};

/// The latest sighting of each beacon, and how much was heard in all.
class Sightings {
public:
    void noteAdvertisement() { ++advertisements_; }
    void noteMalformedAdvertisement() { ++malformedAdvertisements_; }
    /// @param now of the monotonic clock.
    void noteBeacon(Reception::Time now, const ZOKBeacon& latest, platform::NSNumber rssi);
    void noteButton(const ZOKBeacon& beacon, Sighting::Button button);

    /// Forgets all beacons but these, as the library does, so that the list cannot grow for ever.
    void keepOnly(const std::vector<std::shared_ptr<ZOKBeacon>>& beacons);

    /// An empty sighting when there was none.
    const Sighting& of(const ZOKBeacon& beacon) const;

    std::uint64_t advertisements() const { return advertisements_; }
    std::uint64_t malformedAdvertisements() const { return malformedAdvertisements_; }

private:
    std::map<BeaconIdentity, Sighting> sightings_;
    std::uint64_t advertisements_ = 0;
    std::uint64_t malformedAdvertisements_ = 0;
};

}  // namespace zobi::tool
