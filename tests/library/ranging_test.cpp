// Advertisements and the live beacons; the report each second, the expiry of silent beacons.

#include "ManagerTest.h"
#include "SeamRecorders.h"
#include "ZobiConnectKit/simulation/PayloadEncoder.h"

namespace {

using namespace zobi::platform;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using zobi::encodePayload;
using zobi::SimulatedBeacon;

const CBUUID deviceInformation = CBUUID::UUIDWithString("180A");
const CBUUID battery = CBUUID::UUIDWithString("180F");

class RangingTest : public ManagerTest {
protected:
    RangingTest() {
        manager->startMonitoring();
        loop.processPending();
        takeLog();
    }

    double wallTime() { return platform.clock().timeIntervalSince1970(); }
    void setWallTime(double seconds) { platform.virtualTime()->setTimeIntervalSince1970(seconds); }
    void check() { manager->checkRangedBeaconsTimerFired(nullptr); }
};

TEST_F(RangingTest, ABeaconBecomesARecordAndLaterAdvertisementsOnlyStampIt) {
    SimulatedBeacon& beacon = addBeacon({.major = 300, .minor = 7, .batteryLevel = 90, .temperature = 22});
    beacon.comeIntoRange();
    const auto start = static_cast<std::int64_t>(wallTime());
    pass(0.5);
    ASSERT_EQ(manager->liveBeacons().size(), 1U);
    const auto record = manager->liveBeacons()[0];
    EXPECT_EQ(record->timestamp(), start);
    EXPECT_EQ(manager->beaconFromPeripheral(record->peripheral()), record);
    beacon.setBatteryLevel(10);
    beacon.setTemperature(30);
    beacon.setSignalStrength(-90);
    pass(10);
    EXPECT_THAT(manager->liveBeacons(), ElementsAre(record));
    EXPECT_EQ(record->timestamp(), start + 10);
    EXPECT_EQ(record->advertBatteryLevel().integerValue(), 90);
    EXPECT_EQ(record->temperature().integerValue(), 22);
    EXPECT_EQ(record->rssi(), 0);
}

TEST_F(RangingTest, OnlyTheExactNameWithDeviceInformationIsAccepted) {
    for (const char* name : {"morvan", "morvane2", "Morvane", "morvane ", ""}) {
        addBeacon({.minor = 1, .buttonAction = 1, .localName = name}).comeIntoRange();
    }
    addBeacon({.minor = 2, .buttonAction = 1, .localName = std::nullopt}).comeIntoRange();
    const auto payload = encodePayload({.minor = 3, .buttonAction = 1});
    addBeacon({.serviceData = {{{battery, payload}}}}).comeIntoRange();
    addBeacon({.serviceData = {std::vector<simulation::ServiceData>{}}}).comeIntoRange();
    // Foreign names keep malformed payloads from being read at all.
    addBeacon({.localName = "other", .serviceData = {{{deviceInformation, {1, 2, 3}}}}}).comeIntoRange();
    pass(3);
    EXPECT_THAT(manager->liveBeacons(), IsEmpty());
    EXPECT_THAT(application->buttons, IsEmpty());
    EXPECT_THAT(takeLog(), IsEmpty());
}

TEST_F(RangingTest, AllServiceDataIsWalkedAndEachButtonIsReportedBeforeTheListIsConsulted) {
    const auto first = encodePayload({.minor = 2, .buttonAction = 1});
    const auto second = encodePayload({.minor = 1, .buttonAction = 2});
    addBeacon({.serviceData = {{{battery, {}},
                                {deviceInformation, first},
                                {CBUUID::UUIDWithString("0000180a-0000-1000-8000-00805f9b34fb"), second}}}})
        .comeIntoRange();
    takeEvents();
    pass(1.5);
    EXPECT_THAT(takeEvents(), ElementsAre("button 0", "button 1", "button 0", "button 1"))
        << "of live beacons too";
    std::vector<int> minors;
    for (const auto& record : manager->liveBeacons()) minors.push_back(record->minor().integerValue());
    EXPECT_THAT(minors, ElementsAre(2, 1)) << "in the order of the advertisement";

    std::vector<std::size_t> live;
    application->onEvent = [&](const auto& /*button*/) {
        live.push_back(manager->liveBeacons().size());
        manager->setLiveBeacons({});
    };
    pass(1);
    EXPECT_THAT(live, ElementsAre(2, 1));
    EXPECT_EQ(manager->liveBeacons().size(), 1U);
}

TEST_F(RangingTest, AButtonIsReportedOncePerAdvertisementWithTheFreshRecord) {
    SimulatedBeacon& beacon = addBeacon({.major = 1, .minor = 7});
    beacon.comeIntoRange();
    pass(0.5);
    beacon.setBatteryLevel(42);
    beacon.pressButton(3, 3);
    pass(10);
    ASSERT_EQ(application->buttons.size(), 3U) << "there is no edge detection";
    for (const auto& [action, record] : application->buttons) {
        EXPECT_EQ(record->peripheral(), manager->liveBeacons()[0]->peripheral());
        EXPECT_EQ(action, 2);
        EXPECT_EQ(record->advertBatteryLevel().integerValue(), 42);
        EXPECT_NE(record, manager->liveBeacons()[0]);
    }
    for (const int code : {0, -1, -128, 4, 127})
        beacon.pressButton(static_cast<std::int8_t>(code), 2), pass(2);
    EXPECT_EQ(application->buttons.size(), 3U);
}

TEST_F(RangingTest, TheListHoldsAnObjectOnceAndABeaconPerhapsTwice) {
    const auto first = makeRecord(1, 7);
    const auto second = makeRecord(1, 7);
    manager->addLiveBeacon(first);
    manager->addLiveBeacon(second);
    EXPECT_THAT(takeLog(), IsEmpty());
    manager->addLiveBeacon(first);
    EXPECT_THAT(takeLog(), ElementsAre("Beacon already present in live beacons"));
    EXPECT_THAT(manager->liveBeacons(), ElementsAre(first, second));

    addBeacon({.major = 1, .minor = 7}).comeIntoRange();
    pass(0.5);
    EXPECT_THAT(manager->liveBeacons(), ElementsAre(first, second));
    for (const auto& record : {first, second}) {
        EXPECT_GT(record->timestamp(), 0) << "it is only stamped, whoever has its numbers";
        EXPECT_FALSE(record->peripheral() || record->macAddress() || record->scanRspVersion().hasValue());
    }

    const auto handle = std::make_shared<RecordingPeripheral>();
    for (const auto& record : {first, second}) record->setPeripheral(handle);
    EXPECT_EQ(manager->beaconFromPeripheral(handle), first);
    second->setPeripheral(nullptr);
    takeLog();
    EXPECT_EQ(manager->beaconFromPeripheral(nullptr), nullptr)
        << "records without a peripheral are not its own";
    EXPECT_THAT(takeLog(), ElementsAre("No beacon returned from peripheral"));
}

TEST_F(RangingTest, AMalformedPayloadCostsOneLineAndThatAdvertisement) {
    SimulatedBeacon& beacon =
        addBeacon({.macAddress = {0xAB, 0xCD, 0xEF, 0x12, 0x34, 0x56}, .minor = 1, .buttonAction = 1});
    beacon.comeIntoRange();
    pass(0.5);
    takeLog();
    beacon.sendOnce({{deviceInformation, std::vector<std::uint8_t>(12)}});
    beacon.sendOnce({{deviceInformation, {}}});
    loop.processPending();
    EXPECT_THAT(takeLog(),
                ElementsAre("Advertisement from ABCDEF123456 dropped: 1 byte at offset 12 read from data of "
                            "12 bytes",
                            "Advertisement from ABCDEF123456 dropped: 6 bytes at offset 0 read from data of "
                            "0 bytes"));
    pass(2);
    EXPECT_EQ(application->buttons.size(), 3U);
    EXPECT_EQ(manager->liveBeacons().size(), 1U);
}

TEST_F(RangingTest, TheReportIsASnapshotOfTheLiveRecordsEachSecond) {
    const auto first = makeRecord(1, 1, 1);
    const auto second = makeRecord(1, 2, 1);
    manager->setLiveBeacons({first, second});
    application->onReport = [&] { manager->setLiveBeacons({second}); };
    pass(1);
    EXPECT_THAT(application->reports.back(), ElementsAre(first, second))
        << "the list changed under the report";
    pass(1);
    EXPECT_THAT(application->reports.back(), ElementsAre(second));
}

TEST_F(RangingTest, ARecordExpiresJustAfter20SecondsAndNotBefore) {
    // Seconds in 31 bits end meanwhile.
    setWallTime(2'147'483'660);
    const auto stays = makeRecord(1, 1, 2'147'483'640);
    const auto goes = makeRecord(300, 7, 2'147'483'639);
    const auto requested = makeRecord(1, 3, 0);
    const auto negative = makeRecord(1, 4, -5);
    const auto unnamed = std::make_shared<ZOKBeacon>();
    unnamed->setTimestamp(1);
    manager->setLiveBeacons({stays, goes, requested, negative, unnamed});
    check();
    EXPECT_THAT(takeLog(),
                ElementsAre("DeltaTime: 20.000000", "DeltaTime: 21.000000", "Beacon [300, 7] removed",
                            "DeltaTime: 2147483660.000000", "DeltaTime: 2147483665.000000",
                            "DeltaTime: 2147483659.000000", "Beacon [(null), (null)] removed"));
    EXPECT_THAT(manager->liveBeacons(), ElementsAre(stays, requested, negative));
    setWallTime(2'147'483'660.000001);
    check();
    EXPECT_THAT(manager->liveBeacons(), ElementsAre(requested, negative));
}

TEST_F(RangingTest, AConnectedRecordIsStampedInsteadAndAgesAfterwards) {
    setWallTime(1'700'000'100.75);
    const auto handle = std::make_shared<RecordingPeripheral>();
    handle->theState = CBPeripheralState::connected;
    const auto record = makeRecord(1, 1, 1'700'000'000);
    record->setPeripheral(handle);
    manager->setLiveBeacons({record});
    check();
    EXPECT_THAT(takeLog(), ElementsAre("DeltaTime: 0.750000"));
    EXPECT_EQ(record->timestamp(), 1'700'000'100);
    for (const auto state :
         {CBPeripheralState::connecting, CBPeripheralState::disconnecting, CBPeripheralState::disconnected}) {
        handle->theState = state;
        manager->setLiveBeacons({record});
        setWallTime(1'700'000'120);
        check();
        EXPECT_EQ(manager->liveBeacons().size(), 1U);
        setWallTime(1'700'000'121);
        check();
        EXPECT_THAT(manager->liveBeacons(), IsEmpty());
    }
    manager->setLiveBeacons({record});
    platform.log().setSink([&](auto /*line*/) { handle->theState = CBPeripheralState::connected; });
    check();
    EXPECT_EQ(manager->liveBeacons().size(), 1U) << "connected since it was looked at first";
}

TEST_F(RangingTest, ALogThatChangesListAndClockDuringTheCheckDoesNoHarm) {
    setWallTime(1'700'000'000);
    manager->setLiveBeacons({makeRecord(1, 1, 1'600'000'000), makeRecord(1, 2, 1'600'000'001)});
    platform.log().setSink([this](std::string_view line) {
        log.emplace_back(line);
        manager->setLiveBeacons({});
        setWallTime(wallTime() + 1);
    });
    check();
    EXPECT_THAT(takeLog(), ElementsAre("DeltaTime: 100000000.000000", "Beacon [1, 1] removed",
                                       "DeltaTime: 99999999.000000", "Beacon [1, 2] removed"));
    EXPECT_THAT(manager->liveBeacons(), IsEmpty());
}

TEST_F(RangingTest, AWallClockThatIsSetMovesStampsAndExpiryButNoTimer) {
    addBeacon({.minor = 1, .advertisingInterval = 60}).comeIntoRange();
    SimulatedBeacon& often = addBeacon({.minor = 2});
    often.comeIntoRange();
    pass(1.5);
    setWallTime(wallTime() - 3600);
    pass(1);
    EXPECT_EQ(manager->liveBeacons().at(1)->timestamp(), static_cast<std::int64_t>(wallTime() - 0.4));
    often.goOutOfRange();
    pass(27.5);
    EXPECT_EQ(manager->liveBeacons().size(), 1U) << "the first was seen in the future, so it is not silent";
    setWallTime(wallTime() + 7200);
    pass(10);
    EXPECT_THAT(manager->liveBeacons(), IsEmpty());
    EXPECT_EQ(application->reports.size(), 40U);
}

}  // namespace
