// Connections over the simulated radio: what may happen at the same moment, and what can be scripted.

#include <set>

#include "ManagerTest.h"
#include "RadioRecorder.h"
#include "ZobiConnectKit/ZOKGATTProfile.h"

namespace {

using namespace zobi::platform;
using namespace zobi::platform::simulation;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using zobi::BeaconDescription;
using zobi::SimulatedBeacon;

class SimulatedConnectionTest : public ManagerTest {
protected:
    SimulatedConnectionTest() {
        application->monitors = true;
        manager->startMonitoring();
        loop.processPending();
        takeEvents();
    }

    /// A beacon that is live.
    SimulatedBeacon& addLive(BeaconDescription description) {
        SimulatedBeacon& beacon = addBeacon(std::move(description));
        const std::size_t before = manager->liveBeacons().size();
        beacon.comeIntoRange();
        pass(0.001);
        EXPECT_EQ(manager->liveBeacons().size(), before + 1);
        return beacon;
    }
    std::shared_ptr<ZOKBeacon> record(std::size_t index = 0) { return manager->liveBeacons().at(index); }
    void connect(std::size_t index = 0) {
        manager->connectBeaconWithCompletion(record(index), application->completion("complete"));
    }
    /// A beacon that is live and linked.
    SimulatedBeacon& link(BeaconDescription description = {}) {
        SimulatedBeacon& beacon = addLive(std::move(description));
        connect();
        pass(1);
        EXPECT_EQ(takeEvents(), connected);
        return beacon;
    }

    static NSError error(CBError code) { return {code, "Scripted."}; }

