// The simulated radio by itself, as a central manager's delegate sees it.

#include <gmock/gmock.h>

#include <algorithm>
#include <stdexcept>

#include "ManagerRecorder.h"
#include "RadioRecorder.h"
#include "ZobiConnectKit/simulation/SimulatedBeacon.h"
#include "zobi/platform/simulation/SimulatedPlatform.h"
#include "zobi/platform/standard/ForwardingPlatform.h"

namespace {

using namespace zobi::platform;
using ::testing::ElementsAre;
using zobi::SimulatedBeacon;
using zobi::platform::simulation::SimulatedPlatform;

/// A listener that writes down each sighting in full, with its time.
std::shared_ptr<RadioRecorder> listenerOn(SimulatedPlatform& platform) {
    auto listener = RadioRecorder::make();
    listener->describe = [&platform](const CBAdvertisementData& data, NSNumber rssi) {
        std::string event = std::to_string(platform.clock().monotonicTime().count());
        event += ' ' + std::string(data.localName.value_or("(none)")) + ' ' + rssi.description();
        for (const auto& element : data.serviceData) {
            event += ' ' + element.service.UUIDString() + ':';
            for (const int byte : element.data) event += std::to_string(byte) + '.';
        }
        return event;
    };
    return listener;
}

class SimulationTest : public ::testing::Test {
protected:
    SimulationTest() { platform.log().setSink(nullptr); }

    void scan(bool allowDuplicates = true, std::vector<CBUUID> services = {}) {
        central->scanForPeripheralsWithServicesOptions(services, {.allowDuplicates = allowDuplicates});
    }

