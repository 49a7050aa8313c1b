// A scan that brings nothing, though nobody says so, or because the service cannot carry it out.

#include "BlueZRadio.h"

namespace zobi::platform::bluez {
namespace {

using namespace ::testing;

constexpr double day = 24 * 60 * 60;
const std::string remedy = "systemctl restart bluetooth";

/// What is known and allowed on a machine, and in which way an application scans.
struct Case {
    bool areScansSeen = false;
    bool mayAdminister = false;
    bool isForeground = false;
};

class Watchdog : public BlueZRadio {
protected:
    void forEachCase(const std::function<void()>& test) {
        for (int i = 0; i < 8; ++i) {
            SCOPED_TRACE(i);
            it = {(i & 1) != 0, (i & 2) != 0, (i & 4) != 0};
            machine.mayAdminister = it.mayAdminister;
            machine.channel->countScanSwitches = [this]() -> std::optional<unsigned> {
                return it.areScansSeen ? std::optional(service.scanSwitches) : std::nullopt;
            };
            machine.lines.clear();
            listener->sightings.clear();
            test();
            central->stopScan();
            cyclePower();
        }
    }
    void beginScan() { scan(it.isForeground); }
    /// Passes the time as an application does: in the foreground it scans anew each 30 s.
    void spend(double seconds) {
        constexpr double scanPeriod = 30;
        for (; it.isForeground && seconds >= scanPeriod; seconds -= scanPeriod) {
            pass(scanPeriod);
            central->stopScan();
            beginScan();
        }
        pass(seconds);
    }
    /// Whether the service reports the device, to whomever.
    bool isReportedWithin(double seconds, const ScriptedDevice& device) {
        const auto before = device.lastSeen;
        spend(seconds);
        return device.lastSeen > before;
    }

