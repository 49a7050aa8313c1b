#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "tools/zobiconnect/monitor/Sightings.h"
#include "zobi/platform/RadioCondition.h"
#include "zobi/platform/UIApplication.h"

namespace zobi::tool {

/// How things stand when something is shown.
struct Moment {
    /// By the wall clock: seconds since 1970.
    double time;
    Reception::Time monotonicTime;
    /// Seconds since the start.
    double elapsed;
    int bluetoothState;
    platform::UIApplicationState applicationState;
};

/// What happened in all.
struct Totals {
    std::size_t beacons;
    std::uint64_t reports;
    std::uint64_t buttonActions;
    std::uint64_t advertisements;
    std::uint64_t malformedAdvertisements;
};

/// Shows what a monitor is told.
class MonitorView {
public:
    virtual ~MonitorView() = default;

    virtual void bluetoothStateChanged(const Moment& moment) = 0;
    /// Why Bluetooth cannot be used, or that it can be again.
    virtual void radioConditionChanged(const Moment& moment, const platform::RadioCondition& condition) = 0;
    virtual void applicationStateChanged(const Moment& moment) = 0;
    virtual void beaconsRanged(const Moment& moment, const std::vector<std::shared_ptr<ZOKBeacon>>& beacons,
                               const Sightings& sightings) = 0;
    virtual void buttonUsed(const Moment& moment, int action, const ZOKBeacon& beacon) = 0;
    virtual void ended(const Moment& moment, const Totals& totals) = 0;
};

}  // namespace zobi::tool
