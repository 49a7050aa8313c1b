#include "RadioTest.h"

#include <algorithm>
#include <array>

using namespace platform;

std::size_t Listener::count(const std::string& event) const {
    return static_cast<std::size_t>(std::ranges::count(events, event));
}

void Listener::note(std::string event, const NSError* error) {
    EXPECT_FALSE(isInsideCall_) << event << " was told from inside a call";
    if (error) {
        event += error->domain() == CBErrorDomain ? " error " : " " + error->domain() + ' ';
        event += std::to_string(error->code());
        EXPECT_FALSE(error->localizedDescription().empty());
    }
    events.push_back(std::move(event));
}

void Listener::noteAnswer(std::string event, const std::shared_ptr<CBPeripheral>& peripheral,
                          const NSError* error) {
    EXPECT_EQ(peripheral->state(), CBPeripheralState::connected) << event;
    note(std::move(event), error);
    if (error) onFailedAnswer();
}

void Listener::centralManagerDidUpdateState(CBCentralManager& central) {
    note("state " + std::to_string(static_cast<int>(central.state())));
}

void Listener::centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(
    CBCentralManager& /*central*/, const std::shared_ptr<CBPeripheral>& peripheral,
    const CBAdvertisementData& data, NSNumber /*rssi*/) {
    EXPECT_FALSE(isInsideCall_);
    const bool hasService =
        std::ranges::find(data.serviceData, service_, &CBServiceData::service) != data.serviceData.end();
    if (data.localName == "morvane" && hasService) sightings.push_back(peripheral);
}

void Listener::centralManagerDidConnectPeripheral(CBCentralManager& /*central*/,
                                                  const std::shared_ptr<CBPeripheral>& peripheral) {
    EXPECT_EQ(peripheral->state(), CBPeripheralState::connected);
    note("connected");
}

void Listener::centralManagerDidFailToConnectPeripheralError(CBCentralManager& /*central*/,
                                                             const std::shared_ptr<CBPeripheral>& peripheral,
                                                             const NSError* error) {
    EXPECT_NE(peripheral->state(), CBPeripheralState::connected);
    note("failed", error);
}

void Listener::centralManagerDidDisconnectPeripheralError(CBCentralManager& /*central*/,
                                                          const std::shared_ptr<CBPeripheral>& peripheral,
                                                          const NSError* error) {
    EXPECT_EQ(peripheral->state(), CBPeripheralState::disconnected);
    note("disconnected", error);
}

void Listener::peripheralDidDiscoverServices(const std::shared_ptr<CBPeripheral>& peripheral,
                                             const NSError* error) {
    noteAnswer("services", peripheral, error);
}

void Listener::peripheralDidDiscoverCharacteristicsForServiceError(
    const std::shared_ptr<CBPeripheral>& peripheral, const std::shared_ptr<CBService>& service,
    const NSError* error) {
    noteAnswer("characteristics " + service->UUID().UUIDString(), peripheral, error);
}

void Listener::peripheralDidUpdateValueForCharacteristicError(
    const std::shared_ptr<CBPeripheral>& peripheral, const std::shared_ptr<CBCharacteristic>& characteristic,
    const NSError* error) {
    if (const auto value = characteristic->value()) lastValue.assign(value->begin(), value->end());
    noteAnswer("value " + characteristic->UUID().UUIDString(), peripheral, error);
}

void Listener::peripheralDidWriteValueForCharacteristicError(
    const std::shared_ptr<CBPeripheral>& peripheral, const std::shared_ptr<CBCharacteristic>& characteristic,
    const NSError* error) {
    noteAnswer("written " + characteristic->UUID().UUIDString(), peripheral, error);
}

void Listener::peripheralDidUpdateNotificationStateForCharacteristicError(
    const std::shared_ptr<CBPeripheral>& peripheral, const std::shared_ptr<CBCharacteristic>& characteristic,
    const NSError* error) {
    noteAnswer((characteristic->isNotifying() ? "notifying " : "not notifying ") +
                   characteristic->UUID().UUIDString(),
               peripheral, error);
}

void Listener::peripheralDidReadRSSIError(const std::shared_ptr<CBPeripheral>& peripheral, NSNumber rssi,
                                          const NSError* error) {
    if (!error) {
        EXPECT_GE(rssi.integerValue(), -127);
        EXPECT_LE(rssi.integerValue(), 20);
    }
    noteAnswer("rssi", peripheral, error);
}

RadioTest::RadioTest() {
    EXPECT_TRUE(heard("state 5"));
    takeEvents();
}

bool RadioTest::heard(const std::string& event, std::size_t count) {
    return bench->runUntil([&] { return listener->count(event) >= count; });
}

bool RadioTest::heardSoMany(std::size_t count) {
    return bench->runUntil([&] { return listener->events.size() >= count; });
}

bool RadioTest::heardNoMoreThan(std::size_t count) {
    return !bench->runUntil([&] { return listener->events.size() > count; }, RadioBench::aWhile);
}

void RadioTest::scan() {
    listener->quietly([&] {
        central->scanForPeripheralsWithServicesOptions(std::array{CBUUID::UUIDWithString("1320")},
                                                       {.allowDuplicates = true});
    });
}

std::shared_ptr<CBPeripheral> RadioTest::sight() {
    scan();
    const std::size_t before = listener->sightings.size();
    EXPECT_TRUE(bench->runUntil([&] { return listener->sightings.size() > before; }));
    return listener->sightings.empty() ? nullptr : listener->sightings.back();
}

void RadioTest::connect(const std::shared_ptr<CBPeripheral>& peripheral) {
    peripheral->setDelegate(listener);
    listener->quietly([&] { central->connectPeripheral(peripheral); });
}

std::shared_ptr<CBPeripheral> RadioTest::link() {
    bench->beaconComesIntoRange();
    auto peripheral = sight();
    connect(peripheral);
    EXPECT_TRUE(heard("connected"));
    takeEvents();
    return peripheral;
}

void RadioTest::discover(const std::shared_ptr<CBPeripheral>& peripheral) {
    peripheral->discoverServices(ZOKGATTProfile::requestedServices);
    ASSERT_TRUE(heard("services"));
    for (const auto& service : *peripheral->services()) {
        const auto* const request = std::ranges::find(ZOKGATTProfile::characteristicRequests, service->UUID(),
                                                      &ZOKGATTProfile::CharacteristicRequest::service);
        peripheral->discoverCharacteristicsForService(request->characteristics, service);
    }
    ASSERT_TRUE(heardSoMany(1 + ZOKGATTProfile::characteristicRequests.size()));
    takeEvents();
}

std::shared_ptr<CBCharacteristic> RadioTest::find(const std::shared_ptr<CBPeripheral>& peripheral,
                                                  const CBUUID& characteristic) {
    for (const auto& service : *peripheral->services()) {
        if (!service->characteristics()) continue;
        for (const auto& candidate : *service->characteristics()) {
            if (candidate->UUID() == characteristic) return candidate;
        }
    }
    return nullptr;
}
