#include "LibraryOverRadio.h"

#include <algorithm>
#include <stdexcept>

bool LibraryOverRadio::heard(const std::string& event, std::size_t count) {
    return bench->runUntil(
        [&] { return static_cast<std::size_t>(std::ranges::count(application->events, event)) >= count; });
}

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
    EXPECT_TRUE(heard("connection complete"));
    takeEvents();
    return beacon;
}
