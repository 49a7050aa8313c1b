// What becomes of attempts to connect and of links, whatever the service answers and whatever befalls it.

#include <array>
#include <filesystem>
#include <future>
#include <tuple>

#include "BlueZRadio.h"

namespace zobi::platform::bluez {
namespace {

using namespace ::testing;
using enum Attempts;

TEST_P(BlueZRadio, WhatTheServiceAnswersDecidesTheAttempt) {
    struct Row {
        const char* outcome = nullptr;
        Attempts attempts = succeed;
        Script script = {};
        const char* operation = "Connect";
    };
    constexpr const char* connected = "connected";
    constexpr const char* failed = "failed error 10";
    constexpr const char* pending = "";
    const std::array<Row, 14> rows{{
        {connected, areNotTold},
        {pending, areSwallowed},
        {pending, succeedWithoutLink},
        {failed, areNeverResolved},
        {failed, areResolvedEmpty},
        {connected, succeed, fails("Failed", "le-connection-abort-by-local")},
        {connected, succeed, fails("InProgress", "In Progress", 2)},
        {connected, succeed, fails(unknownObjectError, "Method \"Connect\" doesn't exist", 9)},
        {failed, succeed, fails(accessDeniedError, "Rejected send message", -1)},
        {connected, succeed, neverAnswered},
        {connected, succeed, {.answers = false, .times = 1}},
        {connected, succeed, {.delay = 8, .times = 1}},
        // The first asks for the link, the second for the services.
        {connected, succeed, {.acts = false, .answers = false, .times = 2}, "Get"},
        {connected, succeed, fails("Failed", "Failed", 2), "Get"},
    }};
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(i);
        beacon.isInRange = true;
        const auto peripheral = sight();
        beacon.attempts = rows[i].attempts;
        service.scripts = {{rows[i].operation, rows[i].script}};
        connect(peripheral);
        EXPECT_EQ(eventsIn(120), rows[i].outcome == pending ? Events{} : Events{rows[i].outcome});
        beacon.attempts = succeed;
        service.scripts.clear();
        if (rows[i].outcome == failed) {
            EXPECT_EQ(beacon.link, nullptr) << "nothing is left behind";
            connect(peripheral);
        }
        EXPECT_EQ(eventsIn(60), rows[i].outcome == connected ? Events{} : Events{connected});
        unlink(peripheral);
    }
    const auto peripheral = sight();
    for (const auto scanForOthers : {false, true}) {
        beacon.isInRange = false;
        pass(5);
        central->stopScan();
        const std::array others{CBUUID::UUIDWithString("FEED")};
        if (scanForOthers) central->scanForPeripheralsWithServicesOptions(others, {});
        connect(peripheral);
        pass(60);
        beacon.isInRange = true;
        EXPECT_THAT(eventsIn(20), ElementsAre("connected")) << "whatever is scanned for";
        unlink(peripheral);
    }
    beacon.attempts = areResolvedEmpty;
    connect(peripheral);
    EXPECT_THAT(eventsIn(5), IsEmpty());
    const auto late = beacon.characteristics().front();
    service.addObject(late.servicePath, {{gattServiceInterface, {{"UUID", longForm(late.service)}}}});
    EXPECT_THAT(eventsIn(1), ElementsAre(connected)) << "its table came late";
    unlink(peripheral);
    beacon.attempts = succeed;
    service.connectByOther(beacon);
    pass(1);
    connect(peripheral);
    EXPECT_TRUE(within(5, connected)) << "the link is another program's";
    service.scripts["Disconnect"] = {.acts = false, .delay = 6, .times = 1};
    central->cancelPeripheralConnection(peripheral);
    EXPECT_TRUE(within(5.5, "disconnected"));
    takeEvents();
    connect(peripheral);
    EXPECT_TRUE(within(3, connected)) << "the other program keeps it";
}

TEST_P(BlueZRadio, EachAttemptAndLinkHasOneOutcomeWhateverHappensInWhichPhase) {
    struct Blow {
        Events states;
        std::function<void()> falls, heals;
        const char* attempt = "failed error 5";
        const char* link = "disconnected error 5";
    };
    const auto on = [&] { service.setPowered(true); };
    const auto start = [&] { service.start(); };
    const auto nothing = [] {};
    const auto dropForLong = [&] { (service.dropBus(), service.hasBus = false); };
    const auto forget = [&] { (service.forget(beacon), beacon.attempts = succeed); };
    const auto cancel = [&] { central->cancelPeripheralConnection(listener->sightings.back()); };
    const std::array<Blow, 9> blows{{
        {{"state 4", "state 5"}, [&] { service.setPowered(false); }, on},
        // The end of the link is not told.
        {{"state 4", "state 5"}, [&] { (beacon.link.reset(), service.setPowered(false)); }, on},
        {{"state 1", "state 5"}, [&] { (service.crash(), service.start()); }, nothing},
        {{"state 1", "state 2", "state 5"}, [&] { service.crash(); }, start},
        {{"state 4", "state 1", "state 2", "state 5"}, [&] { service.stop(); }, start},
        {{"state 1", "state 5"}, [&] { service.dropBus(); }, nothing},
        {{"state 1", "state 2", "state 5"}, dropForLong, [&] { service.hasBus = true; }},
        {{}, forget, nothing, "connected", "disconnected error 0"},
        {{}, cancel, nothing, "disconnected", "disconnected"},
    }};
    const auto strikeAll = [&] {
        for (std::size_t i = 0; i < blows.size(); ++i) {
            for (int phase = waiting; phase < phases; ++phase) {
                SCOPED_TRACE("blow " + std::to_string(i) + " in phase " + std::to_string(phase));
                const auto peripheral = reach(phase);
                blows[i].falls();
                pass(30);
                beacon.attempts = succeed;
                beacon.isInRange = true;
                service.calls.clear();
                blows[i].heals();
                Events states = eventsIn(40);
                const auto isState = [](const std::string& event) { return event[0] == 's'; };
                const auto outcomes = std::stable_partition(states.begin(), states.end(), isState);
                ASSERT_EQ(states.end() - outcomes, 1);
                const std::string outcome = *outcomes;
                states.pop_back();
                EXPECT_EQ(states, blows[i].states);
                // An end that was asked for may be told as one.
                EXPECT_THAT(outcome, AnyOf(phase < linked ? blows[i].attempt : blows[i].link,
                                           phase == ending ? "disconnected" : "nothing else"));
                EXPECT_EQ(central->isScanning(), states.empty());
                EXPECT_FALSE(!states.empty() && callsOf("StartDiscovery") > 0) << "no scan begins by itself";
                if (outcome == "connected") central->cancelPeripheralConnection(peripheral);
                pass(5);
                EXPECT_EQ(beacon.link, nullptr) << "nothing is left behind";
                takeEvents();
                ASSERT_EQ(link(), peripheral) << "it can be connected anew";
                unlink(peripheral);
            }
        }
        machine.lines.clear();
        listener->sightings.clear();
    };
#ifdef NDEBUG
    // On a thread that ends: until then, what `malloc` keeps at hand for a thread counts as in use.
    const auto carryOut = [&] { std::async(std::launch::async, strikeAll).get(); };
    constexpr int slack = 1024;
#else
    // A debug build does not let another thread run the loop: with what `malloc` keeps at hand.
    const auto& carryOut = strikeAll;
    constexpr int slack = 16 * 1024;
#endif
    const auto heldAfterAll = [&] {
        carryOut();
        const std::filesystem::directory_iterator files("/proc/self/fd");
        return std::tuple(std::distance(begin(files), end(files)), machine.runLoop().timerCount(),
                          heapInUse());
    };
    // The first time, what lasts is made.
    heldAfterAll();
    const auto [files, timers, heap] = heldAfterAll();
    const auto [filesThen, timersThen, heapThen] = heldAfterAll();
    EXPECT_EQ(filesThen, files);
    EXPECT_EQ(timersThen, timers);
    // Less than the smallest block for each blow in each phase: what `malloc` gives for a request differs.
    EXPECT_LT(heapThen, heap + slack);
}

TEST_P(BlueZRadio, ASecondRequestJoinsThePendingAttempt) {
    for (const int phase : {waiting, connecting, resolving}) {
        SCOPED_TRACE(phase);
        const auto peripheral = reach(phase);
        service.calls.clear();
        connect(peripheral);
        pass(0.5);
        EXPECT_THAT(service.calls, IsEmpty()) << "nothing begins anew";
        beacon.attempts = succeed;
        beacon.isInRange = true;
        EXPECT_THAT(eventsIn(60), ElementsAre("connected"));
        unlink(peripheral);
    }
    reach(connecting);
    service.calls.clear();
    service.forget(beacon);
    beacon.attempts = succeed;
    EXPECT_TRUE(within(60, "connected")) << "the service knows the beacon anew";
    EXPECT_EQ(callsOf("Disconnect"), 0);
    unlink(listener->sightings.back());
    service.othersDiscover = true;
    reach(connecting);
    EXPECT_EQ(callsOf("Disconnect"), 0);
    pass(11);
    EXPECT_EQ(callsOf("Disconnect"), 1) << "an attempt is longer while others discover";
}

TEST_P(BlueZRadio, AttemptsTakeTurnsAndLeaveTimeToScan) {
    beacon.isInRange = true;
    std::vector<std::shared_ptr<CBPeripheral>> handles{sight()};
    std::vector<ScriptedDevice*> others;
    for (const char* const address : {"00:00:5E:00:53:21", "00:00:5E:00:53:22", "00:00:5E:00:53:23"}) {
        others.push_back(&service.add(beacon));
        others.back()->address = address;
        others.back()->attempts = areSwallowed;
        const auto isNew = [&] { return !std::ranges::count(handles, listener->sightings.back()); };
        ASSERT_TRUE(bench->runUntil(isNew));
        handles.push_back(listener->sightings.back());
    }
    service.calls.clear();
    auto lastHeard = machine.clock().monotonicTime();
    std::chrono::nanoseconds longestSilence{};
    listener->onSighting = [&](const auto& /*data*/) {
        if (listener->sightings.back() != handles[0]) return;
        const auto now = machine.clock().monotonicTime();
        longestSilence = std::max(longestSilence, now - std::exchange(lastHeard, now));
    };
    for (std::size_t i = 1; i < handles.size(); ++i) connect(handles[i]);
    pass(120);
    EXPECT_LE(longestSilence, std::chrono::seconds(4 + 1)) << "a pause, and up to the next advertisement";
    std::map<std::string, int> turns;
    bool isTrying = false;
    for (const auto& call : service.calls) {
        if (call.starts_with("Disconnect ")) isTrying = false;
        EXPECT_FALSE(isTrying && call.starts_with("StartDiscovery ")) << "an attempt is given up first";
        if (!call.starts_with("Connect ")) continue;
        EXPECT_FALSE(std::exchange(isTrying, true)) << "one at a time";
        ++turns[call];
    }
    EXPECT_THAT(turns, AllOf(SizeIs(3), Each(Pair(_, AllOf(Ge(3), Le(8))))));
    others.back()->attempts = succeed;
    EXPECT_TRUE(within(40, "connected")) << "whoever can be connected is";
    EXPECT_EQ(handles[3]->state(), CBPeripheralState::connected);
}

TEST_P(BlueZRadio, TheEndOfALinkIsToldWithItsReasonOrSoonWithoutIt) {
    constexpr double never = 30;
    const auto channel = machine.channel;
    for (const auto& [hasChannel, delay, isRecent] : {std::tuple(true, 0.0, false),
                                                      {true, 0.1, false},
                                                      {true, never, false},
                                                      {true, never, true},
                                                      {false, 0.0, true},
                                                      {false, 0.0, false}}) {
        machine.channel = hasChannel ? channel : nullptr;
        machine.reasonDelay = delay;
        service.isRecent = isRecent;
        cyclePower();
        const bool isKnown = isRecent || (hasChannel && delay < never);
        for (const auto& [reason, code] : {std::pair(0x08, 6), {0x13, 7}, {0x16, 0}, {0x22, 0}}) {
            SCOPED_TRACE(std::to_string(reason) + (isKnown ? " known" : " not known"));
            const auto peripheral = link();
            service.endLink(beacon, static_cast<std::uint8_t>(reason));
            pass(0.01);
            // It comes too late to end anything.
            central->cancelPeripheralConnection(peripheral);
            ASSERT_TRUE(within(1, "disconnected error " + std::to_string(isKnown ? code : 0)));
            // A reason that comes too late is not taken for the next link's.
            EXPECT_THAT(eventsIn(delay + 1), SizeIs(1));
        }
        link();
        service.endLink(beacon, 0x16);
        pass(0.05);
        service.setPowered(false);
        EXPECT_THAT(eventsIn(5), ElementsAre("state 4", "disconnected error 5")) << "told just after the end";
        service.setPowered(true);
        ASSERT_TRUE(heard("state 5"));
    }
}

TEST_P(BlueZRadio, ADeviceOfTwoKindsIsConnectedOverLowEnergy) {
    beacon.isInRange = true;
    const auto peripheral = sight();
    for (const std::string bearer : {"last-used", "le"}) {
        service.change(beacon.path(), deviceInterface, {{"PreferredBearer", bearer}});
        service.calls.clear();
        connect(peripheral);
        ASSERT_TRUE(within(10, "connected"));
        EXPECT_EQ(callsOf("Set"), bearer == "le" ? 0 : 1);
        EXPECT_EQ(callsOf("Connect"), 1);
        unlink(peripheral);
    }
}

TEST_P(BlueZRadio, ABondedDeviceThatHidesItsAddressIsConnectedAgain) {
    const std::string identity = "00:00:5E:00:53:77";
    beacon.isInRange = true;
    const auto peripheral = link();
    // It is told over the link, and the kernel knows the device by it from then on.
    service.change(beacon.path(), deviceInterface, {{"Address", identity}, {"AddressType", "random"}});
    service.onLinkEnd = [&](const auto& /*device*/, std::uint8_t reason) {
        machine.channel->tellLinkEnd(identity, reason, true);
    };
    for (const std::uint8_t reason : {std::uint8_t{0x08}, std::uint8_t{0x3D}}) {
        pass(1);
        peripheral->readRSSI();
        EXPECT_THAT(eventsIn(1), ElementsAre("rssi"));
        EXPECT_EQ(machine.channel->measured, identity);
        // For the second, BlueZ has no word of its own.
        service.isRecent = true;
        service.endLink(beacon, reason);
        ASSERT_TRUE(within(1, "disconnected error 6"));
        EXPECT_EQ(link(), peripheral);
    }
    service.isRecent = false;
    service.dropBus();
    ASSERT_TRUE(within(5, "state 5"));
    EXPECT_EQ(link(), peripheral) << "as the service lists it anew";
}

TEST_P(BlueZRadio, ACentralThatGoesEndsWhatItBegan) {
    for (int phase = waiting; phase < phases; ++phase) {
        SCOPED_TRACE(phase);
        auto peripheral = reach(phase);
        service.calls.clear();
        central = nullptr;
        beacon.attempts = succeed;
        peripheral->readRSSI();
        EXPECT_THAT(eventsIn(20), IsEmpty());
        EXPECT_THAT(service.calls, Each(AnyOf(StartsWith("Disconnect"), StartsWith("StopNotify"))));
        EXPECT_EQ(beacon.link, nullptr);
        peripheral.reset();
        listener->sightings.clear();
        // Nobody is left to tell it to.
        if (phase >= linked) machine.channel->answerRSSI();
        central = machine.makeCentralManager(listener);
        eventsUntil("state 5");
    }
    scan();
    listener->onSighting = [&](const auto& /*data*/) { central = nullptr; };
    beacon.isInRange = true;
    listener->sightings.clear();
    pass(5);
    EXPECT_THAT(listener->sightings, SizeIs(1)) << "it may go from inside what it tells";
}

TEST_P(BlueZRadio, ALinkThatIsNotOursAtTheStartIsToldOnceAndEndedIfAskedFor) {
    struct Row {
        double moment = 0;
        std::vector<CBUUID> ended = {};
        bool isPaired = false;
        bool isTold = true;
    };
    const auto mine = ZOKGATTProfile::configurationService;
    const auto other = CBUUID::UUIDWithString("FEED");
    const std::vector<Row> rows{
        {-5},           {-5, {other}}, {-5, {mine}}, {-5, {}, true, false},  {-5, {mine}, true},
        {-0.5, {mine}}, {30},          {30, {mine}}, {60, {}, false, false}, {60, {mine}, false, false}};
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(i);
        const Row& row = rows[i];
        ScriptedPlatform its;
        its.foreignLinks = std::make_shared<ForeignLinks>(row.ended);
        ScriptedDevice& device = its.service.add({.serviceData = ScriptedBench::payload(7)});
        device.isInRange = its.service.othersDiscover = true;
        its.runLoop().runFor(2);
        const auto linkNow = [&] {
            its.service.connectByOther(device);
            if (row.isPaired) its.service.change(device.path(), deviceInterface, {{"Paired", true}});
        };
        if (row.moment < 0) (linkNow(), its.runLoop().runFor(-row.moment));
        const auto first = watch(its);
        const auto second = watch(its);
        its.runLoop().runFor(std::max(row.moment, 0.0));
        if (row.moment > 0) linkNow();
        its.runLoop().runFor(5);
        const bool isEnded = row.isTold && !row.ended.empty() && row.ended.front() == mine;
        EXPECT_EQ(device.isLinked(), !isEnded);
        EXPECT_EQ(its.linesWith("not by this"), row.isTold ? 1 : 0);
        const auto& found = its.foreignLinks->found();
        ASSERT_EQ(found.size(), row.isTold ? 1U : 0U);
        EXPECT_TRUE(!row.isTold || (found[0].address == device.address && found[0].isEnded == isEnded));
    }
    reach(linked);
    watch(machine);
    EXPECT_THAT(machine.foreignLinks->found(), IsEmpty()) << "it is ours";
}

}  // namespace
}  // namespace zobi::platform::bluez
