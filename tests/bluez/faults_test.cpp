// What befalls a machine while a program monitors beacons: what the program is told, and that the beacon is
// heard again when the fault is over.

#include <sstream>

#include "BlueZRadio.h"
#include "radio/LibraryOverRadio.h"

namespace zobi::platform::bluez {
namespace {

using enum UIApplicationState;

struct Fault {
    const char* name;
    /// The names of what happens.
    const char* befalls;
    /// How long it lasts.
    double seconds;
    const char* heals;
    const char* told;
};

const std::vector<Fault> faults{
    {"PowerCycle", "off", 2, "on", "4 5"},
    {"BlockSwitch", "off block", 40, "on", "4 5"},
    {"ServiceRestarted", "stop", 2, "start", "4 1 5"},
    {"ServiceKilled", "kill", 2, "start", "1 5"},
    {"ServiceKilledForLong", "kill", 60, "start", "1 2 5"},
    {"ServiceKilledWhileConnecting", "try kill", 2, "start", "1 5"},
    {"ServiceKilledWhileLinked", "connect kill", 2, "start", "1 error5 5"},
    {"ServiceHangsAndIsKilled", "hang kill start", 60, "kill start", "1 5"},
    {"ServiceStandsStillAndGoesOn", "stand kill start", 60, "", "1 5"},
    {"ServiceIsBackBeforeItsAdapter", "kill start unplug", 4, "plug", "1 5"},
    {"BusLost", "drop", 3, "", "1 5"},
    {"BusRestarted", "nobus drop kill", 4, "bus start", "1 5"},
    {"BusLostForLong", "nobus drop", 60, "bus", "1 2 5"},
    {"AdapterPluggedInAgain", "unplug", 4, "plug", "1 5"},
    {"AdapterUnpluggedForLong", "unplug", 60, "plug", "1 2 5"},
    {"AnotherAdapterComesAndGoes", "plug2", 2, "unplug2", ""},
    {"AnotherAdapterTakesOver", "plug2 off", 2, "", "1 5"},
    // The kernel ends the links before, and goes on with the scan after it.
    {"SuspendAndResume", "connect end ahead", 1, "", "error0"},
    {"ClockSetForward", "ahead", 0, "", ""},
    {"ClockSetBack", "back", 0, "", ""},
};

class Faults : public ::testing::TestWithParam<std::tuple<Fault, UIApplicationState>> {
protected:
    void connect() {
        manager->connectBeacon(manager->liveBeacons().at(0));
        machine.runLoop().runFor(5);
        application->takeEvents();
    }
    void moveWallClock(double seconds) {
        auto& clock = *machine.virtualTime();
        clock.setTimeIntervalSince1970(clock.timeIntervalSince1970() + seconds);
    }
    void carryOut(std::istringstream names) {
        for (std::string name; names >> name;) actions.at(name)();
    }

    const std::string second = "/org/bluez/hci1";
    const Properties blocked{{"PowerState", "off-blocked"}};
    ScriptedBench bench;
    ScriptedPlatform& machine = bench.platform();
    ScriptedService& service = bench.service;
    std::shared_ptr<ZOKManager> manager = ZOKManager::managerOnPlatform(machine);
    std::shared_ptr<ManagerRecorder> application = ManagerRecorder::of(manager);
    const std::map<std::string, std::function<void()>> actions{
        {"off", [&] { service.setPowered(false); }},
        {"on", [&] { service.setPowered(true); }},
        {"block", [&] { service.change(firstAdapter, adapterInterface, blocked); }},
        {"stop", [&] { service.stop(); }},
        {"kill", [&] { (service.crash(), service.scripts.erase("Connect")); }},
        {"start", [&] { service.start(); }},
        {"try", [&] { (service.scripts["Connect"] = neverAnswered, connect()); }},
        {"connect", [&] { connect(); }},
        {"end", [&] { service.endLink(bench.beacon, 0x16); }},
        {"hang", [&] { service.scripts["GetManagedObjects"] = neverAnswered; }},
        {"stand", [&] { service.scripts["GetManagedObjects"] = {.delay = 60, .times = 1}; }},
        {"drop", [&] { service.dropBus(); }},
        {"nobus", [&] { service.hasBus = false; }},
        {"bus", [&] { service.hasBus = true; }},
        {"unplug", [&] { service.removeAdapter(firstAdapter); }},
        {"plug", [&] { service.addAdapter(firstAdapter, "00:00:5E:00:53:01"); }},
        {"unplug2", [&] { service.removeAdapter(second); }},
        {"plug2", [&] { service.addAdapter(second, "00:00:5E:00:53:09"); }},
        {"ahead", [&] { moveWallClock(3600); }},
        {"back", [&] { moveWallClock(-3600); }},
    };
};

std::string nameOf(const ::testing::TestParamInfo<Faults::ParamType>& test) {
    const auto& [fault, state] = test.param;
    return std::string(fault.name) + (state == active ? "InForeground" : "InBackground");
}

INSTANTIATE_TEST_SUITE_P(Life, Faults,
                         ::testing::Combine(::testing::ValuesIn(faults),
                                            ::testing::Values(active, background)),
                         nameOf);

TEST_P(Faults, AreToldAndTheBeaconIsHeardAgain) {
    const auto& [fault, state] = GetParam();
    const std::string name = fault.name;
    machine.application().setApplicationState(state);
    application->monitors = true;
    bench.beaconComesIntoRange();
    ScriptedDevice& heardBySecond = service.add(bench.beacon);
    heardBySecond.adapter = second;
    machine.runLoop().runFor(3);
    ASSERT_EQ(manager->liveBeacons().size(), 1U);
    application->takeEvents();
    service.calls.clear();
    carryOut(std::istringstream(fault.befalls));
    machine.runLoop().runFor(fault.seconds);
    EXPECT_LE(std::ranges::count(service.calls, "GetManagedObjects /"), 1)
        << "a silent service is asked once";
    carryOut(std::istringstream(fault.heals));
    const double healed = machine.clock().timeIntervalSince1970();
    machine.runLoop().runFor(6);
    std::string told;
    for (const std::string& event : application->takeEvents()) {
        const bool isState = event.starts_with("state ");
        told += (told.empty() ? "" : " ") +
                (isState ? event.substr(6) : "error" + event.substr(event.size() - 1));
    }
    EXPECT_EQ(told, fault.told);
    // In the background a beacon is heard once per scan, and no new one begins unless the state changes.
    const auto live = manager->liveBeacons();
    const double over = *fault.heals ? healed : healed - fault.seconds;
    const bool isHeard = !live.empty() && static_cast<double>(live[0]->timestamp()) > over;
    EXPECT_EQ(isHeard, state == active || told.ends_with('5') || name == "ClockSetBack");
    bench.beacon.isInRange = heardBySecond.isInRange = false;
    machine.runLoop().runFor(32);
    // Beacons are dropped by the wall clock: one that is not heard anew is kept until that has caught up.
    EXPECT_EQ(manager->liveBeacons().empty(), state == active || name != "ClockSetBack");
}

}  // namespace
}  // namespace zobi::platform::bluez
