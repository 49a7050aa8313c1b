// What stands in the way of the radio, and which adapter it uses.

#include <array>
#include <set>

#include "BlueZRadio.h"

namespace zobi::platform::bluez {
namespace {

using namespace ::testing;

TEST_P(BlueZRadio, TheStateTheConditionAndOneLineTellWhatIsInTheWay) {
    const Properties blocked{{"Powered", false}, {"PowerState", "off-blocked"}};
    const std::array<std::pair<std::string, std::function<void(ScriptedService&)>>, 8> obstacles{{
        {"state 2", [](auto& it) { it.hasBus = false; }},
        {"state 2", [](auto& it) { it.crash(); }},
        {"state 3", [](auto& it) { it.scripts["GetManagedObjects"] = fails(accessDeniedError, "", -1); }},
        {"state 2", [](auto& it) { it.removeAdapter(firstAdapter); }},
        {"state 4", [](auto& it) { it.setPowered(false); }},
        {"state 4", [&](auto& it) { it.change(firstAdapter, adapterInterface, blocked); }},
        {"state 1", [](auto& it) { it.scripts["GetManagedObjects"] = {.acts = false, .answers = false}; }},
        // An answer without a list.
        {"state 1", [](auto& it) { it.scripts["GetManagedObjects"] = {.acts = false}; }},
    }};
    std::set<std::string> lines;
    for (const auto& [event, stand] : obstacles) {
        ScriptedPlatform other;
        stand(other.service);
        std::string advice;
        other.notificationCenter().addObserverForNameObjectUsingBlock(
            RadioConditionDidChangeNotification, nullptr,
            [&](const auto& /*notification*/) { advice = other.radioCondition().advice(); });
        const auto watched = watch(other);
        if (event == "state 2" && other.service.hasBus && !other.service.owner().empty()) {
            EXPECT_THAT(watched.listener->events, IsEmpty()) << "an adapter may follow";
        }
        other.runLoop().runFor(20);
        EXPECT_THAT(watched.takeEvents(), ElementsAre(event)) << lines.size();
        lines.insert(other.lines.empty() ? "" : other.lines.back());
        EXPECT_EQ(other.lines.back(), "Bluetooth: " + advice);
        if (lines.size() < obstacles.size() - 1) {
            EXPECT_THAT(findingsOf(other), Contains(Field(&Finding::advice, other.radioCondition().remedy)))
                << "it is the same";
        }
        other.service.hasBus = true;
        other.service.scripts.clear();
        if (event != "state 3") (other.service.crash(), other.service.start());
        other.runLoop().runFor(60);
        EXPECT_THAT(watched.takeEvents(), Contains("state 5")) << lines.size();
        EXPECT_EQ(watched.central->state(), CBManagerState::poweredOn);
        EXPECT_EQ(other.radioCondition(), RadioCondition{.kind = RadioCondition::Kind::poweredOn});
        EXPECT_EQ(advice, "");
    }
    // The last two are one.
    EXPECT_THAT(lines, AllOf(SizeIs(obstacles.size() - 1), Not(Contains("")))) << "each is told apart";
}

TEST_P(BlueZRadio, UsesTheAdapterThatItIsAskedForOrElseOneThatIsOn) {
    const std::string second = "/org/bluez/hci1";
    service.add({.address = "00:00:5E:00:53:0A", .adapter = second, .rssi = -50, .isInRange = true});
    beacon.isInRange = true;
    for (const char* const name : {"hci1", "00:00:5E:00:53:09"}) {
        const auto watched = watch(machine, name);
        service.addAdapter(second, "00:00:5E:00:53:09");
        EXPECT_THAT(eventsIn(5), IsEmpty());
        EXPECT_THAT(watched.takeEvents(), ElementsAre("state 5")) << name;
        watched.central->scanForPeripheralsWithServicesOptions({}, {.allowDuplicates = true});
        const auto used = [&] { return machine.lines.back(); };
        service.setPowered(false);
        EXPECT_THAT(eventsIn(3), ElementsAre("state 1", "state 5"));
        EXPECT_EQ(used(), "Bluetooth: the adapter hci1 is used from now on.");
        service.setPowered(true);
        EXPECT_THAT(eventsIn(3), IsEmpty()) << "one that is on is kept";
        EXPECT_THAT(watched.takeEvents(), AllOf(SizeIs(Ge(2)), Each("morvane -50"))) << name;
        service.setPowered(false, second);
        EXPECT_THAT(eventsIn(3), ElementsAre("state 1", "state 5"));
        EXPECT_EQ(watched.takeEvents().back(), "state 4");
        service.setPowered(false);
        EXPECT_THAT(eventsIn(60), ElementsAre("state 4")) << "of two that are off";
        service.setPowered(true, second);
        EXPECT_THAT(eventsIn(3), ElementsAre("state 1", "state 5"));
        EXPECT_EQ(used(), "Bluetooth: the adapter hci1 is used from now on.");
        service.removeAdapter(second);
        EXPECT_THAT(eventsIn(8), ElementsAre("state 1", "state 4"));
        EXPECT_THAT(watched.takeEvents(), ElementsAre("state 5", "state 1", "state 2"));
        EXPECT_THAT(machine.lines, Contains(EndsWith("there are: hci0 (00:00:5E:00:53:01).")));
        service.setPowered(true);
        EXPECT_THAT(eventsIn(3), ElementsAre("state 5"));
    }
}

/// A program that ends when its attempt or link is in a phase, as does the service that hangs then or not.
struct ShutDown final : BlueZRadio {
    void TestBody() override {}
    void endsAll(int phase, bool hangs) {
        reach(phase);
        scan();
        pass(1);
        const Script silence{.acts = false, .answers = false};
        if (hangs) service.scripts = {{"Disconnect", silence}, {"StopDiscovery", silence}};
        const auto start = machine.clock().monotonicTime();
        EXPECT_EQ(machine.shutDown(), !hangs);
        const std::chrono::duration<double> took = machine.clock().monotonicTime() - start;
        EXPECT_TRUE(hangs ? took.count() == 5 : took.count() < 2.5) << took.count();
        EXPECT_TRUE(hangs || !(beacon.link || service.isDiscovering(firstAdapter)));
    }
};

TEST_P(BlueZRadio, AShutDownWaitsUntilTheServiceHasEndedAll) {
    for (int i = 0; i < 2 * phases; ++i) {
        SCOPED_TRACE(i);
        ShutDown().endsAll(i / 2, i % 2 != 0);
    }
}

}  // namespace
}  // namespace zobi::platform::bluez
