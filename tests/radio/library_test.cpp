// The library's whole story, over any radio.

#include "LibraryOverRadio.h"
#include "RadioRecorder.h"
#include "ZobiConnectKit/ZOKGATTProfile.h"

namespace {

using namespace ::testing;
using namespace ZOKGATTProfile;

TEST_P(LibraryOverRadio, RangesConnectsAndDisconnectsABeaconAndDropsItWhenItFallsSilent) {
    const auto beacon = range();
    EXPECT_EQ(beacon->macAddress()->size(), 12U);
    takeEvents();
    manager->connectBeaconWithCompletion(beacon, application->completion("connection complete"));
    EXPECT_THAT(eventsUntil("connection complete"),
                ElementsAre("connected", "ZOKBeaconDidConnectNotification", "connection complete"));
    manager->disconnectBeaconWithCompletion(beacon, application->completion("disconnection complete"));
    EXPECT_THAT(eventsUntil("disconnection complete"),
                ElementsAre("disconnected", "ZOKBeaconDidDisconnectNotification", "disconnection complete"));
    bench->beaconFallsSilent();
    EXPECT_TRUE(bench->runUntil([&] { return manager->liveBeacons().empty(); }));
}

TEST_P(LibraryOverRadio, ReadsWritesAndSubscribes) {
    const auto beacon = connect();
    bench->setValue(temperatureCharacteristic, {0x01, 0x2C});
    manager->temperatureForBeaconWithCompletion(beacon, nullptr);
    ASSERT_TRUE(heard("ZOKBeaconDidTemperatureChangeNotification 300"));
    bench->setValue(firmwareRevisionCharacteristic, {'1', '.', '2', 0, 'A'});
    manager->firmwareVersionForBeaconWithCompletion(beacon, nullptr);
    ASSERT_TRUE(heard("ZOKBeaconFirmwareVersionNotification 1.2"));
    EXPECT_EQ(beacon->firmwareVersion(), "1.2");
    manager->setButtonModeForBeacon(258, beacon);
    manager->buttonModeForBeaconWithCompletion(beacon, nullptr);
    ASSERT_TRUE(heard("ZOKBeaconButtonModeNotification 2"));
    manager->pingBeacon(beacon);
    ASSERT_TRUE(bench->runUntil(
        [&] { return bench->value(alertLevelCharacteristic) == std::vector<std::uint8_t>{1}; }));
    manager->RSSIForBeaconWithCompletion(beacon, nullptr);
    EXPECT_THAT(eventsUntil("ZOKBeaconDidRSSIChangeNotification"),
                ElementsAre("temperature 300", "ZOKBeaconDidTemperatureChangeNotification 300",
                            "ZOKBeaconFirmwareVersionNotification 1.2", "ZOKBeaconButtonModeNotification 2",
                            "ZOKBeaconDidRSSIChangeNotification"));

    const auto notify = [&](const zobi::platform::CBUUID& characteristic, std::vector<std::uint8_t> value) {
        ASSERT_TRUE(bench->runUntil([&] {
            const auto subscribed = discoveredCharacteristic(*beacon->peripheral(), characteristic);
            return subscribed && subscribed->isNotifying();
        }));
        bench->setValue(characteristic, std::move(value));
    };
    manager->setAccelerometerNotificationsForBeacon(true, beacon);
    manager->setBatteryNotificationsForBeacon(true, beacon);
    manager->setButtonActionsNotificationsForBeacon(true, beacon);
    notify(accelerometerXCharacteristic, {0xFF, 0xFF});
    notify(accelerometerZCharacteristic, {0x00, 0x07});
    notify(batteryLevelCharacteristic, {0xC8});
    notify(buttonActionCharacteristic, {2});
    EXPECT_THAT(eventsUntil("button 1"),
                ElementsAre("ZOKBeaconDidAccelerometerAxisXChangeNotification 65535",
                            "ZOKBeaconDidAccelerometerAxisZChangeNotification 7", "battery -56", "button 1"));
    EXPECT_EQ(beacon->accelerometer(), (ZOKAccelerometerAxes{.axisX = 65535, .axisY = 0, .axisZ = 7}));
}

TEST_P(LibraryOverRadio, ALostLinkComesBackByItself) {
    const auto beacon = connect();
    manager->startRSSIMonitoringForBeaconIntervalWithCompletion(beacon, 1, nullptr);
    ASSERT_TRUE(heard("ZOKBeaconDidRSSIChangeNotification", 2));
    bench->beaconFallsSilent();
    ASSERT_TRUE(heard("ZOKBeaconDidDisconnectNotification"));
    EXPECT_EQ(beacon->timestamp(), 0);
    takeEvents();
    // Longer than a beacon that is not awaited stays live.
    bench->runUntil([] { return false; }, 35);
    EXPECT_THAT(manager->liveBeacons(), ElementsAre(beacon));
    EXPECT_THAT(takeEvents(), IsEmpty());
    bench->beaconComesIntoRange();
    ASSERT_TRUE(heard("connection complete"));
    ASSERT_TRUE(heard("ZOKBeaconDidRSSIChangeNotification", 2)) << "readings resume by themselves";
    manager->stopRSSIMonitoringForBeacon(beacon);
    bench->beaconEndsLink();
    eventsUntil("disconnected error 7");
    EXPECT_FALSE(bench->runUntil([&] { return !application->events.empty(); }, RadioBench::aWhile));
}

TEST_P(LibraryOverRadio, APowerCycleEndsLinksAndRangingGoesOn) {
    const auto beacon = connect();
    bench->setRadioPower(false);
    EXPECT_THAT(eventsUntil("ZOKBeaconDidDisconnectNotification"),
                ElementsAre("state 4", "disconnected error 5", "ZOKBeaconDidDisconnectNotification"));
    bench->setRadioPower(true);
    ASSERT_TRUE(heard("state 5"));
    // A record with this one stays live, however late the first report comes.
    beacon->setTimestamp(0);
    ASSERT_TRUE(bench->runUntil([&] { return beacon->timestamp() > 0; })) << "it is heard again";
    manager->connectBeacon(beacon);
    ASSERT_TRUE(heard("connection complete"));
}

}  // namespace