    SimulatedPlatform platform{StandardPlatform::Time::virtualTime};
    StandardRunLoop& loop = platform.runLoop();
    std::shared_ptr<RadioRecorder> delegate = listenerOn(platform);
    std::shared_ptr<CBCentralManager> central = platform.makeCentralManager(delegate);
};

TEST_F(SimulationTest, EachStateIsToldByItselfAndAnyButOnEndsTheScanForGood) {
    using enum CBManagerState;
    delegate->onEvent = [&](const auto& /*state*/) {
        EXPECT_FALSE(central->isScanning()) << "nor does it begin by itself";
        scan();
        EXPECT_EQ(central->isScanning(), central->state() == poweredOn);
    };
    scan();
    EXPECT_FALSE(central->isScanning()) << "the radio has not started";
    EXPECT_EQ(central->state(), unknown);
    EXPECT_TRUE(delegate->events.empty());
    loop.processPending();
    for (const auto state : {unknown, resetting, unsupported, unauthorized, poweredOff}) {
        for (const auto next : {state, state, poweredOn}) platform.world().setRadioState(next);
    }
    EXPECT_THAT(delegate->events, ElementsAre("state 5"));
    loop.processPending();
    EXPECT_THAT(delegate->events,
                ElementsAre("state 5", "state 0", "state 5", "state 1", "state 5", "state 2", "state 5",
                            "state 3", "state 5", "state 4", "state 5"));
}

TEST(ConditionTest, IsToldWithAnAdviceThroughAWrapperToo) {
    auto owned = std::make_unique<SimulatedPlatform>(StandardPlatform::Time::virtualTime);
    auto& world = owned->world();
    ForwardingPlatform platform(std::move(owned));
    std::vector<std::string> told;
    platform.notificationCenter().addObserverForNameObjectUsingBlock(
        RadioConditionDidChangeNotification, nullptr,
        [&](const auto& /*notification*/) { told.push_back(platform.radioCondition().advice()); });
    const auto delegate = RadioRecorder::make();
    const auto central = platform.makeCentralManager(delegate);
    delegate->onEvent = [&](const auto& event) { told.push_back(event); };
    platform.runLoop().runFor(1);
    for (const auto state :
         {CBManagerState::poweredOff, CBManagerState::poweredOff, CBManagerState::unsupported}) {
        world.setRadioState(state);
        platform.runLoop().runFor(1);
    }
    EXPECT_THAT(told, ElementsAre("", "state 5", "state 4", "Bluetooth is off. Turn it on.", "state 2",
                                  "There is no Bluetooth that can be used. Connect an adapter."));
    StandardPlatform none(StandardPlatform::Time::virtualTime, std::make_unique<ConditionVariableWaiting>());
    EXPECT_EQ(none.radioCondition(), RadioCondition());
    const auto nothing = none.makeCentralManager(delegate);
    none.runLoop().processPending();
    EXPECT_EQ(none.radioCondition().kind, RadioCondition::Kind::noAdapter);
}

TEST_F(SimulationTest, TheServiceFilterTakesAnyOfItsServices) {
    const auto& uuid = CBUUID::UUIDWithString;
    using UUIDs = std::vector<CBUUID>;
    for (const auto& services : {UUIDs{uuid("180F"), uuid("1320")}, UUIDs{uuid("FFE0")}, UUIDs{}}) {
        zobi::addBeacon(platform.world(), {.advertisedServices = services}).comeIntoRange();
    }
    loop.processPending();
    const auto heardWith = [&](UUIDs services) {
        delegate->sightings.clear();
        scan(false, std::move(services));
        loop.runFor(3);
        return delegate->sightings.size();
    };
    EXPECT_EQ(heardWith({uuid("1320")}), 1U);
    EXPECT_EQ(heardWith({uuid("0000ffe0-0000-1000-8000-00805f9b34fb"), uuid("180F")}), 2U);
    EXPECT_EQ(heardWith({}), 3U);
}

TEST_F(SimulationTest, AnAttemptCountsWhileTheRadioIsReportedOnAndFailsWithThePower) {
    zobi::addBeacon(platform.world(), {}).comeIntoRange();
    loop.processPending();
    scan();
    loop.runFor(1);
    const auto peripheral = delegate->sightings.at(0);
    constexpr auto off = CBManagerState::poweredOff;
    constexpr auto on = CBManagerState::poweredOn;
    using States = std::vector<CBManagerState>;
    // What is queued before the request, and after it.
    const std::vector<std::pair<States, States>> cases{
        {{off, on}, {}}, {{}, {off, on}}, {{off}, {}}, {{on}, {}}};
    for (const auto& [before, after] : cases) {
        for (const auto state : before) platform.world().setRadioState(state);
        central->connectPeripheral(peripheral);
        for (const auto state : after) platform.world().setRadioState(state);
        delegate->events.clear();
        loop.runFor(5);
        EXPECT_THAT(delegate->events, ::testing::Contains("failed error 5").Times(1));
        EXPECT_EQ(peripheral->state(), CBPeripheralState::disconnected);
    }
}

TEST_F(SimulationTest, AScanForgetsWhatIsIdleAndInNobodysHands) {
    for (int i = 0; i < 2; ++i) zobi::addBeacon(platform.world(), {}).comeIntoRange();
    loop.processPending();
    scan();
    loop.runFor(1);
    central->connectPeripheral(delegate->sightings.at(0));
    loop.processPending();
    const std::weak_ptr<CBPeripheral> awaited = delegate->sightings.at(0);
    const std::weak_ptr<CBPeripheral> idle = delegate->sightings.at(1);
    delegate->sightings.clear();
    EXPECT_FALSE(idle.expired());
    scan();
    EXPECT_TRUE(idle.expired());
    EXPECT_FALSE(awaited.expired());
}

TEST_F(SimulationTest, WhatHappensToABeaconIsHeardInItsNextAdvertisements) {
    SimulatedBeacon& beacon =
        zobi::addBeacon(platform.world(),
                        {.minor = 1, .layoutVersion = 5, .advertisingJitter = 0, .signalStrengthSpread = 4});
    loop.processPending();
    scan();
    beacon.sendOnce({});
    beacon.comeIntoRange();
    beacon.comeIntoRange();
    loop.runFor(0.5);
    ASSERT_EQ(delegate->events.size(), 3U) << "what was sent at once, and the first regular one";
    delegate->events.clear();
    beacon.setLocalName("renamed");
    beacon.setBatteryLevel(7);
    loop.runFor(1);
    beacon.setLocalName(std::nullopt);
    beacon.setServiceData({{{CBUUID::UUIDWithString("FFF0"), {1, 2}}}});
    beacon.setBatteryLevel(8);
    loop.runFor(1);
    beacon.setServiceData(std::nullopt);
    beacon.goOutOfRange();
    beacon.sendOnce({});
    loop.runFor(5);
    ASSERT_EQ(delegate->events.size(), 2U);
    EXPECT_THAT(
        delegate->events[0],
        ::testing::MatchesRegex("1000100000 renamed -(5[6-9]|6[0-4]) 180A:0.0.0.0.0.0.0.0.0.0.1.5.7."));
    EXPECT_THAT(delegate->events[1], ::testing::MatchesRegex("2000100000 \\(none\\) -[0-9]+ FFF0:1.2."));
}

TEST_F(SimulationTest, AButtonStaysPressedForItsTimeAndTheLastPressDecides) {
    SimulatedBeacon& beacon = zobi::addBeacon(platform.world(), {});
    beacon.pressButton(1, 5);
    beacon.pressButton(2, 2);
    loop.runFor(1.9);
    EXPECT_EQ(beacon.buttonAction(), 2);
    loop.runFor(0.1);
    EXPECT_EQ(beacon.buttonAction(), 0);
    beacon.pressButton(3, 5);
    loop.runFor(4);
    EXPECT_EQ(beacon.buttonAction(), 3);
}

TEST_F(SimulationTest, ADeviceTellsItsObserversOnceOfAllThatHasChanged) {
    struct Observer final : simulation::SimulatedDeviceObserver {
        void simulatedDeviceDidChange(simulation::SimulatedDevice& /*device*/) override {
            ++count;
            if (isFailing) throw std::runtime_error("observer");
        }
        int count = 0;
        bool isFailing = false;
    };
    SimulatedBeacon& beacon = zobi::addBeacon(platform.world(), {});
    const auto failing = std::make_shared<Observer>();
    const auto observer = std::make_shared<Observer>();
    beacon.addObserver(failing);
    beacon.addObserver(std::make_shared<Observer>());
    beacon.addObserver(observer);
    const auto timesTold = [&](const std::function<void()>& change) {
        observer->count = 0;
        change();
        EXPECT_EQ(observer->count, 0) << "not from inside the call";
        loop.processPending();
        return observer->count;
    };
    EXPECT_EQ(timesTold([] {}), 0);
    EXPECT_EQ(timesTold([&] { beacon.setLocalName("renamed"); }), 1);
    EXPECT_EQ(timesTold([&] { beacon.gatt().setValue(CBUUID::UUIDWithString("2A19"), {1}); }), 1);
    EXPECT_EQ(timesTold([&] { beacon.gatt().write({2, 0}, {1}); }), 1) << "by a central";
    const auto move = [&] { beacon.isInRange() ? beacon.goOutOfRange() : beacon.comeIntoRange(); };
    EXPECT_EQ(timesTold(move), 1);
    EXPECT_EQ(timesTold(move), 1);
    EXPECT_EQ(timesTold([&] { beacon.pressButton(1, 1); }), 1) << "once, for advertisement and value";
    failing->isFailing = true;
    beacon.setTemperature(7);
    observer->count = 0;
    EXPECT_THROW(loop.processPending(), std::runtime_error);
    EXPECT_EQ(observer->count, 1) << "whoever else fails";
    EXPECT_THROW(loop.runFor(1), std::runtime_error);
    EXPECT_EQ(observer->count, 2) << "the button is released";
}

TEST_F(SimulationTest, ABeaconMayChangeWhileItIsHeard) {
    SimulatedBeacon& beacon = zobi::addBeacon(platform.world(), {.minor = 1, .buttonAction = 1});
    beacon.comeIntoRange();
    const auto manager = ZOKManager::managerOnPlatform(platform);
    const auto application = ManagerRecorder::of(manager);
    application->onEvent = [&](const auto& /*button*/) {
        beacon.setServiceData({{{CBUUID::UUIDWithString("180A"), {}}}});
        beacon.setLocalName("a much longer name than the one before, which is gone");
        beacon.goOutOfRange();
        zobi::addBeacon(platform.world(), {.minor = 2}).comeIntoRange();
    };
    loop.processPending();
    manager->startMonitoring();
    loop.runFor(3);
    EXPECT_EQ(manager->liveBeacons().size(), 2U);
}

TEST_F(SimulationTest, JitterAndSignalSpreadOverTheirWholeRange) {
    SimulatedBeacon& beacon = zobi::addBeacon(
        platform.world(), {.advertisingInterval = 1, .advertisingJitter = 0.5, .signalStrengthSpread = 3});
    loop.processPending();
    scan();
    beacon.comeIntoRange();
    loop.runFor(1300);
    std::vector<int> signals;
    for (auto event = delegate->events.begin() + 1; event != delegate->events.end(); ++event) {
        signals.push_back(std::stoi(event->substr(event->find('-'))));
    }
    // At 1.25 s on the average.
    EXPECT_NEAR(static_cast<double>(signals.size()), 1040, 20);
    EXPECT_EQ(*std::ranges::min_element(signals), -63);
    EXPECT_EQ(*std::ranges::max_element(signals), -57);
}

TEST_F(SimulationTest, ADelegateThatThrowsKeepsNothingFromTheOthers) {
    const auto thrower = listenerOn(platform);
    const auto first = platform.makeCentralManager(thrower);
    const auto lastDelegate = listenerOn(platform);
    const auto last = platform.makeCentralManager(lastDelegate);
    loop.processPending();
    for (const auto& scanning : {first, last}) scanning->scanForPeripheralsWithServicesOptions({}, {});
    zobi::addBeacon(platform.world(), {}).comeIntoRange();
    thrower->onEvent = [](const auto& /*event*/) { throw std::runtime_error("mine"); };
    EXPECT_THROW(loop.runFor(0.5), std::runtime_error);
    EXPECT_EQ(lastDelegate->sightings.size(), 1U);
    platform.world().setRadioState(CBManagerState::poweredOff);
    EXPECT_THROW(loop.runFor(0.5), std::runtime_error);
    loop.runFor(0.5);
    EXPECT_EQ(lastDelegate->events.back(), "state 4");
}

TEST_F(SimulationTest, AWorldMayDieBeforeItsRunLoop) {
    {
        simulation::World world(loop, 0);
        SimulatedBeacon& beacon = zobi::addBeacon(world, {});
        beacon.comeIntoRange();
        beacon.pressButton(1, 1);
        beacon.sendOnce({});
        world.setRadioState(CBManagerState::poweredOff);
    }
    loop.runFor(5);
    EXPECT_EQ(loop.timerCount(), 0U);
}

/// A minute with some beacons and all the randomness there is, told in full from a moment on.
Events eventsWithSeed(std::uint64_t seed, int beacons, double start = 0) {
    SimulatedPlatform platform(StandardPlatform::Time::virtualTime, seed);
    for (int i = 0; i < beacons; ++i) {
        zobi::addBeacon(
            platform.world(),
            {.minor = static_cast<std::uint16_t>(i), .advertisingJitter = 0.3, .signalStrengthSpread = 9})
            .comeIntoRange();
    }
    platform.runLoop().runFor(start);
    const auto delegate = listenerOn(platform);
    const auto central = platform.makeCentralManager(delegate);
    platform.runLoop().processPending();
    central->scanForPeripheralsWithServicesOptions({}, {.allowDuplicates = true});
    platform.runLoop().runFor(60 - start);
    return delegate->events;
}

TEST(SeedTest, DecidesTheWholeRunAndEachBeaconByItselfWhoeverListens) {
    const auto events = eventsWithSeed(7, 20);
    EXPECT_GT(events.size(), 900U);
    EXPECT_EQ(events, eventsWithSeed(7, 20));
    EXPECT_NE(events, eventsWithSeed(8, 20));
    EXPECT_NE(events, eventsWithSeed(7 + (std::uint64_t{1} << 32), 20));
    EXPECT_THAT(events, ::testing::IsSupersetOf(eventsWithSeed(7, 3)));
    EXPECT_THAT(events, ::testing::IsSupersetOf(eventsWithSeed(7, 3, 30)));
}

}  // namespace
