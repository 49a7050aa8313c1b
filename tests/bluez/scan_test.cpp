// What the radio makes of the service's reports while it scans.

#include <array>
#include <deque>

#include "BlueZRadio.h"
#include "platform/bluez/service/BlueZService.h"
#include "zobi/platform/NSData.h"

namespace zobi::platform::bluez {
namespace {

using namespace ::testing;
using ZOKGATTProfile::batteryService;

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
                                     Pair("RSSI", _), Pair("Pattern", Value("")),
                                     Pair("UUIDs", Value(beacon.uuids))));
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

TEST_P(BlueZRadio, AScanStartsThoughTheServiceBelievesThatTheLastOneRuns) {
    beacon.isInRange = true;
    for (int i = 0; i < 3; ++i) {
        EXPECT_NE(sight(), nullptr);
        central->stopScan();
        pass(1);
        const auto other = watch(machine);
        other.central->scanForPeripheralsWithServicesOptions(std::array{CBUUID::UUIDWithString("1320")}, {});
        pass(3);
        EXPECT_THAT(other.takeEvents(), Contains("morvane 180A:16 -60"));
    }
}

TEST_P(BlueZRadio, OnlyWhatIsHeardIsASighting) {
    beacon.isInRange = true;
    sight();
    beacon.isInRange = false;
    pass(1);
    const auto watched = watch(machine);
    watched.takeEvents();
    watched.central->scanForPeripheralsWithServicesOptions({}, {.allowDuplicates = true});
    const Properties heardOnce{{"RSSI", std::int16_t{-40}}, {"ServiceData", beacon.serviceData}};
    signal(heardOnce, ":9.9");
    signal({{"Connected", false}, {"ServicesResolved", false}});
    signal({{"Name", "mine"}, {"Alias", "mine"}, {"Trusted", true}, {"UUIDs", beacon.uuids}});
    service.change(beacon.path(), deviceInterface, {}, {"RSSI"});
    service.change(firstAdapter, adapterInterface, {{"Discovering", false}});
    pass(5);
    linkByOther();
    pass(1);
    EXPECT_THAT(watched.takeEvents(), IsEmpty()) << "nor what the service remembers";
    EXPECT_THAT(takeEvents(), IsEmpty()) << "the link was another program's";

    signal({{"Name", "morvane"}, {"RSSI", std::int16_t{-41}}});
    signal({{"RSSI", std::int16_t{127}}, {"ServiceData", beacon.serviceData}});
    signal(heardOnce);
    pass(0.1);
    const Events told = watched.takeEvents();
    EXPECT_THAT(told, Contains("morvane 180A:16 (null)")) << "127 is no strength";
    EXPECT_EQ(told.back(), "morvane 180A:16 -40") << "name and data came in two signals";
}

TEST_P(BlueZRadio, WhatComesFastGathersForSomeMilliseconds) {
    using std::chrono::nanoseconds;
    link();
    scan();
    beacon.isInRange = false;
    nanoseconds longest{};
    std::deque<nanoseconds> sent;
    listener->onSighting = [&](const auto& /*data*/) {
        longest = std::max(longest, machine.clock().monotonicTime() - sent.front());
        sent.pop_front();
    };
    const auto longestWaitAt = [&](int signalsInASecond) {
        pass(1);
        longest = {};
        for (int i = 0; i < signalsInASecond; ++i) {
            sent.push_back(machine.clock().monotonicTime());
            signal({{"RSSI", std::int16_t{-40}}, {"ServiceData", beacon.serviceData}});
            pass(1.0 / signalsInASecond);
        }
        pass(1);
        EXPECT_THAT(sent, IsEmpty());
        return std::chrono::duration<double, std::milli>(longest).count();
    };
    for (const int rate : {200, 2000}) EXPECT_THAT(longestWaitAt(rate), AllOf(Ge(10), Le(15))) << "linked";
    service.endLink(beacon, 0x13);
    for (const int rate : {200, 2000}) EXPECT_THAT(longestWaitAt(rate), AllOf(Gt(30), Le(40)));
    EXPECT_EQ(longestWaitAt(20), 0) << "nobody else comes soon";
}

