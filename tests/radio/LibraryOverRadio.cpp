#include "LibraryOverRadio.h"

#include <stdexcept>

std::shared_ptr<ZOKBeacon> LibraryOverRadio::range() {
    bench->beaconComesIntoRange();
    if (!bench->runUntil([&] { return !manager->liveBeacons().empty(); })) {
        throw std::runtime_error("no beacon is live");
    }
    return manager->liveBeacons()[0];
}

std::shared_ptr<ZOKBeacon> LibraryOverRadio::connect() {
    auto beacon = range();
    manager->connectBeaconWithCompletion(beacon, application->completion("connection complete"));
    eventsUntil("connection complete");
    return beacon;
}