    Case it;
};
INSTANTIATE_TEST_SUITE_P(Scripted, Watchdog, Values(scriptedRadio));

TEST_P(Watchdog, ASilentScanIsStartedAgainByTheMeansThatThereAre) {
    auto& linkedOne = service.add({.address = "00:00:5E:00:53:0A", .serviceData = ScriptedBench::payload(8)});
    forEachCase([&] {
        beacon.isInRange = linkedOne.isInRange = true;
        sight();
        const auto linked = listener->sightings.back();
        connect(linked);
        eventsUntil("connected");
        auto& advertiser = linkedOne.isLinked() ? beacon : linkedOne;
        const auto isHeardWithin = [&](double seconds) { return isReportedWithin(seconds, advertiser); };
        beginScan();
        pass(3);
        const auto reported = listener->sightings.size();
        service.losesScan();
        pass(0.1);
        EXPECT_TRUE(isHeardWithin(45));
        service.believesThatItScans = true;
        EXPECT_EQ(isHeardWithin(45), it.mayAdminister);
        EXPECT_EQ(machine.linesWith(remedy), it.mayAdminister ? 0 : 1);
        const bool isKnown = it.areScansSeen && !it.mayAdminister;
        EXPECT_EQ(machine.radioCondition().kind == RadioCondition::Kind::deaf, isKnown);
        EXPECT_TRUE(it.mayAdminister || !isHeardWithin(3000));
        EXPECT_EQ(machine.linesWith(remedy), it.mayAdminister ? 0 : 1) << "once";
        service.believesThatItScans = false;
        EXPECT_TRUE(isHeardWithin(620));
        EXPECT_EQ(machine.radioCondition().kind, RadioCondition::Kind::poweredOn);
        EXPECT_TRUE(central->isScanning());
        EXPECT_EQ(listener->sightings.size() > reported, it.isForeground) << "nothing is reported twice";
        EXPECT_THAT(takeEvents(), IsEmpty());
        EXPECT_EQ(linked->state(), CBPeripheralState::connected);
        unlink(linked);
    });
}

TEST_P(Watchdog, AnEmptyRoomIsLeftInPeace) {
    forEachCase([&] {
        beacon.isInRange = false;
        beginScan();
        service.calls.clear();
        machine.kernelDiscoveries = 0;
        spend(day);
        const auto own = it.isForeground ? static_cast<std::ptrdiff_t>(day / 30) : 0;
        EXPECT_THAT(callsOf("StopDiscovery") - own + machine.kernelDiscoveries, AllOf(Ge(130), Le(200)));
        EXPECT_THAT(machine.lines, SizeIs(it.areScansSeen || it.mayAdminister ? 0 : 1));
        beacon.isInRange = true;
        EXPECT_TRUE(bench->runUntil([&] { return !listener->sightings.empty(); }, 1.1));
        beacon.isInRange = false;
        spend(day);
        EXPECT_EQ(machine.linesWith(remedy), 1) << "here was something";
    });
}

TEST_P(Watchdog, WhatTheServiceSignalsOrRefusesIsMendedSoon) {
    forEachCase([&] {
        beacon.isInRange = true;
        beginScan();
        ASSERT_TRUE(isReportedWithin(3, beacon));
        EXPECT_THAT(service.lastFilter, Contains(Pair("Pattern", Value(""))));
        service.losesScan();
        service.change(firstAdapter, adapterInterface, {{"Discovering", false}});
        EXPECT_TRUE(isReportedWithin(10, beacon));
        for (const char* const error :
             {"Failed", "NotReady", "InProgress", "NotAuthorized", "NotSupported"}) {
            service.scripts = {{"StartDiscovery", fails(error, "not now", -1)}};
            service.losesScan();
            service.change(firstAdapter, adapterInterface, {{"Discovering", false}});
            EXPECT_FALSE(isReportedWithin(100, beacon)) << error;
            service.scripts.clear();
            EXPECT_TRUE(isReportedWithin(10, beacon)) << error;
        }
    });
}

TEST_P(Watchdog, AServiceThatHangsIsSentEachCallOnce) {
    beacon.isInRange = true;
    forEachCase([&] {
        service.calls.clear();
        for (const char* const operation : {"SetDiscoveryFilter", "StartDiscovery", "StopDiscovery"}) {
            service.scripts = {{operation, {.delay = 100}}, {"GetDiscoveryFilters", {.delay = 100}}};
            beginScan();
            if (operation == std::string("StopDiscovery")) central->stopScan();
            pass(99);
            EXPECT_EQ(callsOf(operation), 1) << operation;
            service.scripts.clear();
            pass(2);
            service.calls.clear();
        }
        beginScan();
        EXPECT_TRUE(isReportedWithin(3, beacon));
    });
}

TEST_P(Watchdog, AVersionThatServicesEndOrThatKnowsFewerKeysIsUsedAllTheSame) {
    auto& foreign = service.add({.address = "00:00:5E:00:53:0B",
                                 .uuids = {longForm(ZOKGATTProfile::batteryService)},
                                 .serviceData = ScriptedBench::payload(8)});
    service.endsAtServices = true;
    service.unknownKeys = {"Pattern"};
    for (std::size_t i = 0; i < 2; ++i) {
        // It restarts without having crashed.
        beginScan();
        pass(3);
        EXPECT_NE(named(service.lastFilter, "UUIDs"), nullptr);
        service.stop();
        service.start();
        ASSERT_TRUE(heard("state 5", i + 1));
    }
    takeEvents();
    beacon.isInRange = foreign.isInRange = true;
    beginScan();
    ASSERT_TRUE(heard("state 1"));
    service.unknownKeys = {"DuplicateData", "Pattern"};
    service.start();
    takeEvents();
    ASSERT_TRUE(heard("state 5"));
    sight();
    pass(5);
    EXPECT_THAT(service.lastFilter, UnorderedElementsAre(Pair("Transport", _), Pair("RSSI", _)));
    EXPECT_THAT(listener->sightings, Each(listener->sightings[0])) << "the radio filters";
    EXPECT_THAT(machine.lines, Contains(HasSubstr("5.87")).Times(1));
}

}  // namespace
}  // namespace zobi::platform::bluez
