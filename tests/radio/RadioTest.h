#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Application.h"
#include "RadioBench.h"
#include "ZobiConnectKit/ZOKGATTProfile.h"

/// Writes down what a radio tells, in its order. It makes sure that nothing is told from inside a call, and
/// that a peripheral's state is what the event says.
class Listener final : public zobi::platform::CBCentralManagerDelegate,
                       public zobi::platform::CBPeripheralDelegate {
    using CBCentralManager = zobi::platform::CBCentralManager;
    using NSError = zobi::platform::NSError;
    using Peripheral = std::shared_ptr<zobi::platform::CBPeripheral>;
    using Service = std::shared_ptr<zobi::platform::CBService>;
    using Characteristic = std::shared_ptr<zobi::platform::CBCharacteristic>;

public:
    static std::shared_ptr<Listener> make() { return std::make_shared<Listener>(); }

    Events events;
    /// The handle of the beacon at each sighting.
    std::vector<Peripheral> sightings;
    std::vector<std::uint8_t> lastValue;
    /// The central managers and peripherals that events have named.
    std::set<const void*> named;
    /// If there is one, sightings of all devices are events too: this makes their text.
    std::function<std::string(const zobi::platform::CBAdvertisementData&, zobi::platform::NSNumber rssi)>
        describe;
    /// Called at each sighting, and at each answer that tells a failure.
    std::function<void(const zobi::platform::CBAdvertisementData&)> onSighting = [](const auto& /*data*/) {};
    std::function<void()> onFailedAnswer = [] {};
    /// Called at each event, before it is written down.
    std::function<void(const std::string& event)> onEvent = [](const auto& /*event*/) {};

    /// Calls, with nothing told meanwhile.
    template <typename Call>
    void quietly(const Call& call) {
        isInsideCall_ = true;
        call();
        isInsideCall_ = false;
    }

    void centralManagerDidUpdateState(CBCentralManager& central) override {
        named.insert(&central);
        note("state " + std::to_string(static_cast<int>(central.state())));
    }
    void centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(
        CBCentralManager&, const Peripheral& peripheral, const zobi::platform::CBAdvertisementData& data,
        zobi::platform::NSNumber rssi) override {
        EXPECT_FALSE(isInsideCall_);
        const bool hasPayload =
            std::ranges::find(data.serviceData, ZOKGATTProfile::deviceInformationService,
                              &zobi::platform::CBServiceData::service) != data.serviceData.end();
        if (describe) {
            note(describe(data, rssi));
        } else if (data.localName != "morvane" || !hasPayload) {
            return;
        }
        sightings.push_back(peripheral);
        onSighting(data);
    }
    void centralManagerDidConnectPeripheral(CBCentralManager& central,
                                            const Peripheral& peripheral) override {
        EXPECT_EQ(peripheral->state(), zobi::platform::CBPeripheralState::connected);
        named.insert({&central, peripheral.get()});
        note("connected");
    }
    void centralManagerDidFailToConnectPeripheralError(CBCentralManager& central,
                                                       const Peripheral& peripheral,
                                                       const NSError* error) override {
        EXPECT_NE(peripheral->state(), zobi::platform::CBPeripheralState::connected);
        named.insert({&central, peripheral.get()});
        note("failed", error);
    }
    void centralManagerDidDisconnectPeripheralError(CBCentralManager& central, const Peripheral& peripheral,
                                                    const NSError* error) override {
        EXPECT_NE(peripheral->state(), zobi::platform::CBPeripheralState::connected);
        named.insert({&central, peripheral.get()});
        note("disconnected", error);
    }
    void peripheralDidDiscoverServices(const Peripheral& peripheral, const NSError* error) override {
        noteAnswer("services", peripheral, error);
    }
    void peripheralDidDiscoverCharacteristicsForServiceError(const Peripheral& peripheral,
                                                             const Service& service,
                                                             const NSError* error) override {
        noteAnswer("characteristics " + service->UUID().UUIDString(), peripheral, error);
    }
    void peripheralDidUpdateValueForCharacteristicError(const Peripheral& peripheral,
                                                        const Characteristic& characteristic,
                                                        const NSError* error) override {
        if (const auto value = characteristic->value()) lastValue.assign(value->begin(), value->end());
        noteAnswer("value " + characteristic->UUID().UUIDString(), peripheral, error);
    }
    void peripheralDidWriteValueForCharacteristicError(const Peripheral& peripheral,
                                                       const Characteristic& characteristic,
                                                       const NSError* error) override {
        noteAnswer("written " + characteristic->UUID().UUIDString(), peripheral, error);
    }
    void peripheralDidUpdateNotificationStateForCharacteristicError(const Peripheral& peripheral,
                                                                    const Characteristic& characteristic,
                                                                    const NSError* error) override {
        const std::string state = characteristic->isNotifying() ? "notifying " : "not notifying ";
        noteAnswer(state + characteristic->UUID().UUIDString(), peripheral, error);
    }
    void peripheralDidReadRSSIError(const Peripheral& peripheral, zobi::platform::NSNumber rssi,
                                    const NSError* error) override {
        EXPECT_TRUE(error || (rssi.integerValue() >= -127 && rssi.integerValue() <= 20));
        noteAnswer("rssi", peripheral, error);
    }

private:
    void note(std::string event, const NSError* error = nullptr) {
        EXPECT_FALSE(isInsideCall_) << event << " was told from inside a call";
        if (error) {
            event +=
                error->domain() == zobi::platform::CBErrorDomain ? " error " : " " + error->domain() + ' ';
            event += std::to_string(error->code());
            EXPECT_FALSE(error->localizedDescription().empty());
        }
        onEvent(event);
        events.push_back(std::move(event));
    }
    void noteAnswer(std::string event, const Peripheral& peripheral, const NSError* error) {
        EXPECT_EQ(peripheral->state(), zobi::platform::CBPeripheralState::connected) << event;
        named.insert(peripheral.get());
        note(std::move(event), error);
        if (error) onFailedAnswer();
    }

    bool isInsideCall_ = false;
};

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
    std::shared_ptr<Listener> listener = std::make_shared<Listener>();
    std::shared_ptr<zobi::platform::CBCentralManager> central = platform.makeCentralManager(listener);
};

/// What every radio promises to those who are written against it.
class RadioPromises : public RadioTest {};