TEST_P(BlueZRadio, AScanWithoutDuplicatesReportsADeviceOnceUnderItsName) {
    beacon.isInRange = true;
    sight();
    linkByOther();
    beacon.isInRange = false;
    const auto watched = watch(machine);
    const auto told = [&] {
        pass(3);
        return watched.takeEvents();
    };
    const auto scanAnew = [&] { watched.central->scanForPeripheralsWithServicesOptions({}, {}); };
    told();
    const Properties heard{{"RSSI", std::int16_t{-50}}, {"ServiceData", beacon.serviceData}};
    scanAnew();
    const std::string nameless = firstAdapter + "/dev_00_00_5E_00_53_0D";
    Properties namelessHeard = heard;
    namelessHeard.insert(namelessHeard.end(), {{"Address", "00:00:5E:00:53:0D"}, {"AddressType", "public"}});
    service.addObject(nameless, {{deviceInterface, namelessHeard}});
    EXPECT_THAT(told(), IsEmpty());
    service.change(nameless, deviceInterface, {{"Name", "late"}});
    EXPECT_THAT(told(), ElementsAre("late 180A:16 -50"));
    signal(heard);
    EXPECT_THAT(told(), ElementsAre("Beacon 7 180A:16 -50")) << "the service remembers it from the link";
    signal({{"Name", "morvane"}, {"RSSI", std::int16_t{-50}}});
    for (int i = 0; i < 3; ++i) signal(heard);
    EXPECT_THAT(told(), ElementsAre("morvane 180A:16 -50"));
    for (const char* const name : {"another", "morvane"}) signal({{"Name", name}});
    signal(heard);
    EXPECT_THAT(told(), IsEmpty()) << "it was reported under the name that it had";
    linkByOther();
    scanAnew();
    signal(heard);
    EXPECT_THAT(told(), ElementsAre("morvane 180A:16 -50")) << "not what the service has read over a link";
    service.forget(beacon);
    beacon.isInRange = true;
    EXPECT_THAT(told(), IsEmpty()) << "the scan knows it though the service has forgotten it";
    scanAnew();
    EXPECT_THAT(told(), ElementsAre("morvane 180A:16 -60"));
    scanAnew();
    watched.listener->onSighting = [refuses = true](const auto& data) mutable {
        if (std::exchange(refuses, false)) throw DataRangeError(data.serviceData[0].data, 0, 99);
    };
    EXPECT_THAT(told(), SizeIs(2)) << "a report that is dropped is none";
}

