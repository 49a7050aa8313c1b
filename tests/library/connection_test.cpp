// Connections as the library sees them: the very calls, lines and callbacks, and their order.

#include <tuple>

#include "ManagerTest.h"
#include "SeamRecorders.h"

namespace {

using namespace zobi::platform;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

const std::string modeUUID = "F000FF97-0451-4000-B000-000000000000";
const std::string configurationUUID = "F0002013-0451-4000-B000-000000000000";

/// A record with a peripheral that was never sighted, at a manager whose central only notes what is asked.
class ConnectionTest : public ManagerTest {
protected:
    ConnectionTest() {
        manager->setCentralManager(central);
        record->setPeripheral(peripheral);
        platform.virtualTime()->setTimeIntervalSince1970(4'294'967'296.9);
        takeLog();
        takeEvents();
    }

    void linkUp() { manager->centralManagerDidConnectPeripheral(*central, peripheral); }
    void linkDown(const NSError* error) {
        manager->centralManagerDidDisconnectPeripheralError(*central, peripheral, error);
    }
    void answerCharacteristics(int count, const NSError* error = nullptr) {
        for (int i = 0; i < count; ++i) {
            manager->peripheralDidDiscoverCharacteristicsForServiceError(peripheral, nullptr, error);
        }
    }
    void deliver(std::string_view uuid, std::optional<std::vector<std::uint8_t>> value,
                 const NSError* error = nullptr) {
        manager->peripheralDidUpdateValueForCharacteristicError(
            peripheral, foundCharacteristic(uuid, std::move(value)), error);
    }

    const NSError lost{CBError::connectionTimeout, "It is gone"};
    const NSError ended{CBError::peripheralDisconnected, "It hung up"};
    std::shared_ptr<RecordingCentral> central = std::make_shared<RecordingCentral>();
    std::shared_ptr<RecordingPeripheral> peripheral = std::make_shared<RecordingPeripheral>();
    std::shared_ptr<ZOKBeacon> record = makeRecord(12, 345, 5);
};

TEST_F(ConnectionTest, ConnectingTakesItsStepsInOrder) {
    Events steps;
    const auto note = [&](std::string_view step) {
        steps.push_back(std::string(step) + ", stamp " + std::to_string(record->timestamp()) + ", " +
                        std::to_string(manager->liveBeacons().size()) + " live" +
                        (record->connectionCompletionBlock() ? ", completion" : ""));
    };
    platform.log().setSink(note);
    central->onCall = note;
    manager->connectBeaconWithCompletion(record, application->completion("first"));
    EXPECT_THAT(steps, ElementsAre("peripheral delegate is nil, setting to self, stamp 5, 0 live",
                                   "---->ConnectPeripheral started, stamp 0, 1 live, completion",
                                   "connect, stamp 0, 1 live, completion"));
    EXPECT_EQ(peripheral->delegate(), manager);
    for (const bool keeps : {true, false}) {
        steps.clear();
        record->setTimestamp(9);
        keeps ? manager->connectBeacon(record) : manager->connectBeaconWithCompletion(record, nullptr);
        const std::string completion = keeps ? ", completion" : "";
        EXPECT_THAT(steps, ElementsAre("Beacon already present in live beacons, stamp 0, 1 live, completion",
                                       "---->ConnectPeripheral started, stamp 0, 1 live" + completion,
                                       "connect, stamp 0, 1 live" + completion));
    }
    EXPECT_THAT(central->calls, ::testing::Each(Pair("connect", peripheral)));

    const auto other = std::make_shared<RecordingPeripheral>();
    const auto othersDelegate = std::make_shared<CBPeripheralDelegate>();
    other->setDelegate(othersDelegate);
    record->setPeripheral(other);
    steps.clear();
    manager->connectBeacon(record);
    EXPECT_EQ(other->delegate(), othersDelegate);
    EXPECT_EQ(steps.size(), 3U);
    central->onCall = [&](const auto& call) {
        EXPECT_EQ(call, "cancel");
        EXPECT_TRUE(record->disconnectionCompletionBlock());
    };
    manager->disconnectBeaconWithCompletion(record, application->completion("last"));
    manager->disconnectBeacon(record);
}

TEST_F(ConnectionTest, NothingIsAskedOfAnAbsentRecordOrPeripheral) {
    manager->connectBeacon(nullptr);
    manager->connectBeaconWithCompletion(nullptr, application->completion("never"));
    EXPECT_THAT(central->calls, IsEmpty());
    EXPECT_THAT(takeLog(), IsEmpty());
    manager->disconnectBeacon(nullptr);
    manager->disconnectBeaconWithCompletion(nullptr, application->completion("never"));
    EXPECT_THAT(central->calls, ElementsAre(Pair("cancel", nullptr), Pair("cancel", nullptr)));

    central->calls.clear();
    record->setPeripheral(nullptr);
    manager->connectBeacon(record);
    EXPECT_THAT(takeLog(),
                ElementsAre("peripheral delegate is nil, setting to self", "---->ConnectPeripheral started"));
    EXPECT_EQ(record->timestamp(), 0);
    EXPECT_THAT(manager->liveBeacons(), ElementsAre(record));
    manager->disconnectBeacon(record);
    EXPECT_THAT(central->calls, ElementsAre(Pair("connect", nullptr), Pair("cancel", nullptr)));

    manager->centralManagerDidConnectPeripheral(*central, nullptr);
    manager->centralManagerDidFailToConnectPeripheralError(*central, nullptr, &ended);
    manager->peripheralDidDiscoverServices(nullptr, nullptr);
    manager->peripheralDidUpdateValueForCharacteristicError(nullptr, nullptr, nullptr);
    manager->RSSITimerFired(nullptr);
    manager->RSSIForBeaconWithCompletion(record, nullptr);
    for (const auto& absent : {record, std::shared_ptr<ZOKBeacon>()}) {
        manager->pingBeacon(absent);
        manager->temperatureForBeaconWithCompletion(absent, application->completion("never"));
        manager->setAccelerometerNotificationsForBeacon(true, absent);
        manager->stopRSSIMonitoringForBeacon(absent);
    }
    manager->startRSSIMonitoringForBeaconIntervalWithCompletion(nullptr, 1, nullptr);
    EXPECT_THAT(manager->rssiMonitoringTimersDic(), IsEmpty());
    EXPECT_THAT(takeEvents(), IsEmpty());
}

TEST_F(ConnectionTest, ALinkThatIsUpIsStampedAndAskedForItsServices) {
    manager->addLiveBeacon(record);
    linkUp();
    EXPECT_EQ(record->timestamp(), 4'294'967'296);
    const std::string request = "discover FFE0 180F " + configurationUUID + " 1802 FFA0 FFF0 180A";
    EXPECT_THAT(peripheral->takeCalls(), ElementsAre(request));
    EXPECT_THAT(takeLog(), IsEmpty());

    manager->setLiveBeacons({});
    manager->setNbChars(3);
    linkUp();
    EXPECT_EQ(manager->nbChars(), 0);
    EXPECT_THAT(peripheral->takeCalls(), ElementsAre(request)) << "known or not";
    EXPECT_THAT(takeLog(), ElementsAre("No beacon returned from peripheral"));
    EXPECT_THAT(takeEvents(), IsEmpty());
}

TEST_F(ConnectionTest, OnlyCode6ConnectsAgainAndDoesSoBeforeTheEndIsReported) {
    manager->addLiveBeacon(record);
    manager->disconnectBeaconWithCompletion(record, application->completion("completion"));
    central->calls.clear();
    application->onEvent = [&](const std::string& event) { platform.log().log("told: %@", event); };
    const NSError foreign("SomeDomain", 6, "It is gone");
    for (const NSError* error : {&lost, &foreign}) {
        linkDown(error);
        EXPECT_THAT(takeLog(),
                    ElementsAre("It is gone, reconnecting...", "peripheral delegate is nil, setting to self",
                                "Beacon already present in live beacons", "---->ConnectPeripheral started",
                                "told: disconnected error 6", "told: ZOKBeaconDidDisconnectNotification",
                                "told: completion error 6"));
        EXPECT_THAT(central->calls, ElementsAre(Pair("connect", peripheral)));
        EXPECT_EQ(record->timestamp(), 0);
        central->calls.clear();
        peripheral->setDelegate({});
    }
    linkDown(&ended);
    linkDown(nullptr);
    EXPECT_THAT(takeLog(),
                ElementsAre("told: disconnected error 7", "told: ZOKBeaconDidDisconnectNotification",
                            "told: completion error 7", "told: disconnected",
                            "told: ZOKBeaconDidDisconnectNotification", "told: completion"));
    manager->setLiveBeacons({});
    linkDown(&lost);
    EXPECT_THAT(takeLog(),
                ElementsAre("No beacon returned from peripheral", "It is gone, reconnecting...",
                            "told: disconnected error 6", "told: ZOKBeaconDidDisconnectNotification"));
    EXPECT_THAT(takeEvents(), ::testing::Contains("disconnected error 6 of nothing"));
    EXPECT_THAT(central->calls, IsEmpty());
}

TEST_F(ConnectionTest, EachKnownServiceIsAskedForItsCharacteristicsInTheOrderItIsListed) {
    manager->peripheralDidDiscoverServices(peripheral, &ended);
    EXPECT_THAT(takeLog(), ElementsAre("didDiscoverServices", "Error in didDiscoverServices: It hung up"));
    manager->peripheralDidDiscoverServices(peripheral, nullptr);
    EXPECT_THAT(takeLog(), ElementsAre("didDiscoverServices", "No services detected"));
    peripheral->found.emplace();
    manager->peripheralDidDiscoverServices(peripheral, nullptr);
    EXPECT_THAT(takeLog(), ElementsAre("didDiscoverServices", "Nb services found: 0"));
    EXPECT_THAT(peripheral->takeCalls(), IsEmpty());
    for (const std::string_view uuid :
         {"FFF0", "1801", "180A", "0000ffa0-0000-1000-8000-00805f9b34fb", "FFF0", "180F",
          "f0002013-0451-4000-b000-000000000000", "1802", "FFE0", "FEED"}) {
        peripheral->found->push_back(foundService(uuid));
    }
    manager->peripheralDidDiscoverServices(peripheral, nullptr);
    EXPECT_THAT(takeLog(), ElementsAre("didDiscoverServices", "Nb services found: 10"));
    EXPECT_THAT(peripheral->takeCalls(),
                ElementsAre("FFF0: FFF2", "180A: 2A26", "FFA0: FFA2 FFA3 FFA4", "FFF0: FFF2", "180F: 2A19",
                            configurationUUID + ": " + modeUUID, "1802: 2A06", "FFE0: FFE1"));
}

TEST_F(ConnectionTest, OnlyTheCompletionHearsOfAFailedAttemptAndAllOfTheSeventhAnswerSinceTheLinkCameUp) {
    manager->connectBeaconWithCompletion(record, application->completion("completion"));
    for (int i = 0; i < 2; ++i) {
        manager->centralManagerDidFailToConnectPeripheralError(*central, peripheral, &ended);
        EXPECT_THAT(takeEvents(), ElementsAre("completion error 7"));
    }
    EXPECT_EQ(record->timestamp(), 0);
    EXPECT_THAT(manager->liveBeacons(), ElementsAre(record));
    EXPECT_EQ(central->calls.size(), 1U);

    linkUp();
    answerCharacteristics(3);
    answerCharacteristics(3, &ended);
    EXPECT_THAT(takeEvents(), IsEmpty());
    answerCharacteristics(1);
    EXPECT_THAT(takeEvents(), ElementsAre("connected", "ZOKBeaconDidConnectNotification", "completion"));
    answerCharacteristics(8);
    EXPECT_THAT(takeEvents(), IsEmpty());
    EXPECT_EQ(manager->nbChars(), 15);
    linkUp();
    manager->centralManagerDidConnectPeripheral(*central, std::make_shared<RecordingPeripheral>());
    answerCharacteristics(14);
    EXPECT_EQ(takeEvents().size(), 3U)
        << "one report for two links, with the completion, which is still there";
    linkUp();
    manager->setLiveBeacons({});
    takeLog();
    answerCharacteristics(7);
    EXPECT_THAT(takeLog(), ElementsAre("No beacon returned from peripheral"));
    EXPECT_THAT(takeEvents(), IsEmpty());
}

TEST_F(ConnectionTest, TheLookupSearchesEveryServiceWithTheUUID) {
    const auto lookUp = [&](std::string_view characteristic, std::string_view service) {
        return ZOKManager::characteristicFromServiceAndPeripheral(
            CBUUID::UUIDWithString(characteristic), CBUUID::UUIDWithString(service), peripheral);
    };
    EXPECT_EQ(lookUp("2A06", "1802"), nullptr);
    const auto first = foundService("FFA0", {"FFA2"});
    const auto unasked = foundService("FFA0");
    const auto second = foundService("FFA0", {"FFA2", "FFA3"});
    peripheral->found = {{foundService("FFF0", {"FFA3"}), first, unasked, second}};
    EXPECT_EQ(lookUp("FFA3", "FFA0"), second->characteristics()->at(1));
    EXPECT_EQ(lookUp("FFA2", "0000FFA0-0000-1000-8000-00805F9B34FB"), first->characteristics()->at(0));
    EXPECT_EQ(lookUp("FFA4", "FFA0"), nullptr);
    EXPECT_EQ(lookUp("FFA0", "FFA3"), nullptr);
    EXPECT_EQ(lookUp("FFA3", "FFE0"), nullptr);
}

TEST_F(ConnectionTest, EachCommandSendsItsOneRequest) {
    peripheral->found = {{foundService("1802", {"2A06"}), foundService("180F", {"2A19"}),
                          foundService("FFE0", {"FFE1"}), foundService("FFA0", {"FFA2", "FFA3", "FFA4"}),
                          foundService(configurationUUID, {modeUUID}), foundService("FFF0", {"FFF2"}),
                          foundService("180A", {"2A26"})}};
    const auto never = application->completion("never");
    manager->pingBeacon(record);
    manager->setButtonModeForBeacon(258, record);
    manager->setButtonModeForBeacon(-1, record);
    manager->buttonModeForBeaconWithCompletion(record, never);
    manager->temperatureForBeaconWithCompletion(record, never);
    manager->firmwareVersionForBeaconWithCompletion(record, never);
    EXPECT_THAT(peripheral->takeCalls(), ElementsAre("write 2A06 1 type 1", "write " + modeUUID + " 2 type 0",
                                                     "write " + modeUUID + " 255 type 0", "read " + modeUUID,
                                                     "read FFF2", "read 2A26"));
    for (const bool enabled : {true, false}) {
        manager->setAccelerometerNotificationsForBeacon(enabled, record);
        manager->setBatteryNotificationsForBeacon(enabled, record);
        manager->setTemperatureNotificationsForBeacon(enabled, record);
        manager->setButtonActionsNotificationsForBeacon(enabled, record);
        const std::string call = enabled ? "subscribe " : "unsubscribe ";
        EXPECT_THAT(peripheral->takeCalls(),
                    ElementsAre(call + "FFA2", call + "FFA3", call + "FFA4", call + "2A19", call + "FFE1"));
    }
    peripheral->found = {{foundService("FFA0", {"FFA4", "FFA2"}), foundService(configurationUUID, {"FFF2"})}};
    manager->setAccelerometerNotificationsForBeacon(false, record);
    manager->setTemperatureNotificationsForBeacon(true, record);
    manager->pingBeacon(record);
    EXPECT_THAT(peripheral->takeCalls(),
                ElementsAre("unsubscribe FFA2", "unsubscribe FFA4", "subscribe FFF2"));
    EXPECT_THAT(takeLog(), IsEmpty());
}

TEST_F(ConnectionTest, ValuesAreDecodedByTheirCharacteristic) {
    const std::string axisY = "ZOKBeaconDidAccelerometerAxisYChangeNotification ";
    const std::string firmware = "ZOKBeaconFirmwareVersionNotification ";
    const std::string temperature = "ZOKBeaconDidTemperatureChangeNotification ";
    const std::vector<std::uint8_t> noBytes;
    // A value of a characteristic, with what is told and logged of it.
    using Row = std::tuple<std::string, std::optional<std::vector<std::uint8_t>>, Events, Lines>;
    const std::vector<Row> rows{
        {"2A19", {{0xC8, 1}}, {"battery -56"}, {}},
        {"2A19", noBytes, {"battery 0"}, {}},
        {"FFE1", {{1}}, {"button 0"}, {}},
        {"FFE1", {{3, 1}}, {"button 2"}, {}},
        {"FFE1", {{5}}, {"button 3"}, {}},
        {"FFE1", std::nullopt, {"button 3"}, {}},
        {"FFF2", {{0x01, 0x2C}}, {"temperature 300", temperature + "300"}, {}},
        {"FFF2", {{0x2C}}, {"temperature 44", temperature + "44"}, {}},
        {"FFA3", noBytes, {axisY + "0"}, {"AxisY: 0"}},
        {"FFA3", {{0xAA, 0x01, 0x02}}, {axisY + "258"}, {"AxisY: 258"}},
        {"FFA4", {{0x07}}, {"ZOKBeaconDidAccelerometerAxisZChangeNotification 7"}, {"AxisZ: 7"}},
        {modeUUID, {{0xFF, 0xFE}}, {"ZOKBeaconButtonModeNotification 65534"}, {"ButtonMode: 65534"}},
        {"2A26", {{'1', '.', '2', 0, 'A'}}, {firmware + "1.2"}, {}},
        {"2A26", {{0xC3, 0xA9}}, {firmware + "\xC3\xA9"}, {}},
        {"2A26", {{'1', 0xC3}}, {}, {}},
        {"2A26", std::nullopt, {firmware}, {}},
        {"2A06", {{1}}, {}, {}},
    };
    manager->addLiveBeacon(record);
    for (const auto& [uuid, value, events, lines] : rows) {
        deliver(uuid, value);
        EXPECT_EQ(takeEvents(), events) << uuid;
        EXPECT_EQ(takeLog(), lines);
        EXPECT_EQ(std::exchange(application->lastRecord, {}).lock(), events.empty() ? nullptr : record);
        if (uuid == "2A26") {
            const auto expected =
                events.empty() ? std::nullopt : std::optional(events[0].substr(firmware.size()));
            EXPECT_EQ(record->firmwareVersion(), expected);
        }
        deliver(uuid, value, &ended);
        EXPECT_THAT(takeEvents(), IsEmpty());
        EXPECT_THAT(takeLog(), IsEmpty()) << "not even a look for the record";
    }
    EXPECT_FALSE(record->batteryLevel().hasValue());
    EXPECT_FALSE(record->temperature().hasValue());
    manager->peripheralDidReadRSSIError(peripheral, NSNumber::numberWithInt(-70), nullptr);
    manager->peripheralDidReadRSSIError(peripheral, NSNumber::numberWithInt(-71), &ended);
    manager->peripheralDidWriteValueForCharacteristicError(peripheral, nullptr, &ended);
    EXPECT_THAT(takeEvents(), ElementsAre("ZOKBeaconDidRSSIChangeNotification"));
    EXPECT_EQ(application->lastSignal, NSNumber::numberWithInt(-70));
    EXPECT_EQ(application->lastRecord.lock(), record);
    EXPECT_EQ(record->rssi(), 0);
    EXPECT_EQ(record->accelerometer(), (ZOKAccelerometerAxes{0, 258, 7}));
}

TEST_F(ConnectionTest, AValueIsToldThenLoggedThenStored) {
    manager->addLiveBeacon(record);
    record->setAccelerometer({5, 6, 7});
    Events steps;
    platform.log().setSink([&](std::string_view line) {
        steps.push_back(std::string(line) + " of " + std::to_string(record->accelerometer().axisX));
    });
    application->onEvent = [&](const std::string& event) {
        steps.push_back(event);
        // The other axes are read after this.
        record->setAccelerometer({5, 2, 3});
    };
    deliver("FFA2", {{0xFF, 0xFE}});
    EXPECT_EQ(record->accelerometer(), (ZOKAccelerometerAxes{65534, 2, 3}));
    deliver(modeUUID, {{0, 1}});
    EXPECT_THAT(steps,
                ElementsAre("ZOKBeaconDidAccelerometerAxisXChangeNotification 65534", "AxisX: 65534 of 5",
                            "ZOKBeaconButtonModeNotification 1", "ButtonMode: 1 of 5"));
}

TEST_F(ConnectionTest, ValuesOfAnUnknownPeripheralAreToldWithoutARecord) {
    for (const std::string_view uuid : {"2A19", "FFE1", "FFF2", "FFA2", "2A26"}) deliver(uuid, {{1}});
    manager->peripheralDidReadRSSIError(peripheral, NSNumber::numberWithInt(-70), nullptr);
    EXPECT_THAT(takeEvents(),
                ElementsAre("battery 1 of nothing", "button 0 of nothing", "temperature 1 of nothing",
                            "ZOKBeaconDidTemperatureChangeNotification 1 of nothing",
                            "ZOKBeaconDidAccelerometerAxisXChangeNotification 1 of nothing",
                            "ZOKBeaconDidRSSIChangeNotification of nothing"));
    const std::string unknown = "No beacon returned from peripheral";
    EXPECT_THAT(takeLog(), ElementsAre(unknown, unknown, unknown, unknown, "AxisX: 1", unknown, unknown));
}

TEST_F(ConnectionTest, AnRSSITimerLastsUntilItIsStopped) {
    EXPECT_EQ(ZOKManager::keyFromBeacon(nullptr), std::nullopt);
    EXPECT_EQ(ZOKManager::keyFromBeacon(std::make_shared<ZOKBeacon>()), "(null)_(null)");
    const auto twin = makeRecord(12, 345);
    const auto start = [&](const auto& beacon, double interval) {
        manager->startRSSIMonitoringForBeaconIntervalWithCompletion(beacon, interval,
                                                                    application->completion("never"));
    };
    start(record, 2.0);
    pass(1);
    start(record, 0.5);
    start(twin, 0.5);
    EXPECT_EQ(manager->rssiMonitoringTimersDic().size(), 1U);
    EXPECT_EQ(manager->rssiMonitoringTimersDic().at("12_345")->userInfo(), record);
    pass(3);
    EXPECT_THAT(peripheral->takeCalls(), IsEmpty()) << "not connected";
    manager->stopMonitoring();
    for (const auto state : {CBPeripheralState::connecting, CBPeripheralState::connected,
                             CBPeripheralState::disconnecting, CBPeripheralState::connected}) {
        peripheral->theState = state;
        pass(4);
    }
    EXPECT_THAT(peripheral->takeCalls(), ElementsAre("readRSSI", "readRSSI", "readRSSI", "readRSSI"));
    manager->stopRSSIMonitoringForBeacon(twin);
    manager->stopRSSIMonitoringForBeacon(record);
    EXPECT_THAT(manager->rssiMonitoringTimersDic(), IsEmpty());
    pass(4);
    EXPECT_THAT(peripheral->takeCalls(), IsEmpty());
    EXPECT_THAT(takeEvents(), IsEmpty());
}

TEST_F(ConnectionTest, WhatIsLetGoInsideACallbackDoesNotDangle) {
    int calls = 0;
    const ZOKBeaconCompletion again = [&](const auto& theManager, const auto& beacon, const NSError*) {
        ++calls;
        const std::string kept(100, 'x');
        beacon->setConnectionCompletionBlock([&calls, kept](const auto&, const auto&, const auto*) {
            calls += static_cast<int>(kept.size());
        });
        theManager->connectBeacon(beacon);
        theManager->disconnectBeaconWithCompletion(beacon, nullptr);
        EXPECT_EQ(calls, 1);
    };
    manager->connectBeaconWithCompletion(record, again);
    linkUp();
    answerCharacteristics(7);
    linkUp();
    answerCharacteristics(7);
    EXPECT_EQ(calls, 101);

    // What the caller's reference depends on goes away in the log, or with a completion that is replaced.
    peripheral->setDelegate({});
    platform.log().setSink([&](std::string_view /*line*/) { manager->setLiveBeacons({}); });
    manager->connectBeacon(manager->liveBeacons()[0]);
    platform.log().setSink(nullptr);
    auto mine = record;
    const auto dropsMine = [&] {
        return [drops = std::shared_ptr<void>(nullptr, [&](const auto& /*nothing*/) { mine.reset(); })](
                   auto&&...) {};
    };
    record->setConnectionCompletionBlock(dropsMine());
    manager->connectBeaconWithCompletion(mine, nullptr);
    EXPECT_EQ(mine, nullptr);
    mine = record;
    record->setDisconnectionCompletionBlock(dropsMine());
    manager->disconnectBeaconWithCompletion(mine, nullptr);
    EXPECT_EQ(mine, nullptr);
    EXPECT_THAT(central->calls.back(), Pair("cancel", peripheral));

    // The delegate, the record and its peripheral, and at last the manager go away in callbacks.
    application->onEvent = [&](const auto& /*event*/) {
        manager->setLiveBeacons({});
        manager->setDelegate({});
        record.reset();
    };
    const std::weak_ptr<ZOKBeacon> gone = record;
    manager->startRSSIMonitoringForBeaconIntervalWithCompletion(makeRecord(1, 1), 1, nullptr);
    const auto lastOwner = std::exchange(peripheral, nullptr);
    manager->centralManagerDidDisconnectPeripheralError(*central, lastOwner, &ended);
    EXPECT_TRUE(gone.expired());
    const std::weak_ptr<ZOKManager> goneManager = manager;
    platform.notificationCenter().clear();
    manager->setCentralManager(nullptr);
    auto& theManager = *manager;
    manager.reset();
    EXPECT_FALSE(goneManager.expired()) << "its timer holds it";
    theManager.stopRSSIMonitoringForBeacon(makeRecord(1, 1));
    EXPECT_TRUE(goneManager.expired());
}

}  // namespace
