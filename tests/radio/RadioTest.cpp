#include "RadioTest.h"

#include <array>
#include <stdexcept>

using namespace zobi::platform;

RadioTest::RadioTest() {
    eventsUntil("state 5");
}

void RadioTest::scan(bool allowDuplicates) {
    listener->quietly([&] {
        central->scanForPeripheralsWithServicesOptions(std::array{CBUUID::UUIDWithString("1320")},
                                                       {.allowDuplicates = allowDuplicates});
    });
}

std::shared_ptr<CBPeripheral> RadioTest::sight() {
    scan();
    const std::size_t before = listener->sightings.size();
    if (!bench->runUntil([&] { return listener->sightings.size() > before; })) {
        throw std::runtime_error("the beacon was not sighted");
    }
    return listener->sightings.back();
}

void RadioTest::connect(const std::shared_ptr<CBPeripheral>& peripheral) {
    peripheral->setDelegate(listener);
    listener->quietly([&] { central->connectPeripheral(peripheral); });
}

std::shared_ptr<CBPeripheral> RadioTest::link() {
    bench->beaconComesIntoRange();
    auto peripheral = sight();
    connect(peripheral);
    eventsUntil("connected");
    return peripheral;
}

void RadioTest::unlink(const std::shared_ptr<CBPeripheral>& peripheral) {
    takeEvents();
    central->cancelPeripheralConnection(peripheral);
    EXPECT_THAT(eventsUntil("disconnected"), testing::ElementsAre("disconnected"));
}

void RadioTest::discover(const std::shared_ptr<CBPeripheral>& peripheral) {
    peripheral->discoverServices(ZOKGATTProfile::requestedServices);
    if (!heard("services")) throw std::runtime_error("no service was discovered");
    for (const auto& [service, characteristics] : ZOKGATTProfile::characteristicRequests) {
        const auto found = std::ranges::find(*peripheral->services(), service, &CBService::UUID);
        if (found == peripheral->services()->end()) throw std::runtime_error("a service was not discovered");
        peripheral->discoverCharacteristicsForService(characteristics, *found);
    }
    EXPECT_TRUE(heardSoMany(1 + ZOKGATTProfile::characteristicRequests.size()));
    takeEvents();
}

std::shared_ptr<CBCharacteristic> RadioTest::find(const std::shared_ptr<CBPeripheral>& peripheral,
                                                  const CBUUID& characteristic) {
    if (auto found = discoveredCharacteristic(*peripheral, characteristic)) return found;
    throw std::runtime_error("the characteristic was not discovered");
}
