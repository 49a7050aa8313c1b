#include "tools/zobiconnect/RadioOptions.h"

#include <limits>
#include <utility>

#include "platform/simulation/SimulatedPlatform.h"
#include "platform/standard/PollWaiting.h"
#include "tools/zobiconnect/DemoScenario.h"
#include "tools/zobiconnect/OptionChecks.h"
#include "tools/zobiconnect/ScenarioFile.h"

namespace zobiconnect {

using platform::ConditionVariableWaiting;
using platform::PollWaiting;
using platform::StandardPlatform;
using platform::simulation::SimulatedPlatform;

namespace {

std::unique_ptr<SimulatedPlatform> makeSimulatedPlatform(const RadioOptions& options) {
    if (options.virtualTime) {
        return std::make_unique<SimulatedPlatform>(StandardPlatform::Time::virtualTime, options.seed,
                                                   std::make_unique<ConditionVariableWaiting>());
    }
    // Its waits end at once when a signal stops the run loop.
    return std::make_unique<SimulatedPlatform>(StandardPlatform::Time::real, options.seed,
                                               std::make_unique<PollWaiting>());
}

}  // namespace

void addRadioOptions(CLI::App& command, RadioOptions& options) {
    command.add_option("--radio", options.radio, "What to listen with: 'simulated' only, so far")
        ->check(CLI::IsMember({"simulated"}))
        ->option_text("RADIO [simulated]");
    CLI::Option* const simulate =
        command
            .add_option("--simulate", options.simulate,
                        "Simulate so many beacons, which come, change, fall silent and return")
            ->check(CLI::Range(1, 10000))
            ->option_text("N [8]");
    command
        .add_option("--scenario", options.scenario,
                    "Simulate what a JSON file describes (see docs/scenarios.md)")
        ->excludes(simulate)
        ->option_text("FILE");
    command.add_option("--seed", options.seed, "Decides all that is random in the simulation")
        ->check(isNumberUpTo(std::numeric_limits<std::uint64_t>::max()))
        ->option_text("NUMBER [0]");
    command.add_flag("--virtual-time", options.virtualTime,
                     "Simulate as fast as the machine goes; the same seed gives the same output");
    command.add_flag("--log", options.log, "Print the library's log lines on stderr");
}

Radio makeRadio(const RadioOptions& options) {
    const auto scenario =
        std::make_shared<const Scenario>(options.scenario ? scenarioFromFile(*options.scenario)
                                                          : demoScenario(options.simulate, options.seed));
    auto simulated = makeSimulatedPlatform(options);
    SimulatedPlatform& platform = *simulated;
    if (!options.log) platform.log().setSink(nullptr);
    return {std::move(simulated), [scenario, &platform] {
                playScenario(scenario, {platform.runLoop(), platform.application(), platform.world()});
            }};
}

}  // namespace zobiconnect
