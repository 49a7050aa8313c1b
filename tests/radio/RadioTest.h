#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Application.h"
#include "RadioBench.h"
#include "ZobiConnectKit/ZOKGATTProfile.h"

/// Writes down what a radio tells, in its order. It makes sure that nothing is told from inside a call, and
/// that a peripheral's state is what the event says.
class Listener final : public platform::CBCentralManagerDelegate, public platform::CBPeripheralDelegate {
public:
    explicit Listener(platform::CBUUID service) : service_(service) {}

    Events events;
    /// The handle of the beacon at each sighting.
    std::vector<std::shared_ptr<platform::CBPeripheral>> sightings;
    std::vector<std::uint8_t> lastValue;
    /// Called at each answer that tells a failure.
    std::function<void()> onFailedAnswer = [] {};

    std::size_t count(const std::string& event) const;

    /// Calls, with nothing told meanwhile.
    template <typename Call>
    void quietly(const Call& call) {
        isInsideCall_ = true;
        call();
        isInsideCall_ = false;
    }

    void centralManagerDidUpdateState(platform::CBCentralManager& central) override;
    void centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(
        platform::CBCentralManager& central, const std::shared_ptr<platform::CBPeripheral>& peripheral,
        const platform::CBAdvertisementData& data, platform::NSNumber rssi) override;
    void centralManagerDidConnectPeripheral(
        platform::CBCentralManager& central,
        const std::shared_ptr<platform::CBPeripheral>& peripheral) override;
    void centralManagerDidFailToConnectPeripheralError(
        platform::CBCentralManager& central, const std::shared_ptr<platform::CBPeripheral>& peripheral,
        const platform::NSError* error) override;
    void centralManagerDidDisconnectPeripheralError(platform::CBCentralManager& central,
                                                    const std::shared_ptr<platform::CBPeripheral>& peripheral,
                                                    const platform::NSError* error) override;
    void peripheralDidDiscoverServices(const std::shared_ptr<platform::CBPeripheral>& peripheral,
                                       const platform::NSError* error) override;
    void peripheralDidDiscoverCharacteristicsForServiceError(
        const std::shared_ptr<platform::CBPeripheral>& peripheral,
        const std::shared_ptr<platform::CBService>& service, const platform::NSError* error) override;
    void peripheralDidUpdateValueForCharacteristicError(
        const std::shared_ptr<platform::CBPeripheral>& peripheral,
        const std::shared_ptr<platform::CBCharacteristic>& characteristic,
        const platform::NSError* error) override;
    void peripheralDidWriteValueForCharacteristicError(
        const std::shared_ptr<platform::CBPeripheral>& peripheral,
        const std::shared_ptr<platform::CBCharacteristic>& characteristic,
        const platform::NSError* error) override;
    void peripheralDidUpdateNotificationStateForCharacteristicError(
        const std::shared_ptr<platform::CBPeripheral>& peripheral,
        const std::shared_ptr<platform::CBCharacteristic>& characteristic,
        const platform::NSError* error) override;
    void peripheralDidReadRSSIError(const std::shared_ptr<platform::CBPeripheral>& peripheral,
                                    platform::NSNumber rssi, const platform::NSError* error) override;

private:
    void note(std::string event, const platform::NSError* error = nullptr);
    void noteAnswer(std::string event, const std::shared_ptr<platform::CBPeripheral>& peripheral,
                    const platform::NSError* error);

    platform::CBUUID service_;
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
    std::shared_ptr<platform::CBPeripheral> sight();
    void connect(const std::shared_ptr<platform::CBPeripheral>& peripheral);
    /// Brings the beacon into range and a link to it up.
    std::shared_ptr<platform::CBPeripheral> link();
    /// Discovers services and characteristics of the whole profile.
    void discover(const std::shared_ptr<platform::CBPeripheral>& peripheral);
    /// A discovered characteristic, or null.
    static std::shared_ptr<platform::CBCharacteristic> find(
        const std::shared_ptr<platform::CBPeripheral>& peripheral, const platform::CBUUID& characteristic);

    std::unique_ptr<RadioBench> bench = GetParam().makeBench();
    platform::Platform& platform = bench->platform();
    std::shared_ptr<Listener> listener = std::make_shared<Listener>(ZOKGATTProfile::deviceInformationService);
    std::shared_ptr<platform::CBCentralManager> central = platform.makeCentralManager(listener);
};

/// What every radio promises to those who are written against it.
class RadioPromises : public RadioTest {};
