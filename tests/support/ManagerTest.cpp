#include "ManagerTest.h"

ManagerTest::ManagerTest() {
    platform.log().setSink([this](std::string_view line) { log.emplace_back(line); });
    loop.processPending();
}

zobi::SimulatedBeacon& ManagerTest::addBeacon(zobi::BeaconDescription description) {
    description.advertisingJitter = 0;
    return zobi::addBeacon(platform.world(), std::move(description));
}

void ManagerTest::setRadio(zobi::platform::CBManagerState state) {
    platform.world().setRadioState(state);
    loop.processPending();
}

std::shared_ptr<ZOKBeacon> makeRecord(int major, int minor, std::int64_t timestamp) {
    auto record = std::make_shared<ZOKBeacon>();
    record->setMajor(zobi::platform::NSNumber::numberWithInt(major));
    record->setMinor(zobi::platform::NSNumber::numberWithInt(minor));
    record->setTimestamp(timestamp);
    return record;
}
