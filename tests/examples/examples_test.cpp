// The programs of examples/, in virtual time, through the faults that their users meet. What counts is what a
// program prints and how it ends.

#include <gmock/gmock.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "ZobiConnectKit/simulation/Scenario.h"
#include "zobi/platform/simulation/SimulatedPlatform.h"
#include "zobi/platform/standard/PollWaiting.h"
#ifdef ZOBI_HAS_GLIB
#include <glib.h>
#endif

using namespace zobi::platform;
using simulation::SimulatedPlatform;
using ::testing::ContainsRegex;
using ::testing::EndsWith;
using zobi::SimulatedBeacon;
using Program = int (*)(Platform& platform);

int rangeBeacons(Platform& platform);
int changeApplicationState(Platform& platform);
int readBeacon(Platform& platform);
int rangeBeaconsWithGLib(Platform& platform);
simulation::DeviceDescription heartRateStrap();
int readHeartRates(Platform& platform);
zobi::Scenario officeMorning();
int watchFor10Seconds(Platform& platform);

namespace {

using enum CBManagerState;
using enum UIApplicationState;

/// One run of a program. The beacon is out of range at first.
struct Trial {
    using Event = std::function<void(Trial& trial)>;

    explicit Trial(UIApplicationState state) {
        platform.log().setSink(nullptr);
        platform.application().setApplicationState(state);
        at(200, [](const auto& /*trial*/) { throw std::runtime_error("the program does not end"); });
    }

    void at(double moment, Event event) {
        platform.runLoop().after(moment, [this, event = std::move(event)] { event(*this); });
    }

    double now() { return std::chrono::duration<double>(platform.clock().monotonicTime()).count(); }

    /// What the program prints, and then whether it succeeded.
    std::string outputOf(Program program) {
        ::testing::internal::CaptureStdout();
        const int status = program(platform);
        return ::testing::internal::GetCapturedStdout() + (status == EXIT_SUCCESS ? "success" : "failure");
    }