TEST_P(BlueZRadio, ADeviceThatIsGoneCostsAScanWithoutDuplicatesFewBytes) {
    std::size_t reports = 0;
    std::shared_ptr<CBPeripheral> last;
    std::array<std::shared_ptr<CBPeripheral>, 60> held;
    listener->onSighting = [&](const auto& /*data*/) {
        ++reports;
        last = listener->sightings.back();
        listener->sightings.clear();
        // Each other one is held until some more have come.
        if (reports % 2 == 0) held[reports % held.size()] = last;
    };
    const auto scanAnew = [&] { central->scanForPeripheralsWithServicesOptions({}, {}); };
    scanAnew();
    // Past the bus, which takes longer than all the rest.
    auto& told = dynamic_cast<BlueZServiceDelegate&>(*central);
    const Bytes payload(16);
    const std::array<CBServiceData, 1> serviceData{{{CBUUID::UUIDWithString("180A"), payload}}};
    const auto reportsOf = [&](int first, int end) {
        const auto before = reports;
        for (int i = first; i < end; ++i) {
            Device device;
            device.name = "morvane";
            for (std::size_t byte = 0; byte < 4; ++byte) {
                device.address.bytes.at(byte) = static_cast<std::uint8_t>(i >> 8 * byte);
            }
            DeviceChange sighting;
            sighting.rssi = -40;
            sighting.serviceData = serviceData;
            told.deviceDidAppear(device);
            told.deviceDidChange(device, sighting);
            told.deviceDidVanish(device);
        }
        return static_cast<int>(reports - before);
    };
    constexpr int many = 100'000;
    constexpr int all = 10 * many;
    reportsOf(0, 1000);
    const auto heapAtFirst = heapInUse();
    EXPECT_EQ(reportsOf(1000, many), many - 1000);
    EXPECT_THAT(machine.lines, IsEmpty());
    const auto heap = heapInUse();
    EXPECT_LT(heap - heapAtFirst, 64 * many);
    EXPECT_EQ(reportsOf(many, all), all - many);
    // Those that the application held until lately, or holds, come and go.
    EXPECT_LT(heapInUse(), heap + 200'000);
    EXPECT_THAT(machine.lines, ElementsAre(HasSubstr("may be reported again")));
    EXPECT_EQ(reportsOf(all - many + 1000, all), 0);
    EXPECT_EQ(reportsOf(0, 1), 1) << "so long ago, it was forgotten";
    const auto before = last;
    scanAnew();
    EXPECT_EQ(reportsOf(0, 1), 1);
    EXPECT_EQ(last, before);
    EXPECT_LT(heapInUse(), heapAtFirst + 100'000);
}

TEST_P(BlueZRadio, AScanThatDoesNotStartOrStopIsTriedAgain) {
    beacon.isInRange = true;
    const std::array<Script, 5> troubles{fails("NotReady", "Resource Not Ready", 2),
                                         fails("InProgress", "Operation already in progress", 2),
                                         neverAnswered,
                                         {.answers = false, .times = 1},
                                         {.delay = 8, .times = 1}};
    for (std::size_t i = 0; i < troubles.size(); ++i) {
        for (const char* const operation : {"SetDiscoveryFilter", "StartDiscovery", "StopDiscovery"}) {
            SCOPED_TRACE(operation + (' ' + std::to_string(i)));
            // Then discovery is off already.
            if (operation == std::string("StopDiscovery") && i == 0) continue;
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

// A fuzzer goes on from here: fuzz/fuzz_bus_message.cpp.
TEST_P(BlueZRadio, HostileDataIsPassedOver) {
    beacon.isInRange = true;
    sight();
    beacon.isInRange = false;
    listener->sightings.clear();
    const std::array<Value, 4> kinds{ObjectPath{"/"}, Bytes(70'000, 7),
                                     std::vector<std::string>(5'000, "no UUID"),
                                     Properties{{"no UUID", true}, {longForm(batteryService), "no bytes"}}};
    for (const char* const name : {"RSSI", "ServiceData", "Name", "Connected", "ServicesResolved", "UUIDs",
                                   "Address", "Adapter", "Powered", "AddressType"}) {
        for (const Value& value : kinds) {
            signal({{name, value}});
            for (const char* const interface : {adapterInterface, deviceInterface}) {
                service.addObject(firstAdapter + "/dev_00_00_5E_00_53_0C", {{interface, {{name, value}}}});
            }
        }
    }
    for (const char* const path : {"/", "/org/bluez/hci0/dev_", "/org/bluez/hci0/dev_00_00_5E_00_53_0G"}) {
        service.addObject(
            path, {{deviceInterface,
                    {{"Name", beacon.name}, {"UUIDs", beacon.uuids}, {"ServiceData", beacon.serviceData}}}});
    }
    EXPECT_THAT(eventsIn(1), IsEmpty()) << "the radio is as it was";
    EXPECT_THAT(listener->sightings, IsEmpty()) << "what has no address is no device";
    service.forget(beacon);
    EXPECT_NE(link(), nullptr);
}

}  // namespace
}  // namespace zobi::platform::bluez