    const Events connected{"connected", "ZOKBeaconDidConnectNotification", "complete"};
};

TEST_F(SimulatedConnectionTest, ALinkThatDiesDuringDiscoveryMayBeReportedAndAtOnceEnded) {
    // Up at 0.2 s; the answer to the services at 1.2 s, the first to the characteristics at 2.2 s.
    SimulatedBeacon& beacon = addLive({.link = {.responseDelay = 1}});
    connect();
    pass(0.9);
    beacon.endLink(error(CBError::peripheralDisconnected));
    loop.processPending();
    EXPECT_THAT(takeEvents(), ElementsAre("disconnected error 7", "ZOKBeaconDidDisconnectNotification"));

    connect();
    pass(2);
    EXPECT_EQ(manager->nbChars(), 0) << "nothing of the last link is answered over this one";
    application->onEvent = [&](const std::string& event) {
        // Still: the end has not been told.
        if (event != "connected") return;
        EXPECT_EQ(record()->peripheral()->state(), CBPeripheralState::connected);
        manager->temperatureForBeaconWithCompletion(record(), nullptr);
        manager->disconnectBeacon(record());
    };
    beacon.endLink(error(CBError::peripheralDisconnected));
    pass(1);
    Events both = connected;
    both.insert(both.end(), {"disconnected error 7", "ZOKBeaconDidDisconnectNotification"});
    EXPECT_EQ(takeEvents(), both) << "seven answers are seven answers";
    EXPECT_EQ(manager->nbChars(), 7);

    connect();
    pass(2);
    application->onEvent = [](const std::string& event) {
        if (event == "connected") throw std::runtime_error("mine");
    };
    beacon.endLink(error(CBError::peripheralDisconnected));
    EXPECT_THROW(pass(1), std::runtime_error);
    EXPECT_THAT(takeEvents(), ElementsAre("disconnected error 7", "ZOKBeaconDidDisconnectNotification"))
        << "an exception out of one callback keeps no other from being made";
    EXPECT_EQ(record()->peripheral()->state(), CBPeripheralState::disconnected);
}

TEST_F(SimulatedConnectionTest, PowerOffDuringAttemptAndLinkIsTold) {
    addLive({.minor = 1});
    addLive({.minor = 2, .link = {.connectionDelay = 10}});
    addLive({.minor = 3});
    for (const std::size_t index : {2U, 1U, 0U, 1U}) {
        record(index)->setDisconnectionCompletionBlock(
            application->completion("end " + std::to_string(index)));
        connect(index);
        pass(index == 1 ? 0 : 1);
    }
    takeEvents();
    std::size_t toldBeforeFailure = 0;
    std::vector<std::ptrdiff_t> linked;
    application->onEvent = [&](const std::string& event) {
        if (event == "complete error 5" &&
            std::exchange(toldBeforeFailure, application->events.size()) == 0) {
            throw std::runtime_error("mine");
        }
        if (event != "disconnected error 5") return;
        linked.push_back(std::ranges::count_if(platform.world().devices(),
                                               [](const auto& device) { return device->isConnected(); }));
    };
    EXPECT_THROW(setRadio(CBManagerState::poweredOff), std::runtime_error);
    EXPECT_THAT(
        takeEvents(),
        ElementsAre("state 4", "disconnected error 5", "ZOKBeaconDidDisconnectNotification", "end 2 error 5",
                    "disconnected error 5", "ZOKBeaconDidDisconnectNotification", "end 0 error 5"))
        << "in the order in which the connections were asked for, whatever is thrown";
    EXPECT_EQ(toldBeforeFailure, 4U) << "both requests for it were one";
    EXPECT_THAT(linked, ElementsAre(1, 0)) << "each link is down when its end is told";
    setRadio(CBManagerState::poweredOn);
    pass(20);
    EXPECT_THAT(takeEvents(), ElementsAre("state 5")) << "nothing connects again by itself";
}

TEST_F(SimulatedConnectionTest, ADiscoveryThatFailsIsAnAnswerAndFindsNothing) {
    SimulatedBeacon& beacon = addLive({});
    beacon.gatt().setDiscoveryError(CBUUID::UUIDWithString("FFA0"), error(CBError::unknown));
    connect();
    pass(5);
    EXPECT_EQ(takeEvents(), connected);
    const auto peripheral = record()->peripheral();
    const auto& services = *peripheral->services();
    const auto failed = std::ranges::find(services, ZOKGATTProfile::accelerometerService, &CBService::UUID);
    EXPECT_FALSE((*failed)->characteristics());
    manager->disconnectBeacon(record());
    pass(1);
    beacon.setServiceDiscoveryError(error(CBError::unknown));
    connect();
    pass(5);
    EXPECT_THAT(takeEvents(), ElementsAre("disconnected", "ZOKBeaconDidDisconnectNotification"));
    EXPECT_EQ(peripheral->state(), CBPeripheralState::connected);
    EXPECT_THAT(log, ::testing::Contains("Error in didDiscoverServices: Scripted."));
    EXPECT_FALSE(peripheral->services());
}

TEST_F(SimulatedConnectionTest, AShortSilenceDelaysAnswersAndALongOneEndsTheLink) {
    SimulatedBeacon& beacon = link();
    manager->setBatteryNotificationsForBeacon(true, record());
    pass(1);
    manager->temperatureForBeaconWithCompletion(record(), nullptr);
    pass(0.01);
    beacon.goOutOfRange();
    beacon.setBatteryLevel(5);
    pass(1.9);
    EXPECT_THAT(takeEvents(), IsEmpty());
    beacon.comeIntoRange();
    pass(0.1);
    EXPECT_THAT(takeEvents(), ElementsAre("temperature 20", "ZOKBeaconDidTemperatureChangeNotification 20"));
    pass(5);
    EXPECT_THAT(takeEvents(), IsEmpty()) << "the link was not lost";
    beacon.goOutOfRange();
    pass(1.999);
    EXPECT_THAT(takeEvents(), IsEmpty());
    pass(0.002);
    EXPECT_THAT(takeEvents(), ElementsAre("disconnected error 6", "ZOKBeaconDidDisconnectNotification"))
        << "after the supervision timeout";
}

TEST_F(SimulatedConnectionTest, ALinkedBeaconFallsSilentOnTheAir) {
    SimulatedBeacon& beacon = link({.advertisingInterval = 0.5});
    manager->setButtonActionsNotificationsForBeacon(true, record());
    pass(1);
    takeLog();
    beacon.sendOnce({{CBUUID::UUIDWithString("180A"), {}}});
    beacon.pressButton(2, 1);
    pass(10);
    EXPECT_THAT(takeLog(), ElementsAre(::testing::StartsWith("DeltaTime: "))) << "nothing is received";
    EXPECT_THAT(takeEvents(), ElementsAre("button 1")) << "as a value";
    const auto before = record()->timestamp();
    manager->disconnectBeacon(record());
    pass(5);
    EXPECT_GT(record()->timestamp(), before + 4) << "it advertises again";
}

TEST_F(SimulatedConnectionTest, ABeaconHasOneLinkAndAManagerThatGoesAwayGivesItBack) {
    SimulatedBeacon& beacon = addLive({});
    const auto otherManager = ZOKManager::managerOnPlatform(platform);
    const auto other = ManagerRecorder::of(otherManager);
    other->monitors = true;
    pass(2);
    connect();
    pass(1);
    ASSERT_EQ(otherManager->liveBeacons().size(), 1U);
    otherManager->connectBeacon(otherManager->liveBeacons()[0]);
    pass(5);
    EXPECT_TRUE(beacon.isConnected());
    EXPECT_EQ(takeEvents(), connected);
    EXPECT_THAT(other->events, ElementsAre("state 5"));
    const auto kept = record();
    manager->stopMonitoring();
    platform.notificationCenter().clear();
    manager.reset();
    EXPECT_EQ(kept->peripheral()->state(), CBPeripheralState::disconnected);
    pass(5);
    EXPECT_THAT(other->events, ElementsAre("state 5", "connected"));
}

TEST_F(SimulatedConnectionTest, ValuesAreGeneratedWhileLinked) {
    BeaconDescription description;
    const auto characteristic = [&](std::size_t service, std::size_t place) -> CharacteristicDescription& {
        return description.services[service].characteristics[place];
    };
    characteristic(3, 0).generated = pickedValue(1, {{1}, {3}});
    characteristic(4, 0).generated = swingingValue(0.25, 100, 300, 1);
    characteristic(4, 1).generated = driftingValue(1, 500, 510, 3);
    characteristic(0, 0).generated = pickedValue(1000, {{'7'}});
    link(description);
    pass(0.1);
    manager->setAccelerometerNotificationsForBeacon(true, record());
    manager->setButtonActionsNotificationsForBeacon(true, record());
    std::set<std::int64_t> swing;
    std::vector<std::int64_t> drift;
    for (int i = 0; i < 400; ++i) {
        pass(0.25);
        swing.insert(record()->accelerometer().axisX);
        if (i % 4 == 3) drift.push_back(record()->accelerometer().axisY);
    }
    EXPECT_THAT(swing, ::testing::IsSubsetOf({0, 100, 200, 300}));
    EXPECT_GE(swing.size(), 3U);
    for (std::size_t i = 1; i < drift.size(); ++i) EXPECT_LE(std::abs(drift[i] - drift[i - 1]), 3);
    EXPECT_GT(std::set(drift.begin(), drift.end()).size(), 5U);
    EXPECT_THAT(drift, ::testing::Each(::testing::AllOf(::testing::Ge(500), ::testing::Le(510))));
    manager->firmwareVersionForBeaconWithCompletion(record(), nullptr);
    pass(1);
    EXPECT_EQ(record()->firmwareVersion(), "7") << "the first comes with the link";
    const Events events = takeEvents();
    EXPECT_GE(std::ranges::count(events, "button 0") + std::ranges::count(events, "button 2"), 99);
    EXPECT_GT(std::ranges::count(events, "button 0"), 20);
    EXPECT_GT(std::ranges::count(events, "button 2"), 20);
    manager->stopMonitoring();
    manager->disconnectBeacon(record());
    pass(1);
    EXPECT_LE(loop.timerCount(), 1U) << "its advertisements' alone";
}

TEST_F(SimulatedConnectionTest, AGeneratorThatFailsKeepsNoLinkFromBeingReported) {
    BeaconDescription description;
    const auto generate = [&](std::size_t service, const auto& next) {
        description.services[service].characteristics[0].generated = GeneratedValue{1, next};
    };
    generate(1, [](auto&) -> std::vector<std::uint8_t> { throw std::runtime_error("mine"); });
    generate(3, [](auto&) { return std::vector<std::uint8_t>(maximumValueSize + 1); });
    generate(5, [](auto&) { return std::vector<std::uint8_t>{0, 25}; });
    SimulatedBeacon& beacon = addLive(description);
    connect();
    EXPECT_THROW(pass(1), std::runtime_error) << "with the link";
    EXPECT_EQ(record()->peripheral()->state(), CBPeripheralState::connected);
    pass(0.9);
    EXPECT_EQ(takeEvents(), connected);
    EXPECT_THAT(*beacon.gatt().value(ZOKGATTProfile::temperatureCharacteristic), ElementsAre(0, 25));
    for (int tick = 0; tick < 2; ++tick) {
        EXPECT_THROW(pass(0.5), std::runtime_error);
        EXPECT_THROW(pass(0.5), std::invalid_argument);
        pass(0.5);
    }
}

TEST_F(SimulatedConnectionTest, WhatTheDescriptionDoesNotAllowIsRefused) {
    BeaconDescription description;
    description.services.push_back(description.services[1]);
    SimulatedBeacon& beacon = link(description);
    pass(4);
    const auto peripheral = record()->peripheral();
    const auto listener = RadioRecorder::make();
    peripheral->setDelegate(listener);
    const auto find = [&](const CBUUID& uuid) { return discoveredCharacteristic(*peripheral, uuid); };
    using namespace ZOKGATTProfile;
    const auto mode = find(buttonModeCharacteristic);
    const auto write = [&](const auto& characteristic, std::size_t size, CBCharacteristicWriteType type) {
        peripheral->writeValueForCharacteristicType(std::vector<std::uint8_t>(size, 7), characteristic, type);
    };
    using enum CBCharacteristicWriteType;
    beacon.gatt().setNotifyError(batteryLevelCharacteristic, error(CBError::unknown));
    beacon.gatt().setWriteError(alertLevelCharacteristic, error(CBError::unknown));
    peripheral->setNotifyValueForCharacteristic(true, find(firmwareRevisionCharacteristic));
    peripheral->setNotifyValueForCharacteristic(true, find(batteryLevelCharacteristic));
    write(find(alertLevelCharacteristic), 1, withResponse);
    write(find(alertLevelCharacteristic), 1, withoutResponse);
    write(mode, 1, withoutResponse);
    write(mode, 513, withResponse);
    peripheral->setNotifyValueForCharacteristic(true, find(temperatureCharacteristic));
    peripheral->discoverCharacteristicsForService(std::array{buttonModeCharacteristic},
                                                  peripheral->services()->at(6));
    pass(5);
    beacon.gatt().setWriteError(buttonModeCharacteristic, error(CBError::unknown));
    beacon.gatt().setReadError(firmwareRevisionCharacteristic, error(CBError::unknown));
    beacon.setSignalReadError(error(CBError::unknown));
    write(mode, 2, withResponse);
    peripheral->readValueForCharacteristic(find(firmwareRevisionCharacteristic));
    peripheral->readRSSI();
    beacon.setTemperature(21);
    EXPECT_FALSE(find(temperatureCharacteristic)->value().has_value()) << "a value changes when it is told";
    pass(5);
    const std::string modeUUID = mode->UUID().UUIDString();
    EXPECT_THAT(
        listener->events,
        ElementsAre("not notifying 2A26 CBATTErrorDomain 6", "not notifying 2A19 error 0",
                    "written 2A06 CBATTErrorDomain 3", "written " + modeUUID + " CBATTErrorDomain 13",
                    "notifying FFF2", "characteristics F0002013-0451-4000-B000-000000000000", "value FFF2",
                    "written " + modeUUID + " error 0", "value 2A26 error 0", "rssi error 0"));
    EXPECT_THAT(*beacon.gatt().value(alertLevelCharacteristic), ElementsAre(7));
    EXPECT_THAT(*beacon.gatt().value(buttonModeCharacteristic), ElementsAre(0, 0));
    EXPECT_EQ(find(buttonModeCharacteristic), mode) << "found again, it is the same";
    beacon.gatt().setValue(batteryLevelCharacteristic, {1});
    EXPECT_THAT(*beacon.gatt().services()[1].characteristics[0].value, ElementsAre(1));
    EXPECT_THAT(*beacon.gatt().services()[7].characteristics[0].value, ElementsAre(1)) << "its twin";
}

TEST_F(SimulatedConnectionTest, WhatNoBeaconCanBeIsRefused) {
    const std::vector<std::function<void(BeaconDescription&, CharacteristicDescription&)>> changes{
        [](auto& it, auto&) { it.advertisingInterval = 0; },
        [](auto& it, auto&) { it.advertisingJitter = -1; },
        [](auto& it, auto&) { it.link.connectionDelay = -1; },
        [](auto& it, auto&) { it.link.responseDelay = std::nan(""); },
        [](auto& it, auto&) { it.link.supervisionTimeout = 0; },
        [](auto&, auto& its) { its.value->resize(maximumValueSize + 1); },
        [](auto&, auto& its) { its.generated = pickedValue(0, {{1}}); },
        [](auto&, auto& its) {
            its.generated = {1, nullptr};
        },
    };
    for (std::size_t i = 0; i < changes.size(); ++i) {
        BeaconDescription description;
        changes[i](description, description.services[0].characteristics[0]);
        EXPECT_THROW(zobi::addBeacon(platform.world(), description), std::invalid_argument) << i;
    }
    EXPECT_THROW(pickedValue(1, {}), std::invalid_argument);
    EXPECT_THROW(swingingValue(1, 2, 1, 1), std::invalid_argument);
    EXPECT_THROW(swingingValue(1, 1, 2, 0), std::invalid_argument);
    SimulatedBeacon& beacon = addBeacon({});
    EXPECT_THROW(beacon.setTemperature(70'000), std::invalid_argument);
    EXPECT_EQ(beacon.temperature(), 20);
    const auto absent = CBUUID::UUIDWithString("FEED");
    EXPECT_THROW(beacon.gatt().setValue(absent, {}), std::invalid_argument);
    EXPECT_THROW(beacon.gatt().setDiscoveryError(absent, std::nullopt), std::invalid_argument);
    EXPECT_THROW(beacon.gatt().setValue(CBUUID::UUIDWithString("2A19"), std::vector<std::uint8_t>(513)),
                 std::invalid_argument);
}

}  // namespace
