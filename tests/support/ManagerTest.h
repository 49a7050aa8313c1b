#pragma once

#include <gmock/gmock.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ManagerRecorder.h"
#include "ZobiConnectKit/simulation/SimulatedBeacon.h"
#include "zobi/platform/simulation/SimulatedPlatform.h"

using Lines = std::vector<std::string>;

/// A manager with its application on a simulated platform in virtual time, its log kept.
class ManagerTest : public ::testing::Test {
protected:
    ManagerTest() {
        platform.log().setSink([this](std::string_view line) { log.emplace_back(line); });
        loop.processPending();
    }

    /// Lets some virtual time pass.
    void pass(double seconds) { loop.runFor(seconds); }
    /// What was told since the last call.
    Events takeEvents() { return application->takeEvents(); }
    /// What was logged since the last call.
    Lines takeLog() { return std::exchange(log, {}); }
    /// A beacon without jitter, so that its advertisements can be counted.
    zobi::SimulatedBeacon& addBeacon(zobi::BeaconDescription description) {
        description.advertisingJitter = 0;
        return zobi::addBeacon(platform.world(), std::move(description));
    }
    void setRadio(zobi::platform::CBManagerState state) {
        platform.world().setRadioState(state);
        loop.processPending();
    }

    zobi::platform::simulation::SimulatedPlatform platform{
        zobi::platform::StandardPlatform::Time::virtualTime};
    zobi::platform::StandardRunLoop& loop = platform.runLoop();
    Lines log;
    std::shared_ptr<ZOKManager> manager = ZOKManager::managerOnPlatform(platform);
    std::shared_ptr<ManagerRecorder> application = ManagerRecorder::of(manager, &platform);
};

inline std::shared_ptr<ZOKBeacon> makeRecord(int major, int minor, std::int64_t timestamp = 0) {
    auto record = std::make_shared<ZOKBeacon>();
    record->setMajor(zobi::platform::NSNumber::numberWithInt(major));
    record->setMinor(zobi::platform::NSNumber::numberWithInt(minor));
    record->setTimestamp(timestamp);
    return record;
}