    SimulatedPlatform platform{SimulatedPlatform::Time::virtualTime, 0, std::make_unique<PollWaiting>()};
    SimulatedBeacon& beacon = zobi::addBeacon(platform.world(), {.major = 1, .minor = 7, .temperature = 22});
};

Trial::Event radioBecomes(CBManagerState state) {
    return [state](Trial& trial) { trial.platform.world().setRadioState(state); };
}

#ifdef ZOBI_HAS_GLIB
/// Moves the time on whenever GLib has nothing to do.
int rangeBeaconsInVirtualTime(Platform& platform) {
    const auto jump = [](gpointer data) -> gboolean {
        auto& simulated = static_cast<SimulatedPlatform&>(*static_cast<Platform*>(data));
        simulated.virtualTime()->jumpTo(simulated.runLoop().nextDeadline().value());
        return G_SOURCE_CONTINUE;
    };
    const guint jumping = g_idle_add_full(G_PRIORITY_LOW, jump, &platform, nullptr);
    const int status = rangeBeaconsWithGLib(platform);
    g_source_remove(jumping);
    return status;
}
#endif

TEST(ExamplesTest, ABeaconThatComesAfterAPowerCycleIsRangedInTime) {
    const std::vector<std::tuple<const char*, Program, UIApplicationState, double, const char*>> cycles{
        {"smallest-delegate", rangeBeacons, active, 2.5, "2 in range\n.*success"},
        {"smallest-delegate in the background", rangeBeacons, background, 2.5, "2 in range\n.*success"},
        {"application-state", changeApplicationState, active, 1, "2 in range\n.*to the background"},
        {"application-state in the background", changeApplicationState, active, 10,
         "to the background\n.*2 in range\n.*to the foreground"},
        {"application-state after that", changeApplicationState, active, 41,
         "to the foreground\n.*2 in range\n.*success"},
#ifdef ZOBI_HAS_GLIB
        {"glib-loop", rangeBeaconsInVirtualTime, active, 0.5, "2 in range\n.*success"},
        {"glib-loop in the background", rangeBeaconsInVirtualTime, background, 0.5, "2 in range\n.*success"},
#endif
    };
    for (const auto& [name, program, state, powerOff, output] : cycles) {
        Trial trial(state);
        trial.beacon.comeIntoRange();
        auto& newcomer = zobi::addBeacon(trial.platform.world(), {.major = 1, .minor = 8});
        trial.at(powerOff, radioBecomes(poweredOff));
        trial.at(powerOff + 2, radioBecomes(poweredOn));
        trial.at(powerOff + 2.2, [&](const auto& /*trial*/) { newcomer.comeIntoRange(); });
        EXPECT_THAT(trial.outputOf(program), ContainsRegex(output)) << name;
    }
}

TEST(ExamplesTest, AwaitingAnAnswerOutlastsEachFaultAtEachMoment) {
    using Event = Trial::Event;
    const NSError error(CBError::connectionFailed, "refused");
    const Event powerOn = radioBecomes(poweredOn);
    const Event comeIntoRange = [](Trial& trial) { trial.beacon.comeIntoRange(); };
    const Event accept = [](Trial& trial) { trial.beacon.setConnectionError({}); };
    const std::vector<std::tuple<const char*, Event, Event>> faults{
        {"power cycle", radioBecomes(poweredOff), powerOn},
        {"restart of the service", radioBecomes(resetting), powerOn},
        {"lost link", [](Trial& trial) { trial.beacon.goOutOfRange(); }, comeIntoRange},
        {"refused attempts", [&](Trial& trial) { trial.beacon.setConnectionError(error); }, accept},
        {"link ended", [&](Trial& trial) { trial.beacon.endLink(error); }, accept},
        {"link ended without an error", [](Trial& trial) { trial.beacon.endLink({}); }, accept},
    };
    for (const auto& [name, begin, end] : faults) {
        for (int moment = 1; moment < 300; ++moment) {
            const double seconds = 0.01 * moment;
            const double duration = std::array{2.0, 5.0, 35.0}[static_cast<std::size_t>(moment % 3)];
            Trial trial(moment % 2 == 0 ? active : background);
            trial.at(1.5, comeIntoRange);
            trial.at(seconds, begin);
            trial.at(seconds + duration, end);
            ASSERT_THAT(trial.outputOf(readBeacon), EndsWith("firmware 1.0.0\ntemperature 22\nsuccess"))
                << name << " at " << seconds;
            ASSERT_LT(trial.now(), seconds + duration + 6) << name << " at " << seconds;
        }
    }
}

TEST(ExamplesTest, AwaitingAnAnswerGivesUpAfterAMinute) {
    Trial trial(active);
    EXPECT_EQ(trial.outputOf(readBeacon), "no answer: waited for a beacon\nfailure");
    EXPECT_EQ(trial.now(), 60);
}

TEST(ExamplesTest, AHeartRateStrapIsNoBeaconAndIsReadThroughEachFault) {
    auto description = heartRateStrap();
    // It passes the filter of the library's scan, and has a payload.
    description.advertisedServices.push_back(CBUUID::UUIDWithString("1320"));
    description.serviceData = {{CBUUID::UUIDWithString("180A"), std::vector<std::uint8_t>(16)}};
    enum class Fault { none, powerCycle, lostLink };
    for (const auto fault : {Fault::none, Fault::powerCycle, Fault::lostLink}) {
        Trial trial(active);
        trial.beacon.comeIntoRange();
        auto& strap = trial.platform.world().addDevice(description);
        strap.comeIntoRange();
        if (fault == Fault::powerCycle) {
            trial.at(1.5, radioBecomes(poweredOff));
            trial.at(3, radioBecomes(poweredOn));
        } else if (fault == Fault::lostLink) {
            trial.at(1.5, [&](const auto&) { strap.goOutOfRange(); });
            trial.at(6, [&](const auto&) { strap.comeIntoRange(); });
        }
        const std::string output = trial.outputOf(readHeartRates);
        EXPECT_THAT(output, ContainsRegex("worn on: 1\nbeacons: 1\n(.*\n)*heart rate: [67][0-9]\nsuccess$"));
        EXPECT_THAT(output, ::testing::Not(::testing::HasSubstr("beacons: 2")));
        EXPECT_EQ(trial.now() > 4, fault != Fault::none);
    }
}

TEST(ExamplesTest, AScenarioIsPlayedAsItIsWritten) {
    Trial trial(active);
    EXPECT_EQ(zobi::playScenario(officeMorning(), trial.platform, trial.platform.world()).size(), 2U);
    EXPECT_EQ(trial.outputOf(watchFor10Seconds),
              "Bluetooth 5\n1 in range\n1 in range\n2 in range\n2 in range\n"
              "action 0 of beacon 2\naction 0 of beacon 2\n2 in range\naction 0 of beacon 2\n"
              "Bluetooth 4\n2 in range\n2 in range\nBluetooth 5\n2 in range\n2 in range\nsuccess");
    zobi::Scenario scenario;
    EXPECT_THROW(scenario.addBeaconEvent(0, 0, nullptr), std::out_of_range);
    scenario.repeatEvery = 0;
    EXPECT_THROW(zobi::playScenario(scenario, trial.platform, trial.platform.world()), std::invalid_argument);
}

}  // namespace
