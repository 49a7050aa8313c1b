#include "tools/zobiconnect/radio/RadioOptions.h"

#include <limits>
#include <utility>
#include <vector>

#include "tools/zobiconnect/CommandLine.h"
#include "tools/zobiconnect/radio/MachineRadio.h"
#include "tools/zobiconnect/scenario/DemoScenario.h"
#include "tools/zobiconnect/scenario/ScenarioFile.h"
#include "zobi/platform/simulation/SimulatedPlatform.h"
#include "zobi/platform/standard/PollWaiting.h"

namespace zobi::tool {

using platform::ConditionVariableWaiting;
using platform::PollWaiting;
using platform::StandardPlatform;
using platform::simulation::SimulatedPlatform;

namespace {

bool describesSimulation(const RadioOptions& options) {
    return options.simulate || options.scenario || options.seed || options.virtualTime;
}

bool isSimulated(const RadioOptions& options) {
    if (options.radio) return *options.radio == "simulated";
    return !hasMachineRadio || describesSimulation(options);
}

std::unique_ptr<SimulatedPlatform> makeSimulatedPlatform(const RadioOptions& options) {
    const std::uint64_t seed = options.seed.value_or(0);
    if (options.virtualTime) {
        return std::make_unique<SimulatedPlatform>(StandardPlatform::Time::virtualTime, seed,
                                                   std::make_unique<ConditionVariableWaiting>());
    }
    // Its waits end at once when a signal stops the run loop.
    return std::make_unique<SimulatedPlatform>(StandardPlatform::Time::real, seed,
                                               std::make_unique<PollWaiting>());
}

Radio makeSimulatedRadio(const RadioOptions& options) {
    if (options.adapter)
        throw CLI::ValidationError("--adapter is for the radio bluez, not for a simulated one");
    const Scenario scenario =
        options.scenario ? scenarioFromFile(*options.scenario)
                         : demoScenario(options.simulate.value_or(demoBeacons), options.seed.value_or(0));
    auto simulated = makeSimulatedPlatform(options);
    SimulatedPlatform& platform = *simulated;
    if (!options.log) platform.log().setDiagnosticSink(nullptr);
    return {std::move(simulated),
            [scenario, &platform] { playScenario(scenario, platform, platform.world()); }};
}

}  // namespace

std::string RadioOptions::caption() const {
    if (isSimulated(*this)) return "seed " + std::to_string(seed.value_or(0));
    return adapter ? "adapter " + *adapter : "radio bluez";
}

void addRadioOptions(CLI::App& command, RadioOptions& options) {
    std::vector<std::string> radios{"simulated"};
    if (hasMachineRadio) radios.insert(radios.begin(), "bluez");
    command
        .add_option("--radio", options.radio,
                    "What to listen with: 'bluez', the radio of this machine, where the tool was\n"
                    "built with it, or 'simulated', which the options below imply")
        ->check(isOneOf(radios))
        ->option_text("RADIO [" + radios.front() + "]");
    command
        .add_option("--adapter", options.adapter,
                    "Which adapter of this machine, by its name (hci0) or address; any by default")
        ->option_text("ADAPTER");
    CLI::Option* const simulate =
        command
            .add_option("--simulate", options.simulate,
                        "Simulate so many beacons, which come, change, fall silent and return")
            ->transform(wholeNumber(1, 10000))
            ->option_text("N [" + std::to_string(demoBeacons) + ']');
    command
        .add_option("--scenario", options.scenario,
                    "Simulate what a JSON file describes (see docs/scenarios.md); - is stdin")
        ->excludes(simulate)
        ->option_text("FILE");
    command.add_option("--seed", options.seed, "Decides all that is random in the simulation")
        ->transform(wholeNumber<std::uint64_t>(0, std::numeric_limits<std::uint64_t>::max()))
        ->option_text("NUMBER [0]");
    // A command without --for has a timeout.
    CLI::Option* const duration = command.get_option_no_throw("--for");
    const std::string need = duration ? ".\nNeeds --for" : "";
    CLI::Option* const virtualTime =
        command
            .add_flag("--virtual-time", options.virtualTime,
                      "Simulate as fast as the machine goes; the same seed gives the same output" + need)
            ->disable_flag_override()
            ->option_text(" ");
    if (duration) virtualTime->needs(duration);
    command.add_flag("--log", options.log, "Print the library's log lines on stderr")
        ->disable_flag_override();
}

Radio makeRadio(const RadioOptions& options, std::optional<double> patience) {
    if (isSimulated(options)) return makeSimulatedRadio(options);
    if (describesSimulation(options)) {
        throw CLI::ValidationError(
            "--simulate, --scenario, --seed and --virtual-time are for a simulated radio");
    }
    auto platform = makeMachineRadio(options.adapter.value_or(""), options.log);
    if (!options.wait) expectPoweredOn(*platform, patience);
    return {std::move(platform), [] {}};
}

}  // namespace zobi::tool
