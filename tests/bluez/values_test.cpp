// Requests over a link, their answers, and the values that come over it.

#include <array>

#include "BlueZRadio.h"

namespace zobi::platform::bluez {
namespace {

using namespace ::testing;
using namespace ZOKGATTProfile;
using enum CBCharacteristicWriteType;

TEST_P(BlueZRadio, WhatTheServiceAnswersToOperationsIsToldInTheCodesOfTheSeam) {
    const auto peripheral = link();
    discover(peripheral);
    const auto button = find(peripheral, buttonActionCharacteristic);
    const auto temperature = find(peripheral, temperatureCharacteristic);
    const std::string attError = "Operation failed with ATT error: 0x";
    const std::map<char, std::string> operations{
        {'v', "ReadValue"}, {'w', "WriteValue"}, {'n', "StartNotify"}};
    const std::array<std::pair<const char*, Script>, 9> rows{{
        {"value FFE1 CBATTErrorDomain 2", fails("NotPermitted", "Read not permitted")},
        {"value FFE1 CBATTErrorDomain 159", fails("Failed", attError + "9f")},
        {"value FFE1 error 3", fails("Failed", "Not connected")},
        {"value FFE1 error 0", fails("Failed", attError + "gg")},
        {"value FFE1 error 0", neverAnswered},
        {"written FFE1 CBATTErrorDomain 3", fails("NotPermitted", "Write not permitted")},
        {"written FFE1 CBATTErrorDomain 13", fails("InvalidValueLength", "Invalid Length")},
        {"not notifying FFE1 CBATTErrorDomain 6", fails("NotSupported", "Operation is not supported")},
        {"not notifying FFE1 CBATTErrorDomain 6", fails("NotPermitted", "Notify acquired")},
    }};
    for (const auto& [event, script] : rows) {
        SCOPED_TRACE(script.error ? script.error->name + ' ' + script.error->message : "not answered");
        service.scripts = {{operations.at(event[0]), script}};
        if (event[0] == 'v') peripheral->readValueForCharacteristic(button);
        if (event[0] == 'w') peripheral->writeValueForCharacteristicType({}, button, withResponse);
        if (event[0] == 'n') peripheral->setNotifyValueForCharacteristic(true, button);
        peripheral->readValueForCharacteristic(temperature);
        EXPECT_THAT(eventsIn(script.error ? 5 : 120), ElementsAre(event, "value FFF2")) << "the next goes on";
    }
    service.removeObjects(beacon.characteristic(buttonActionCharacteristic).path);
    peripheral->readValueForCharacteristic(button);
    EXPECT_THAT(eventsIn(5), ElementsAre("value FFE1 error 2")) << "the service has it no longer";
    const auto askForRSSI = [&] {
        peripheral->readRSSI();
        return eventsIn(5);
    };
    EXPECT_THAT(askForRSSI(), ElementsAre("rssi"));
    machine.channel->rssi.reset();
    EXPECT_THAT(askForRSSI(), ElementsAre("rssi error 0"));
    machine.channel->answersRSSI = false;
    EXPECT_THAT(askForRSSI(), ElementsAre("rssi error 0"));
    machine.channel = nullptr;
    cyclePower();
    link()->readRSSI();
    EXPECT_THAT(eventsIn(5), ElementsAre("rssi error 0")) << "there is no way to the controller";
}

TEST_P(BlueZRadio, AReadIsToldOnceAndANotificationDuringItIsKept) {
    const auto peripheral = link();
    discover(peripheral);
    const auto button = find(peripheral, buttonActionCharacteristic);
    service.change(beacon.characteristic(buttonActionCharacteristic).path, gattCharacteristicInterface,
                   {{"Value", Bytes{1}}});
    EXPECT_THAT(eventsIn(5), IsEmpty()) << "somebody else has read it";
    peripheral->setNotifyValueForCharacteristic(true, button);
    peripheral->readValueForCharacteristic(button);
    EXPECT_THAT(eventsIn(5), ElementsAre("notifying FFE1", "value FFE1"));
    peripheral->readValueForCharacteristic(button);
    pass(0.02);
    service.setValue(beacon, buttonActionCharacteristic, {3});
    service.setValue(beacon, buttonActionCharacteristic, {2});
    EXPECT_THAT(eventsIn(5), ElementsAre("value FFE1", "value FFE1", "value FFE1"));
    EXPECT_THAT(listener->lastValue, ElementsAre(2));

    service.calls.clear();
    peripheral->setNotifyValueForCharacteristic(true, find(peripheral, batteryLevelCharacteristic));
    pass(0);
    service.endLink(beacon, 0x08);
    pass(5);
    // The service would notify over the next link: also of what it was asked for when this one ended.
    EXPECT_THAT(service.calls, UnorderedElementsAre(StartsWith("StartNotify"), StartsWith("StopNotify"),
                                                    StartsWith("StopNotify")));
}

TEST_P(BlueZRadio, AnAnswerThatComesLateOrTwiceReachesNoOtherRequest) {
    const auto peripheral = link();
    discover(peripheral);
    const auto read = [&] {
        peripheral->readValueForCharacteristic(find(peripheral, temperatureCharacteristic));
        pass(0.02);
    };
    service.scripts["ReadValue"] = {.repeats = true, .times = 1};
    read();
    peripheral->readRSSI();
    EXPECT_THAT(eventsIn(5), ElementsAre("value FFF2", "rssi"));
    read();
    machine.channel->answerRSSI();
    EXPECT_THAT(eventsIn(0), IsEmpty()) << "it is told already";
    EXPECT_THAT(eventsIn(5), ElementsAre("value FFF2"));

    // The link goes before the answer, and the next one has a request of its own when it comes. Between the
    // links nothing can be asked for.
    machine.channel->answersRSSI = false;
    listener->onEvent = [&](const std::string& event) {
        const bool tellsEnd = event.ends_with("error 3");
        if (tellsEnd) peripheral->readValueForCharacteristic(find(peripheral, temperatureCharacteristic));
    };
    for (const bool asksController : {true, false}) {
        service.scripts["ReadValue"] = {.delay = 6, .times = 1};
        asksController ? peripheral->readRSSI() : read();
        service.endLink(beacon, 0x13);
        EXPECT_THAT(eventsIn(1), ElementsAre(asksController ? "rssi error 3" : "value FFF2 error 3",
                                             "disconnected error 7"));
        link();
        discover(peripheral);
        service.scripts["ReadValue"] = {.delay = 6, .times = 1};
        read();
        machine.channel->answerRSSI();
        EXPECT_THAT(eventsIn(5.9), IsEmpty()) << "it is late";
        EXPECT_THAT(eventsIn(5), ElementsAre("value FFF2"));
    }

    int answers = 0;
    const auto bus = service.openBus({machine.runLoop(), machine.clock()});
    pass(1);
    // Nobody listens.
    signal({});
    service.scripts["GetNameOwner"] = {.repeats = true};
    const Slot slot = bus->call(bus->makeCall({busName, busPath, busInterface, "GetNameOwner"}),
                                [&](auto& /*reply*/, const auto* /*error*/) { ++answers; });
    pass(1);
    EXPECT_EQ(answers, 1);
}

TEST_P(BlueZRadio, ServicesOfOneUUIDAreToldApart) {
    link();
    service.endLink(beacon, 0x13);
    eventsUntil("disconnected error 7");
    // Of its services, the next link brings signals of the new one alone.
    beacon.services.push_back(beacon.services[1]);
    service.calls.clear();
    const auto peripheral = link();
    EXPECT_EQ(callsOf("GetManagedObjects"), 0) << "the signals have told the table";
    peripheral->discoverServices(std::array{batteryService});
    ASSERT_TRUE(heard("services"));
    ASSERT_THAT(*peripheral->services(), SizeIs(2));
    beacon.services[1].characteristics[0].value = Bytes{10};
    beacon.services.back().characteristics[0].value = Bytes{11};
    for (std::size_t i = 0; i < 2; ++i) {
        const auto offered = (*peripheral->services())[i];
        peripheral->discoverCharacteristicsForService(std::array{batteryLevelCharacteristic}, offered);
        ASSERT_TRUE(heard("characteristics 180F", i + 1));
        peripheral->readValueForCharacteristic(offered->characteristics()->at(0));
        ASSERT_TRUE(heard("value 2A19", i + 1));
        EXPECT_THAT(listener->lastValue, ElementsAre(10 + i));
    }
    service.crash();
    beacon.services.pop_back();
    service.start();
    ASSERT_TRUE(heard("state 5"));
    link();
    peripheral->discoverServices(std::array{batteryService});
    ASSERT_TRUE(heard("services"));
    EXPECT_THAT(*peripheral->services(), SizeIs(1)) << "a table ends with the life of the service";
}

TEST_P(BlueZRadio, ASubscriptionThatEndsIsRenewedOnceAndThenToldToHaveEnded) {
    const auto peripheral = reach(linked);
    const auto level = find(peripheral, batteryLevelCharacteristic);
    const auto path = beacon.characteristic(batteryLevelCharacteristic).path;
    const auto isEnded = [&] {
        service.calls.clear();
        service.change(path, gattCharacteristicInterface, {{"Notifying", false}});
        return eventsIn(5);
    };
    EXPECT_THAT(isEnded(), IsEmpty());
    EXPECT_THAT(service.calls, ElementsAre("StartNotify " + path));
    service.setValue(beacon, batteryLevelCharacteristic, {50});
    EXPECT_THAT(eventsIn(1), ElementsAre("value 2A19"));
    EXPECT_THAT(isEnded(), ElementsAre("not notifying 2A19 error 0"));
    EXPECT_THAT(service.calls, IsEmpty());
    peripheral->setNotifyValueForCharacteristic(true, level);
    EXPECT_THAT(eventsIn(1), ElementsAre("notifying 2A19"));
    service.scripts["StartNotify"] = fails("Failed", "Operation failed with ATT error: 0x0e");
    EXPECT_THAT(isEnded(), ElementsAre("not notifying 2A19 CBATTErrorDomain 14"));
    peripheral->setNotifyValueForCharacteristic(false, level);
    EXPECT_THAT(eventsIn(1), ElementsAre("not notifying 2A19"));
    EXPECT_THAT(isEnded(), IsEmpty()) << "there is none";
    EXPECT_THAT(service.calls, IsEmpty());
}

}  // namespace
}  // namespace zobi::platform::bluez
