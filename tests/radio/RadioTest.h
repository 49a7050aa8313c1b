#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "RadioBench.h"
#include "RadioRecorder.h"
#include "ZobiConnectKit/ZOKGATTProfile.h"

/// A central manager on each radio under test. Everything waits for conditions, none for a time to pass,
/// but where nothing must happen.
class RadioTest : public ::testing::TestWithParam<RadioUnderTest> {
protected:
    RadioTest();

    /// Waits until `event` was told, `count` times in all.
    bool heard(const std::string& event, std::size_t count = 1);
    /// Waits until so many events were told.
    bool heardSoMany(std::size_t count);
    /// Looks on for a while.
    bool heardNoMoreThan(std::size_t count);
    Events takeEvents() { return std::exchange(listener->events, {}); }

    void scan();
    /// Scans until the beacon is sighted once more.
    std::shared_ptr<zobi::platform::CBPeripheral> sight();
    void connect(const std::shared_ptr<zobi::platform::CBPeripheral>& peripheral);
    /// Brings the beacon into range and a link to it up.
    std::shared_ptr<zobi::platform::CBPeripheral> link();
    /// Discovers services and characteristics of the whole profile.
    void discover(const std::shared_ptr<zobi::platform::CBPeripheral>& peripheral);
    /// A discovered characteristic.
    static std::shared_ptr<zobi::platform::CBCharacteristic> find(
        const std::shared_ptr<zobi::platform::CBPeripheral>& peripheral,
        const zobi::platform::CBUUID& characteristic);

    std::unique_ptr<RadioBench> bench = GetParam().makeBench();
    zobi::platform::Platform& platform = bench->platform();
    std::shared_ptr<RadioRecorder> listener = RadioRecorder::make();
    std::shared_ptr<zobi::platform::CBCentralManager> central = platform.makeCentralManager(listener);
};

/// What every radio promises to those who are written against it.
class RadioPromises : public RadioTest {};
