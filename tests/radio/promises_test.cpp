// The promises that every radio keeps to what is written against it.

#include <array>
#include <chrono>
#include <stdexcept>

#include "RadioTest.h"
#include "zobi/platform/NSData.h"

namespace {

using namespace ::testing;
using namespace zobi::platform;
using namespace ZOKGATTProfile;
using enum CBCharacteristicWriteType;

const CBUUID unknown = CBUUID::UUIDWithString("FEED");

TEST_P(RadioPromises, OneHandleForAPeripheralOverAllItsSightingsAndLinks) {
    const auto peripheral = link();
    unlink(peripheral);
    EXPECT_EQ(sight(), peripheral);
    connect(peripheral);
    ASSERT_TRUE(heard("connected"));
    bench->beaconFallsSilent();
    ASSERT_TRUE(heard("disconnected error 6"));
    bench->beaconComesIntoRange();
    EXPECT_EQ(sight(), peripheral);
    EXPECT_THAT(listener->named, UnorderedElementsAre(central.get(), peripheral.get()));
}

TEST_P(RadioPromises, ServicesAndCharacteristicsAreWhatWasAskedForSinceTheLinkCameUp) {
    const auto peripheral = link();
    EXPECT_FALSE(peripheral->services().has_value()) << "absent before the first answer";
    peripheral->discoverServices(std::array{unknown});
    EXPECT_FALSE(peripheral->services().has_value());
    ASSERT_TRUE(heard("services"));
    EXPECT_THAT(peripheral->services(), Optional(IsEmpty()));

    peripheral->discoverServices(std::array{batteryService, accelerometerService});
    ASSERT_TRUE(heard("services", 2));
    ASSERT_EQ(peripheral->services()->size(), 2U);
    const auto service = (*peripheral->services())[0]->UUID() == accelerometerService
                             ? (*peripheral->services())[0]
                             : (*peripheral->services())[1];
    EXPECT_FALSE(service->characteristics().has_value());
    peripheral->discoverCharacteristicsForService(std::array{accelerometerZCharacteristic, unknown}, service);
    ASSERT_TRUE(heard("characteristics FFA0"));
    ASSERT_EQ(service->characteristics()->size(), 1U);
    EXPECT_EQ((*service->characteristics())[0]->UUID(), accelerometerZCharacteristic);

    peripheral->discoverServices(std::array{deviceInformationService});
    ASSERT_TRUE(heard("services", 3));
    EXPECT_EQ(peripheral->services()->size(), 3U);
    EXPECT_THAT(*peripheral->services(), Contains(service)) << "what was found before stays";

    const auto stale = (*service->characteristics())[0];
    unlink(peripheral);
    EXPECT_EQ(peripheral->services()->size(), 3U) << "it stays after the link";
    connect(peripheral);
    ASSERT_TRUE(heard("connected"));
    EXPECT_FALSE(peripheral->services().has_value()) << "and goes with the next";
    takeEvents();
    discover(peripheral);
    peripheral->readValueForCharacteristic(stale);
    peripheral->discoverCharacteristicsForService(std::array{accelerometerZCharacteristic}, service);
    ASSERT_TRUE(heardSoMany(2));
    EXPECT_THAT(takeEvents(), ElementsAre("value FFA4 error 2", "characteristics FFA0 error 2"));
}

TEST_P(RadioPromises, EveryRequestHasOneAnswerInItsTurn) {
    const auto peripheral = link();
    discover(peripheral);
    bench->setValue(firmwareRevisionCharacteristic, {'2', '.', '1'});
    const auto firmware = find(peripheral, firmwareRevisionCharacteristic);
    const auto mode = find(peripheral, buttonModeCharacteristic);
    const auto alert = find(peripheral, alertLevelCharacteristic);
    listener->quietly([&] {
        peripheral->readValueForCharacteristic(firmware);
        peripheral->readValueForCharacteristic(firmware);
        peripheral->writeValueForCharacteristicType(std::array<std::uint8_t, 1>{7}, mode, withResponse);
        peripheral->writeValueForCharacteristicType(std::array<std::uint8_t, 1>{1}, alert, withoutResponse);
        peripheral->readValueForCharacteristic(alert);
        peripheral->setNotifyValueForCharacteristic(true, find(peripheral, buttonActionCharacteristic));
        peripheral->setNotifyValueForCharacteristic(false, find(peripheral, buttonActionCharacteristic));
    });
    ASSERT_TRUE(heardSoMany(6));
    const std::string modeUUID = mode->UUID().UUIDString();
    EXPECT_THAT(takeEvents(),
                ElementsAre("value 2A26", "value 2A26", "written " + modeUUID,
                            "value 2A06 CBATTErrorDomain 2", "notifying FFE1", "not notifying FFE1"));
    EXPECT_THAT(listener->lastValue, ElementsAre('2', '.', '1'));
    EXPECT_EQ(bench->value(buttonModeCharacteristic).back(), 7);
    EXPECT_TRUE(bench->runUntil(
        [&] { return bench->value(alertLevelCharacteristic) == std::vector<std::uint8_t>{1}; }));
    peripheral->readRSSI();
    ASSERT_TRUE(heard("rssi"));
    EXPECT_TRUE(heardNoMoreThan(1));
    EXPECT_THAT(listener->named, UnorderedElementsAre(central.get(), peripheral.get()));
}

TEST_P(RadioPromises, WhatIsOutstandingIsAnsweredWithAnErrorBeforeTheEndIsTold) {
    const auto peripheral = link();
    discover(peripheral);
    const auto firmware = find(peripheral, firmwareRevisionCharacteristic);
    // Asking again, from inside an answer that tells of the end, has none.
    listener->onEvent = [&](const std::string& event) {
        if (event.ends_with("error 3")) peripheral->readValueForCharacteristic(firmware);
    };
    bench->beaconFallsSilent();
    peripheral->readValueForCharacteristic(firmware);
    peripheral->discoverServices(requestedServices);
    peripheral->setNotifyValueForCharacteristic(true, find(peripheral, batteryLevelCharacteristic));
    ASSERT_TRUE(heard("disconnected error 6"));
    EXPECT_TRUE(heardNoMoreThan(4));
    EXPECT_THAT(takeEvents(), ElementsAre("value 2A26 error 3", "services error 3",
                                          "not notifying 2A19 error 3", "disconnected error 6"));
}

TEST_P(RadioPromises, AnAttemptThatFailsIsToldOnce) {
    bench->beaconComesIntoRange();
    const auto peripheral = sight();
    bench->makeAttemptsFail(true);
    connect(peripheral);
    EXPECT_EQ(peripheral->state(), CBPeripheralState::connecting);
    ASSERT_TRUE(heard("failed error 10"));
    EXPECT_EQ(peripheral->state(), CBPeripheralState::disconnected);
    bench->makeAttemptsFail(false);
    EXPECT_TRUE(heardNoMoreThan(1)) << "nothing tries again";
    connect(peripheral);
    ASSERT_TRUE(heard("connected"));
    EXPECT_THAT(listener->named, UnorderedElementsAre(central.get(), peripheral.get()));
}

TEST_P(RadioPromises, AnAttemptWaitsForTheBeaconUntilItIsCancelled) {
    bench->beaconComesIntoRange();
    const auto peripheral = sight();
    bench->beaconFallsSilent();
    connect(peripheral);
    EXPECT_TRUE(heardNoMoreThan(0));
    EXPECT_EQ(peripheral->state(), CBPeripheralState::connecting);
    connect(peripheral);
    bench->beaconComesIntoRange();
    ASSERT_TRUE(heard("connected"));
    EXPECT_TRUE(heardNoMoreThan(1)) << "both requests were one";
    connect(peripheral);
    ASSERT_TRUE(heard("connected", 2)) << "a link that is up is told once more";

    bench->beaconFallsSilent();
    eventsUntil("disconnected error 6");
    connect(peripheral);
    unlink(peripheral);
    bench->beaconComesIntoRange();
    EXPECT_TRUE(heardNoMoreThan(0));
    EXPECT_EQ(peripheral->state(), CBPeripheralState::disconnected);
}

TEST_P(RadioPromises, ARequestToConnectOutlivesTheEndThatWasAskedForBeforeIt) {
    const auto peripheral = link();
    central->cancelPeripheralConnection(peripheral);
    connect(peripheral);
    ASSERT_TRUE(heard("connected"));
    EXPECT_TRUE(heardNoMoreThan(2));
    EXPECT_THAT(takeEvents(), ElementsAre("disconnected", "connected"));
    EXPECT_EQ(peripheral->state(), CBPeripheralState::connected);
}

TEST_P(RadioPromises, AScanReportsWhatItIsAskedFor) {
    bench->beaconComesIntoRange();
    sight();
    const auto sightings = [&](const CBUUID& service, bool allowDuplicates) {
        central->scanForPeripheralsWithServicesOptions(std::array{service},
                                                       {.allowDuplicates = allowDuplicates});
        listener->sightings.clear();
        bench->runUntil([&] { return listener->sightings.size() > 1; }, 2 * RadioBench::aWhile);
        return listener->sightings.size();
    };
    EXPECT_EQ(sightings(unknown, true), 0U);
    EXPECT_EQ(sightings(CBUUID::UUIDWithString("1320"), false), 1U);
    EXPECT_GE(sightings(CBUUID::UUIDWithString("1320"), true), 2U);
    central->stopScan();
    listener->sightings.clear();
    EXPECT_FALSE(bench->runUntil([&] { return !listener->sightings.empty(); }, RadioBench::aWhile));
    scan();
    const std::weak_ptr gone = std::exchange(listener, nullptr);
    EXPECT_FALSE(bench->runUntil([&] { return !gone.expired(); }, RadioBench::aWhile));
}

TEST_P(RadioPromises, AMalformedPayloadCostsOneSightingAndAnotherExceptionLeavesTheLoop) {
    bench->beaconComesIntoRange();
    sight();
    const auto readTooFar = [](std::span<const std::uint8_t> data) { subdata(data, 0, data.size() + 1); };
    listener->onSighting = [&](const auto& data) { readTooFar(data.serviceData[0].data); };
    EXPECT_TRUE(bench->runUntil([&] { return listener->sightings.size() > 3; }));
    listener->onSighting = [&](const auto& data) {
        readTooFar(std::vector(data.serviceData[0].data.begin(), data.serviceData[0].data.end()));
    };
    EXPECT_THROW(bench->runUntil([] { return false; }), DataRangeError) << "a copy is not";
    listener->onSighting = [](const auto& /*data*/) { throw std::out_of_range("mine"); };
    EXPECT_THROW(bench->runUntil([] { return false; }), std::out_of_range);
    listener->onSighting = [](const auto& /*data*/) {};
    EXPECT_NE(sight(), nullptr) << "the loop can be run again";
}

TEST_P(RadioPromises, ValuesAreNotifiedWhileSubscribedAndLinked) {
    const auto peripheral = link();
    discover(peripheral);
    const auto subscribe = [&](bool enabled) {
        peripheral->setNotifyValueForCharacteristic(enabled, find(peripheral, batteryLevelCharacteristic));
        eventsUntil(enabled ? "notifying 2A19" : "not notifying 2A19");
    };
    bench->setValue(batteryLevelCharacteristic, {50});
    subscribe(true);
    bench->setValue(batteryLevelCharacteristic, {49});
    bench->setValue(batteryLevelCharacteristic, {49});
    ASSERT_TRUE(heard("value 2A19", 2)) << "a value is told as often as it is notified";
    EXPECT_THAT(listener->lastValue, ElementsAre(49));
    EXPECT_THAT(takeEvents(), ElementsAre("value 2A19", "value 2A19"));
    subscribe(false);
    bench->setValue(batteryLevelCharacteristic, {48});
    EXPECT_TRUE(heardNoMoreThan(0));
    subscribe(true);
    const auto characteristic = find(peripheral, batteryLevelCharacteristic);
    bench->beaconFallsSilent();
    ASSERT_TRUE(heard("disconnected error 6"));
    EXPECT_FALSE(characteristic->isNotifying());
    link();
    discover(peripheral);
    bench->setValue(batteryLevelCharacteristic, {47});
    EXPECT_TRUE(heardNoMoreThan(0)) << "it ended with the link";
    subscribe(true);
    bench->setValue(batteryLevelCharacteristic, {46});
    ASSERT_TRUE(heard("value 2A19"));
    EXPECT_TRUE(heardNoMoreThan(1)) << "once, not twice";
}

TEST_P(RadioPromises, PowerOffEndsLinkAndScanAndIsToldInOneOrder) {
    const auto peripheral = link();
    discover(peripheral);
    bench->beaconFallsSilent();
    peripheral->readValueForCharacteristic(find(peripheral, firmwareRevisionCharacteristic));
    bench->setRadioPower(false);
    EXPECT_THAT(eventsUntil("disconnected error 5"),
                ElementsAre("state 4", "value 2A26 error 3", "disconnected error 5"));
    EXPECT_FALSE(central->isScanning());
    connect(peripheral);
    ASSERT_TRUE(heard("failed error 5"));
    EXPECT_EQ(peripheral->state(), CBPeripheralState::disconnected);

    takeEvents();
    bench->setRadioPower(true);
    ASSERT_TRUE(heard("state 5"));
    listener->sightings.clear();
    bench->beaconComesIntoRange();
    EXPECT_FALSE(bench->runUntil([&] { return !listener->sightings.empty(); }, RadioBench::aWhile))
        << "the scan is forgotten";
    EXPECT_THAT(takeEvents(), ElementsAre("state 5"));

    bench->beaconFallsSilent();
    connect(peripheral);
    EXPECT_TRUE(heardNoMoreThan(0));
    bench->setRadioPower(false);
    ASSERT_TRUE(heardSoMany(2));
    EXPECT_THAT(takeEvents(), ElementsAre("state 4", "failed error 5"));
}

TEST_P(RadioPromises, ARequestToNothingIsHarmless) {
    const auto peripheral = link();
    discover(peripheral);
    const auto firmware = find(peripheral, firmwareRevisionCharacteristic);
    const auto service = (*peripheral->services())[0];
    const auto askForAll = [&](const auto& theService, const auto& theCharacteristic) {
        peripheral->discoverCharacteristicsForService(std::array{unknown}, theService);
        peripheral->readValueForCharacteristic(theCharacteristic);
        peripheral->writeValueForCharacteristicType({}, theCharacteristic, withResponse);
        peripheral->setNotifyValueForCharacteristic(true, theCharacteristic);
    };
    askForAll(nullptr, nullptr);
    central->connectPeripheral(nullptr);
    central->cancelPeripheralConnection(nullptr);
    unlink(peripheral);
    askForAll(service, firmware);
    peripheral->discoverServices(requestedServices);
    peripheral->readRSSI();
    central->cancelPeripheralConnection(peripheral);
    const auto stranger = RadioRecorder::make();
    const auto other = platform.makeCentralManager(stranger);
    ASSERT_TRUE(bench->runUntil([&] { return !stranger->events.empty(); }));
    other->connectPeripheral(peripheral);
    other->cancelPeripheralConnection(peripheral);
    EXPECT_TRUE(heardNoMoreThan(0));
    EXPECT_THAT(stranger->events, ElementsAre("state 5"));
}

TEST_P(RadioPromises, AShutDownEndsScanAndLinkForGood) {
    const auto peripheral = link();
    listener->onEvent = [&](const std::string& event) {
        EXPECT_EQ(event, "disconnected");
        EXPECT_THROW(platform.shutDown(), std::logic_error) << "from inside the loop";
        scan();
        central->connectPeripheral(peripheral);
        platform.runLoop().stop();
        listener->onEvent = [](const auto& /*event*/) {};
        throw std::domain_error("the delegate's");
    };
    const auto start = platform.clock().monotonicTime();
    EXPECT_THROW(platform.shutDown(), std::domain_error);
    EXPECT_LT(platform.clock().monotonicTime() - start, std::chrono::seconds(4));
    EXPECT_FALSE(central->isScanning());
    EXPECT_TRUE(heard("failed error 5"));
    EXPECT_EQ(peripheral->state(), CBPeripheralState::disconnected);

    const auto stranger = RadioRecorder::make();
    const auto late = platform.makeCentralManager(stranger);
    stranger->onEvent = [&](const auto& /*event*/) { late->scanForPeripheralsWithServicesOptions({}, {}); };
    scan();
    EXPECT_TRUE(heardNoMoreThan(1));
    EXPECT_FALSE(central->isScanning() || late->isScanning());
    EXPECT_TRUE(platform.shutDown(0)) << "nothing is left";
}

}  // namespace
