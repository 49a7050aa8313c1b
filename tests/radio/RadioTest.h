#pragma once

#include <utility>

#include "RadioFixture.h"
#include "RadioRecorder.h"
#include "ZobiConnectKit/ZOKGATTProfile.h"

/// A central manager on each radio under test.
class RadioTest : public RadioFixture {
protected:
    RadioTest();

    Events takeEvents() override { return std::exchange(listener->events, {}); }
    const Events& events() const override { return listener->events; }

    void scan(bool allowDuplicates = true);
    /// Scans until the beacon is sighted once more.
    std::shared_ptr<zobi::platform::CBPeripheral> sight();
    void connect(const std::shared_ptr<zobi::platform::CBPeripheral>& peripheral);
    /// Brings the beacon into range and a link to it up.
    std::shared_ptr<zobi::platform::CBPeripheral> link();
    /// Ends a link, or an attempt at one, from this side.
    void unlink(const std::shared_ptr<zobi::platform::CBPeripheral>& peripheral);
    /// Discovers services and characteristics of the whole profile.
    void discover(const std::shared_ptr<zobi::platform::CBPeripheral>& peripheral);
    /// A discovered characteristic.
    static std::shared_ptr<zobi::platform::CBCharacteristic> find(
        const std::shared_ptr<zobi::platform::CBPeripheral>& peripheral,
        const zobi::platform::CBUUID& characteristic);

    std::shared_ptr<RadioRecorder> listener = RadioRecorder::make();
    std::shared_ptr<zobi::platform::CBCentralManager> central = platform.makeCentralManager(listener);
};

/// What every radio promises to those who are written against it.
class RadioPromises : public RadioTest {};
