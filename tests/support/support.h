#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ZobiConnectKit/ZobiConnectKit.h"
#include "ZobiConnectKit/simulation/SimulatedBeacon.h"
#include "zobi/platform/simulation/SimulatedPlatform.h"

/// Keeps what it was told, and does on the way what a test asks for.
class RecordingDelegate : public ZOKManagerDelegate {
public:
    /// Who must be passed along with every callback.
    std::weak_ptr<ZOKManager> expectedManager;
    std::vector<int> states;
    std::vector<std::vector<std::shared_ptr<ZOKBeacon>>> reports;
    std::vector<std::pair<int, std::shared_ptr<ZOKBeacon>>> buttons;
    /// Called before the report is kept, to show whether it is a snapshot.
    std::function<void()> onReport = [] {};
    std::function<void()> onButton = [] {};

    void zobiConnectManagerDidBluetoothStateChanged(const std::shared_ptr<ZOKManager>& manager,
                                                    int state) override {
        EXPECT_EQ(manager, expectedManager.lock());
        states.push_back(state);
    }
    void zobiConnectManagerDidRangeBeacon(const std::shared_ptr<ZOKManager>& manager,
                                          const std::vector<std::shared_ptr<ZOKBeacon>>& beacons) override {
        EXPECT_EQ(manager, expectedManager.lock());
        onReport();
        reports.push_back(beacons);
    }
    void zobiConnectManagerDidButtonActionChangedForBeacon(
        const std::shared_ptr<ZOKManager>& manager, int action,
        const std::shared_ptr<ZOKBeacon>& beacon) override {
        EXPECT_EQ(manager, expectedManager.lock());
        buttons.emplace_back(action, beacon);
        onButton();
    }
};

/// A manager with its delegate on a simulated platform in virtual time, its log kept.
class ManagerTest : public ::testing::Test {
protected:
    ManagerTest() {
        platform.log().setSink([this](std::string_view line) { log.emplace_back(line); });
        delegate->expectedManager = manager;
        manager->setDelegate(delegate);
        loop.processPending();
    }

    /// Lets some virtual time pass.
    void pass(double seconds) { loop.runFor(seconds); }

    /// What was logged since the last call.
    std::vector<std::string> takeLog() { return std::exchange(log, {}); }

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
    std::vector<std::string> log;
    std::shared_ptr<ZOKManager> manager = ZOKManager::managerOnPlatform(platform);
    std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
};

inline std::shared_ptr<ZOKBeacon> makeRecord(int major, int minor, std::int64_t timestamp = 0) {
    auto record = std::make_shared<ZOKBeacon>();
    record->setMajor(zobi::platform::NSNumber::numberWithInt(major));
    record->setMinor(zobi::platform::NSNumber::numberWithInt(minor));
    record->setTimestamp(timestamp);
    return record;
}
