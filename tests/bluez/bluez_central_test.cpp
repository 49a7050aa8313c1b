// What the BlueZ radio makes of a Bluetooth service and its failures, against a scripted one, in virtual
// time.

#include <set>

#include "ScriptedPlatform.h"
#include "platform/bluez/bus/BlueZNames.h"
#include "radio/RadioTest.h"
#include "zobi/platform/NSData.h"

namespace zobi::platform::bluez {
namespace {

using namespace ZOKGATTProfile;
using namespace ::testing;
using enum Attempts;

const std::string stranger = ":9.9";
const Properties blocked{{"Powered", false}, {"PowerState", "off-blocked"}};
const Script neverAnswered{.acts = false, .answers = false, .times = 1};

Script fails(const std::string& name, const std::string& message, int times = 1) {
    return {.error = BusError{name.starts_with("org.") ? name : "org.bluez.Error." + name, message},
            .times = times};
}

/// Writes down what each sighting carries.
class Watcher final : public CBCentralManagerDelegate {
public:
    Events events;
    bool refusesNext = false;

    void centralManagerDidUpdateState(CBCentralManager& central) override {
        events.push_back("state " + std::to_string(static_cast<int>(central.state())));
    }
    void centralManagerDidDiscoverPeripheralAdvertisementDataRSSI(CBCentralManager&,
                                                                  const std::shared_ptr<CBPeripheral>&,
                                                                  const CBAdvertisementData& data,
                                                                  NSNumber rssi) override {
        std::string event(data.localName.value_or("nameless"));
        for (const auto& [service, bytes] : data.serviceData) {
            event += ' ' + service.UUIDString() + ':' + std::to_string(bytes.size());
        }
        events.push_back(event + ' ' + rssi.description());
        if (std::exchange(refusesNext, false)) throw DataRangeError(data.serviceData[0].data, 0, 99);
    }
};

/// Where an attempt or a link stands.
enum Phase { waiting, connecting, resolving, linked, ending, phases };

class BlueZRadio : public RadioTest {
protected:
    void pass(double seconds) { machine.runLoop().runFor(seconds); }
    bool within(double seconds, const std::string& event) {
        return bench->runUntil([&] { return std::ranges::count(listener->events, event) > 0; }, seconds);
    }
    /// What was told in so many seconds.
    Events eventsIn(double seconds) {
        pass(seconds);
        return takeEvents();
    }
    bool wasCalled(const std::string& operation) const {
        return std::ranges::any_of(service.calls, [&](auto& it) { return it.starts_with(operation + ' '); });
    }
    /// Brings the beacon, which is not linked, into a phase.
    std::shared_ptr<CBPeripheral> reach(int phase) {
        if (phase >= linked) {
            auto peripheral = link();
            discover(peripheral);
            if (phase == ending) central->cancelPeripheralConnection(peripheral);
            EXPECT_THAT(eventsIn(0.5), IsEmpty());
            return peripheral;
        }
        beacon.isInRange = true;
        auto peripheral = sight();
        beacon.isInRange = phase != waiting;
        beacon.attempts = phase == connecting ? areSwallowed : areNeverResolved;
        if (phase == waiting) pass(5);
        service.calls.clear();
        connect(peripheral);
        if (phase == waiting) {
            pass(60);
            EXPECT_TRUE(wasCalled("StopDiscovery")) << "all devices are to be reported again";
        }
        EXPECT_EQ(bench->runUntil([&] { return wasCalled("Connect"); }, 5), phase != waiting)
            << "an attempt is made when the beacon was heard";
        pass(1.5);
        return peripheral;
    }
    void signal(const Properties& changed, const std::string& sender = {}) {
        const auto body = [&](Message& it) { it.string(deviceInterface).properties(changed).strings({}); };
        service.emit(beacon.path(), propertiesInterface, "PropertiesChanged", body, deviceInterface, sender);
    }
    void cyclePower() {
        takeEvents();
        service.setPowered(false);
        ASSERT_TRUE(heard("state 4"));
        service.setPowered(true);
        ASSERT_TRUE(heard("state 5"));
        takeEvents();
    }

    ScriptedBench& scripted = static_cast<ScriptedBench&>(*bench);
    ScriptedPlatform& machine = scripted.platform();
    ScriptedService& service = scripted.service;
    ScriptedDevice& beacon = scripted.beacon;
};

const auto scriptedRadio =
    Values(RadioUnderTest{"Scripted", [] { return std::make_unique<ScriptedBench>(); }});
INSTANTIATE_TEST_SUITE_P(Scripted, BlueZRadio, scriptedRadio);

// State

TEST_P(BlueZRadio, TheStateAndOneLineTellWhatIsInTheWay) {
    const std::array<std::pair<const char*, std::function<void(ScriptedService&)>>, 7> obstacles{{
        {"state 2", [](auto& it) { it.hasBus = false; }},
        {"state 2", [](auto& it) { it.crash(); }},
        {"state 3", [](auto& it) { it.isRefused = true; }},
        {"state 2", [](auto& it) { it.removeAdapter(firstAdapter); }},
        {"state 4", [](auto& it) { it.setPowered(false); }},
        {"state 4", [](auto& it) { it.change(firstAdapter, adapterInterface, blocked); }},
        {"state 1", [](auto& it) { it.scripts["GetManagedObjects"] = {.acts = false, .answers = false}; }},
    }};
    std::set<std::string> lines;
    for (const auto& [event, stand] : obstacles) {
        ScriptedPlatform other;
        stand(other.service);
        const auto watcher = std::make_shared<Watcher>();
        const auto watched = other.makeCentralManager(watcher);
        other.runLoop().runFor(20);
        EXPECT_THAT(watcher->events, ElementsAre(event)) << lines.size();
        lines.insert(other.lines.empty() ? "" : other.lines.back());
        other.service.hasBus = true;
        other.service.isRefused = false;
        other.service.scripts.clear();
        if (event != std::string("state 3")) (other.service.crash(), other.service.start());
        other.runLoop().runFor(60);
        EXPECT_EQ(watcher->events.back(), "state 5") << lines.size();
    }
    EXPECT_THAT(lines, AllOf(SizeIs(obstacles.size()), Not(Contains("")))) << "each is told apart";
}

TEST_P(BlueZRadio, UsesTheAdapterThatItIsAskedFor) {
    const std::string second = "/org/bluez/hci1";
    service.add({.address = "00:00:5E:00:53:0A", .adapter = second, .rssi = -50, .isInRange = true});
    beacon.isInRange = true;
    for (const char* const name : {"hci1", "00:00:5E:00:53:09"}) {
        const auto watcher = std::make_shared<Watcher>();
        const auto watched = machine.makeCentralManager(watcher, name);
        pass(5);
        service.addAdapter(second, "00:00:5E:00:53:09");
        pass(5);
        EXPECT_THAT(std::exchange(watcher->events, {}), ElementsAre("state 2", "state 5")) << name;
        watched->scanForPeripheralsWithServicesOptions({}, {.allowDuplicates = true});
        cyclePower();
        pass(3);
        EXPECT_THAT(std::exchange(watcher->events, {}), AllOf(SizeIs(Ge(2)), Each("morvane -50"))) << name;
        service.removeAdapter(second);
        EXPECT_THAT(eventsIn(5), IsEmpty()) << "it was not in use here";
        EXPECT_EQ(watcher->events.back(), "state 2") << name;
    }
}

// Scanning

TEST_P(BlueZRadio, AsksTheServiceForWhatTheScanNeedsAndFiltersAgain) {
    const auto sightingsIn = [&](double seconds) {
        listener->sightings.clear();
        pass(seconds);
        return listener->sightings.size();
    };
    scan();
    pass(1);
    EXPECT_THAT(service.lastFilter,
                UnorderedElementsAre(Pair("Transport", Value("le")), Pair("DuplicateData", Value(true)),
                                     Pair("RSSI", _), Pair("UUIDs", Value(beacon.uuids))));
    const auto* const threshold = named(service.lastFilter, "RSSI")->get<std::int16_t>();
    ASSERT_TRUE(threshold);
    EXPECT_THAT(*threshold, AllOf(Ge(-127), Le(-112)));
    auto& foreign = service.add({.address = "00:00:5E:00:53:0B",
                                 .uuids = {longForm(batteryService)},
                                 .serviceData = ScriptedBench::payload(8),
                                 .isInRange = true});
    // Somebody else's discovery lets everything through.
    service.othersDiscover = true;
    EXPECT_EQ(sightingsIn(5), 0U);
    link();
    foreign.isInRange = false;
    service.endLink(beacon, 0x13);
    // The service was found over the link, and is not advertised.
    central->scanForPeripheralsWithServicesOptions(std::array{batteryService}, {.allowDuplicates = true});
    EXPECT_EQ(sightingsIn(5), 0U);
    foreign.isInRange = true;
    EXPECT_GT(sightingsIn(5), 3U);
    central->scanForPeripheralsWithServicesOptions({}, {.allowDuplicates = true});
    EXPECT_GT(sightingsIn(5), 8U) << "both";
}

TEST_P(BlueZRadio, OnlyWhatIsHeardIsASighting) {
    beacon.isInRange = true;
    sight();
    beacon.isInRange = false;
    pass(1);
    const auto watcher = std::make_shared<Watcher>();
    const auto watched = machine.makeCentralManager(watcher);
    pass(1);
    watcher->events.clear();
    watched->scanForPeripheralsWithServicesOptions({}, {.allowDuplicates = true});
    const Properties heardOnce{{"RSSI", std::int16_t{-40}}, {"ServiceData", beacon.serviceData}};
    signal(heardOnce, stranger);
    signal({{"Connected", false}, {"ServicesResolved", false}});
    signal({{"Alias", "mine"}, {"Trusted", true}, {"UUIDs", beacon.uuids}});
    service.change(beacon.path(), deviceInterface, {}, {"RSSI"});
    service.change(firstAdapter, adapterInterface, {{"Discovering", false}});
    pass(5);
    service.connectByOther(beacon);
    pass(2);
    service.endLink(beacon, 0x13);
    pass(1);
    EXPECT_THAT(watcher->events, IsEmpty()) << "nor what the service remembers";
    EXPECT_THAT(takeEvents(), IsEmpty()) << "the link was another program's";

    signal({{"Name", "morvane"}, {"RSSI", std::int16_t{-41}}});
    signal({{"RSSI", std::int16_t{127}}, {"ServiceData", beacon.serviceData}});
    signal(heardOnce);
    pass(0.1);
    EXPECT_THAT(watcher->events, Contains("morvane 180A:16 (null)")) << "127 is no strength";
    EXPECT_EQ(watcher->events.back(), "morvane 180A:16 -40") << "name and data came in two signals";
}

TEST_P(BlueZRadio, AScanWithoutDuplicatesReportsADeviceOnceUnderItsName) {
    beacon.isInRange = true;
    sight();
    service.connectByOther(beacon);
    pass(2);
    beacon.isInRange = false;
    service.endLink(beacon, 0x13);
    const auto watcher = std::make_shared<Watcher>();
    const auto watched = machine.makeCentralManager(watcher);
    pass(1);
    const auto told = [&] {
        pass(5);
        return std::exchange(watcher->events, {});
    };
    told();
    const Properties heard{{"RSSI", std::int16_t{-50}}, {"ServiceData", beacon.serviceData}};
    watched->scanForPeripheralsWithServicesOptions({}, {});
    signal(heard);
    EXPECT_THAT(told(), ElementsAre("Beacon 7 180A:16 -50")) << "the service remembers it from the link";
    signal({{"Name", "morvane"}, {"RSSI", std::int16_t{-50}}});
    for (int i = 0; i < 3; ++i) signal(heard);
    EXPECT_THAT(told(), ElementsAre("morvane 180A:16 -50"));
    service.connectByOther(beacon);
    pass(2);
    service.endLink(beacon, 0x13);
    watched->scanForPeripheralsWithServicesOptions({}, {});
    signal(heard);
    EXPECT_THAT(told(), ElementsAre("morvane 180A:16 -50")) << "not what the service has read over a link";
    service.forget(beacon);
    beacon.isInRange = true;
    EXPECT_THAT(told(), IsEmpty()) << "the scan knows it though the service has forgotten it";
    watched->scanForPeripheralsWithServicesOptions({}, {});
    EXPECT_THAT(told(), ElementsAre("morvane 180A:16 -60"));
    watched->scanForPeripheralsWithServicesOptions({}, {});
    watcher->refusesNext = true;
    EXPECT_THAT(told(), SizeIs(2)) << "a report that is dropped is none";
}

TEST_P(BlueZRadio, AScanThatDoesNotStartOrStopIsTriedAgain) {
    beacon.isInRange = true;
    const std::array<Script, 6> troubles{fails("InProgress", "Operation already in progress", 2),
                                         fails("NotReady", "Resource Not Ready", 2),
                                         fails("Failed", "Failed", 2),
                                         neverAnswered,
                                         {.answers = false, .times = 1},
                                         {.delay = 8, .times = 1}};
    for (std::size_t i = 0; i < troubles.size(); ++i) {
        for (const char* const operation : {"SetDiscoveryFilter", "StartDiscovery", "StopDiscovery"}) {
            SCOPED_TRACE(operation + (' ' + std::to_string(i)));
            // These tell that discovery is off.
            if (operation == std::string("StopDiscovery") && (i == 1 || i == 2)) continue;
            cyclePower();
            service.lastFilter.clear();
            service.scripts = {{operation, troubles[i]}};
            listener->sightings.clear();
            scan();
            EXPECT_TRUE(bench->runUntil([&] { return listener->sightings.size() > 3; }, 30));
            EXPECT_THAT(service.lastFilter, Not(IsEmpty()));
            central->stopScan();
            pass(20);
            service.calls.clear();
            const auto lastSeen = beacon.lastSeen;
            pass(20);
            EXPECT_EQ(beacon.lastSeen, lastSeen) << "discovery is over";
            EXPECT_THAT(service.calls, IsEmpty());
        }
    }
}

TEST_P(BlueZRadio, HostileDataIsPassedOver) {
    beacon.isInRange = true;
    sight();
    const std::array<Value, 7> kinds{std::uint16_t{7},
                                     "text",
                                     ObjectPath{"/"},
                                     Bytes(70'000, 7),
                                     std::vector<std::string>(5'000, "no UUID"),
                                     Properties{{"no UUID", true}, {longForm(batteryService), "no bytes"}},
                                     Properties(3'000, {longForm(batteryService), Bytes(30)})};
    const std::array names{"RSSI",  "ServiceData", "Name",    "Connected", "ServicesResolved",
                           "UUIDs", "Address",     "Adapter", "Powered",   "AddressType"};
    const std::string added = "InterfacesAdded";
    for (const char* const name : names) {
        for (const Value& value : kinds) {
            signal({{name, value}});
            for (const char* const interface : {adapterInterface, deviceInterface}) {
                service.emit("/", objectManagerInterface, added, [&](Message& body) {
                    body.objectPath(firstAdapter + "/dev_00_00_5E_00_53_0C");
                    body.interfaces({{interface, {{name, value}}}});
                });
            }
        }
    }
    for (const char* const path : {"/", "/org/bluez/hci0/dev_", "/org/bluez/hci0/dev_00_00_5E_00_53_0G"}) {
        service.addObject(path, {{deviceInterface, {}}});
    }
    const auto wrongBody = [](Message& body) { body.objectPath("/").bytes({}); };
    for (const char* const member : {"PropertiesChanged", "InterfacesAdded", "InterfacesRemoved"}) {
        service.emit(beacon.path(), propertiesInterface, member, wrongBody);
        service.emit("/", objectManagerInterface, member, wrongBody);
    }
    service.crash();
    service.scripts["GetManagedObjects"] = {.acts = false, .times = 1};
    service.start();
    EXPECT_TRUE(heard("state 1")) << "an answer without a list is none";
    EXPECT_TRUE(heard("state 5"));
    takeEvents();
    sight();
    // Some of it was of the right kind.
    signal({{"Name", beacon.name}, {"UUIDs", beacon.uuids}});
    EXPECT_THAT(eventsIn(1), IsEmpty()) << "the radio is as it was";
    EXPECT_NE(link(), nullptr);
}

// Attempts and links

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
    const std::array<Row, 22> rows{{
        {connected, succeed},
        {connected, areNotTold},
        {failed, breakOff},
        {pending, areSwallowed},
        {pending, succeedWithoutLink},
        {failed, areLostBeforeResolved},
        {failed, areNeverResolved},
        {failed, areResolvedEmpty},
        {connected, succeed, fails("Failed", "le-connection-abort-by-local")},
        {connected, succeed, fails("Failed", "br-connection-canceled")},
        {connected, succeed, fails("Failed", "Input/output error")},
        {connected, succeed, fails("Failed", "Operation already in progress", 2)},
        {connected, succeed, fails("InProgress", "In Progress", 2)},
        {connected, succeed, fails("NotReady", "Resource Not Ready", 9)},
        {connected, succeed, fails(unknownObjectError, "Method \"Connect\" doesn't exist", 9)},
        {failed, succeed, fails("Failed", "le-connection-not-supported", -1)},
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
        takeEvents();
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
        central->cancelPeripheralConnection(peripheral);
        ASSERT_TRUE(heard("disconnected"));
    }
    const auto peripheral = sight();
    for (const auto scanForOthers : {false, true}) {
        beacon.isInRange = false;
        pass(5);
        takeEvents();
        central->stopScan();
        const std::array others{CBUUID::UUIDWithString("FEED")};
        if (scanForOthers) central->scanForPeripheralsWithServicesOptions(others, {});
        connect(peripheral);
        pass(60);
        beacon.isInRange = true;
        EXPECT_THAT(eventsIn(20), ElementsAre("connected")) << "whatever is scanned for";
        central->cancelPeripheralConnection(peripheral);
        ASSERT_TRUE(heard("disconnected"));
    }
    takeEvents();
    service.connectByOther(beacon);
    pass(1);
    connect(peripheral);
    EXPECT_TRUE(within(5, connected)) << "the link is another program's";
    service.scripts["Disconnect"] = neverAnswered;
    central->cancelPeripheralConnection(peripheral);
    EXPECT_TRUE(within(10, "disconnected"));
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
    for (std::size_t i = 0; i < blows.size(); ++i) {
        for (int phase = waiting; phase < phases; ++phase) {
            SCOPED_TRACE("blow " + std::to_string(i) + " in phase " + std::to_string(phase));
            const auto peripheral = reach(phase);
            service.calls.clear();
            blows[i].falls();
            pass(30);
            beacon.attempts = succeed;
            beacon.isInRange = true;
            service.calls.clear();
            blows[i].heals();
            Events states = eventsIn(40);
            const auto isOutcome = [](const std::string& event) { return event[0] != 's'; };
            Events outcomes;
            std::ranges::copy_if(states, std::back_inserter(outcomes), isOutcome);
            std::erase_if(states, isOutcome);
            EXPECT_EQ(states, blows[i].states);
            ASSERT_THAT(outcomes, SizeIs(1));
            // An end that was asked for may be told as one.
            EXPECT_THAT(outcomes[0], AnyOf(phase < linked ? blows[i].attempt : blows[i].link,
                                           phase == ending ? "disconnected" : "nothing else"));
            EXPECT_EQ(central->isScanning(), states.empty());
            EXPECT_FALSE(!states.empty() && wasCalled("StartDiscovery")) << "no scan begins by itself";
            if (outcomes[0] == "connected") central->cancelPeripheralConnection(peripheral);
            pass(5);
            EXPECT_EQ(beacon.link, nullptr) << "nothing is left behind";
            takeEvents();
            ASSERT_EQ(link(), peripheral) << "it can be connected anew";
            central->cancelPeripheralConnection(peripheral);
            ASSERT_TRUE(heard("disconnected"));
            takeEvents();
        }
    }
}

TEST_P(BlueZRadio, AttemptsTakeTurnsAndLeaveTimeToScan) {
    beacon.isInRange = true;
    std::vector<std::shared_ptr<CBPeripheral>> handles{sight()};
    ScriptedDevice* last = nullptr;
    for (const char* const address : {"00:00:5E:00:53:21", "00:00:5E:00:53:22", "00:00:5E:00:53:23"}) {
        last = &service.add(beacon);
        last->address = address;
        last->attempts = areSwallowed;
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
    EXPECT_LE(longestSilence, std::chrono::seconds(5 + 1)) << "a pause, and up to the next advertisement";
    std::map<std::string, int> turns;
    bool isTrying = false;
    for (const auto& call : service.calls) {
        if (call.starts_with("Disconnect ")) isTrying = false;
        if (!call.starts_with("Connect ")) continue;
        EXPECT_FALSE(std::exchange(isTrying, true)) << "one at a time";
        ++turns[call];
    }
    ASSERT_THAT(turns, SizeIs(3));
    for (const auto& [call, count] : turns) EXPECT_THAT(count, AllOf(Ge(3), Le(8))) << call;
    last->attempts = succeed;
    EXPECT_TRUE(within(40, "connected")) << "whoever can be connected is";
    EXPECT_EQ(handles[3]->state(), CBPeripheralState::connected);
}

TEST_P(BlueZRadio, TheEndOfALinkIsToldWithItsReasonOrSoonWithoutIt) {
    constexpr double never = 30;
    struct Way {
        bool hasChannel;
        double delay;
        bool isRecent;
    };
    const auto channel = machine.channel;
    const std::array<Way, 6> ways{{{true, 0, false},
                                   {true, 0.1, false},
                                   {true, never, false},
                                   {true, never, true},
                                   {false, 0, true},
                                   {false, 0, false}}};
    for (const auto& [hasChannel, delay, isRecent] : ways) {
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
    const auto peripheral = link();
    peripheral->readRSSI();
    ASSERT_TRUE(heard("rssi error 0")) << "there is no way to the controller";
}

// Values

TEST_P(BlueZRadio, WhatTheServiceAnswersToOperationsIsToldInTheCodesOfTheSeam) {
    const auto peripheral = link();
    discover(peripheral);
    const auto button = find(peripheral, buttonActionCharacteristic);
    const auto temperature = find(peripheral, temperatureCharacteristic);
    struct Row {
        const char* event = nullptr;
        Script script = {};
    };
    const std::string attError = "Operation failed with ATT error: 0x";
    const std::array<Row, 15> rows{{
        {"value FFE1 CBATTErrorDomain 2", fails("NotPermitted", "Read not permitted")},
        {"value FFE1 CBATTErrorDomain 6", fails("NotSupported", "Operation is not supported")},
        {"value FFE1 CBATTErrorDomain 14", fails("Failed", attError + "0e")},
        {"value FFE1 CBATTErrorDomain 128", fails("Failed", attError + "80")},
        {"value FFE1 CBATTErrorDomain 159", fails("Failed", attError + "9f")},
        {"value FFE1 error 3", fails("Failed", "Not connected")},
        {"value FFE1 error 0", fails("Failed", attError + "gg")},
        {"value FFE1 error 0", fails("Failed", "")},
        {"value FFE1 error 0", neverAnswered},
        {"value FFE1 error 0", {.delay = 100, .times = 1}},
        {"written FFE1 CBATTErrorDomain 3", fails("NotPermitted", "Write not permitted")},
        {"written FFE1 CBATTErrorDomain 13", fails("InvalidArguments", "Invalid arguments in method call")},
        {"written FFE1 CBATTErrorDomain 13", fails("InvalidValueLength", "Invalid Length")},
        {"not notifying FFE1 CBATTErrorDomain 6", fails("NotSupported", "Operation is not supported")},
        {"not notifying FFE1 CBATTErrorDomain 6", fails("NotPermitted", "Notify acquired")},
    }};
    for (const auto& [event, script] : rows) {
        SCOPED_TRACE(script.error ? script.error->name + ' ' + script.error->message : "not answered");
        service.scripts.clear();
        if (event[0] == 'v') {
            service.scripts["ReadValue"] = script;
            peripheral->readValueForCharacteristic(button);
        } else if (event[0] == 'w') {
            service.scripts["WriteValue"] = script;
            peripheral->writeValueForCharacteristicType({}, button, CBCharacteristicWriteType::withResponse);
        } else {
            service.scripts["StartNotify"] = script;
            peripheral->setNotifyValueForCharacteristic(true, button);
        }
        peripheral->readValueForCharacteristic(temperature);
        EXPECT_THAT(eventsIn(script.error ? 5 : 120), ElementsAre(event, "value FFF2")) << "the next goes on";
    }
    service.removeObjects(beacon.characteristic(buttonActionCharacteristic).second);
    peripheral->readValueForCharacteristic(button);
    EXPECT_THAT(eventsIn(5), ElementsAre("value FFE1 error 2")) << "the service has it no longer";
    peripheral->readRSSI();
    EXPECT_THAT(eventsIn(5), ElementsAre("rssi"));
    machine.channel->rssi.reset();
    peripheral->readRSSI();
    EXPECT_THAT(eventsIn(5), ElementsAre("rssi error 0"));
    machine.channel->answersRSSI = false;
    peripheral->readRSSI();
    EXPECT_THAT(eventsIn(30), ElementsAre("rssi error 0"));
}

TEST_P(BlueZRadio, AReadIsToldOnceAndANotificationDuringItIsKept) {
    const auto peripheral = link();
    discover(peripheral);
    const auto button = find(peripheral, buttonActionCharacteristic);
    service.change(beacon.characteristic(buttonActionCharacteristic).second, gattCharacteristicInterface,
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
    peripheral->readValueForCharacteristic(button);
    peripheral->readValueForCharacteristic(button);
    const std::array<std::uint8_t, 1> one{1};
    for (const auto& [uuid, type] :
         {std::pair(buttonModeCharacteristic, CBCharacteristicWriteType::withResponse),
          {alertLevelCharacteristic, CBCharacteristicWriteType::withoutResponse}}) {
        peripheral->writeValueForCharacteristicType(one, find(peripheral, uuid), type);
    }
    pass(0.04);
    EXPECT_THAT(service.calls, SizeIs(1)) << "one at a time";
    pass(5);
    EXPECT_THAT(service.calls, ElementsAre(StartsWith("ReadValue"), StartsWith("ReadValue"),
                                           EndsWith(" request"), EndsWith(" command")));
    service.calls.clear();
    peripheral->setNotifyValueForCharacteristic(true, find(peripheral, batteryLevelCharacteristic));
    pass(0);
    service.endLink(beacon, 0x08);
    pass(5);
    // The service would notify over the next link: also of what it was asked for when this one ended.
    EXPECT_THAT(service.calls, UnorderedElementsAre(StartsWith("StartNotify"), StartsWith("StopNotify"),
                                                    StartsWith("StopNotify")));
}

TEST_P(BlueZRadio, ServicesOfOneUUIDAreToldApart) {
    link();
    service.endLink(beacon, 0x13);
    ASSERT_TRUE(heard("disconnected error 7"));
    takeEvents();
    // Of its services, the next link brings signals of the new one alone.
    beacon.services.push_back(beacon.services[1]);
    service.calls.clear();
    const auto peripheral = link();
    EXPECT_FALSE(wasCalled("GetManagedObjects")) << "the signals have told the table";
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
    takeEvents();
    link();
    peripheral->discoverServices(std::array{batteryService});
    ASSERT_TRUE(heard("services"));
    EXPECT_THAT(*peripheral->services(), SizeIs(1)) << "a table ends with the life of the service";
}

// The application

TEST_P(BlueZRadio, ACentralThatGoesEndsWhatItBegan) {
    for (int phase = waiting; phase < phases; ++phase) {
        SCOPED_TRACE(phase);
        const auto peripheral = reach(phase);
        central = nullptr;
        beacon.attempts = succeed;
        peripheral->readRSSI();
        EXPECT_THAT(eventsIn(20), IsEmpty());
        EXPECT_EQ(beacon.link, nullptr);
        central = machine.makeCentralManager(listener);
        ASSERT_TRUE(heard("state 5"));
        takeEvents();
    }
    scan();
    listener->onSighting = [&](const auto& /*data*/) { central = nullptr; };
    beacon.isInRange = true;
    listener->sightings.clear();
    pass(5);
    EXPECT_THAT(listener->sightings, SizeIs(1)) << "it may go from inside what it tells";
}

}  // namespace
}  // namespace zobi::platform::bluez
