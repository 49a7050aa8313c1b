#include <unistd.h>

#include <charconv>
#include <cmath>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/simulation/SimulatedPlatform.h"
#include "platform/standard/PollWaiting.h"
#include "tools/zobiconnect/Command.h"
#include "tools/zobiconnect/Console.h"
#include "tools/zobiconnect/DemoScenario.h"
#include "tools/zobiconnect/JsonLinesView.h"
#include "tools/zobiconnect/Monitor.h"
#include "tools/zobiconnect/ScenarioFile.h"
#include "tools/zobiconnect/Screen.h"
#include "tools/zobiconnect/StopOnSignal.h"
#include "tools/zobiconnect/TableView.h"

namespace zobiconnect {

using platform::ConditionVariableWaiting;
using platform::PollWaiting;
using platform::StandardPlatform;
using platform::UIApplicationState;
using platform::simulation::SimulatedPlatform;

namespace {

struct Options {
    std::string radio = "simulated";
    std::size_t simulate = 8;
    std::optional<std::string> scenario;
    std::uint64_t seed = 0;
    std::optional<double> duration;
    bool virtualTime = false;
    std::vector<double> backgroundAt;
    std::vector<double> foregroundAt;
    bool log = false;
    std::string format;
};

/// The number that is the whole text, if it is one: CLI11 would wrap, clamp or round others in silence.
template <typename Number>
std::optional<Number> numberFromText(const std::string& text) {
    const char* const end = text.data() + text.size();
    Number number{};
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && rest == end ? std::optional(number) : std::nullopt;
}

std::string checkSeconds(const std::string& text) {
    const auto seconds = numberFromText<double>(text);
    if (seconds && *seconds >= 0 && std::isfinite(*seconds)) return "";
    return '"' + text + "\" is not a number of seconds, 0 or more";
}

std::string checkSeed(const std::string& text) {
    if (numberFromText<std::uint64_t>(text)) return "";
    return '"' + text + "\" is not a number from 0 to 18446744073709551615";
}

std::unique_ptr<SimulatedPlatform> makeSimulatedPlatform(const Options& options) {
    if (options.virtualTime) {
        return std::make_unique<SimulatedPlatform>(StandardPlatform::Time::virtualTime, options.seed,
                                                   std::make_unique<ConditionVariableWaiting>());
    }
    // Its waits end at once when a signal stops the run loop.
    return std::make_unique<SimulatedPlatform>(StandardPlatform::Time::real, options.seed,
                                               std::make_unique<PollWaiting>());
}

std::unique_ptr<MonitorView> makeView(const Options& options) {
    const bool hasScreen = Screen::isAvailable();
    if (options.format == "jsonl" || (options.format.empty() && !hasScreen)) {
        return std::make_unique<JsonLinesView>(!options.virtualTime);
    }
    // Log lines on the same terminal would tear a live table apart.
    const bool isLive = hasScreen && !(options.log && ::isatty(STDERR_FILENO) == 1);
    return std::make_unique<TableView>(isLive ? TableView::Mode::live : TableView::Mode::printed,
                                       "seed " + std::to_string(options.seed));
}

void changeApplicationStateAt(const std::vector<double>& moments, UIApplicationState state) {
    platform::Platform& platform = platform::Platform::current();
    for (const double moment : moments) {
        happenAfter(platform.runLoop(), moment,
                    [&platform, state] { platform.application().setApplicationState(state); });
    }
}

int runMonitor(const Options& options) {
    const auto scenario =
        std::make_shared<const Scenario>(options.scenario ? scenarioFromFile(*options.scenario)
                                                          : demoScenario(options.simulate, options.seed));
    auto simulated = makeSimulatedPlatform(options);
    auto& world = simulated->world();
    if (!options.log) simulated->log().setSink(nullptr);
    auto observed = std::make_unique<ObservedPlatform>(std::move(simulated));
    ObservedPlatform& platform = *observed;
    platform::Platform::install(std::move(observed));

    const StopOnSignal stopOnSignal(platform.runLoop());
    const auto view = makeView(options);
    const auto monitor = std::make_shared<Monitor>(platform, *view);
    monitor->start();
    playScenario(scenario, {platform.runLoop(), platform.application(), world});
    changeApplicationStateAt(options.backgroundAt, UIApplicationState::background);
    changeApplicationStateAt(options.foregroundAt, UIApplicationState::active);
    if (options.duration) {
        platform.runLoop().runFor(*options.duration);
    } else {
        platform.runLoop().run();
    }
    monitor->end();
    flushOut();
    return success;
}

}  // namespace

Command addMonitorCommand(CLI::App& tool) {
    const auto options = std::make_shared<Options>();
    CLI::App* const app = tool.add_subcommand("monitor", "Show the beacons in range, until Ctrl-C");
    app->group("Commands");
    app->add_option("--format", options->format,
                    "'table', or 'jsonl': one JSON object a line for each event.\n"
                    "Without it: a table if stdout is a terminal, else jsonl")
        ->check(CLI::IsMember({"table", "jsonl"}))
        ->option_text("FORMAT");
    const CLI::Validator seconds(checkSeconds, "", "seconds");
    app->add_option("--for", options->duration, "End after so much time")
        ->check(seconds)
        ->option_text("SECONDS");
    app->add_flag("--log", options->log,
                  "Print the library's log lines on stderr. If that is the terminal too,\n"
                  "tables are printed one after another");
    app->add_option("--background-at", options->backgroundAt,
                    "Send the application to the background then; may be repeated")
        ->check(seconds)
        ->option_text("SECONDS")
        ->allow_extra_args(false);
    app->add_option("--foreground-at", options->foregroundAt,
                    "Bring the application to the foreground then; may be repeated")
        ->check(seconds)
        ->option_text("SECONDS")
        ->allow_extra_args(false);
    app->add_option("--radio", options->radio, "What to listen with: 'simulated' only, so far")
        ->check(CLI::IsMember({"simulated"}))
        ->option_text("RADIO [simulated]");
    CLI::Option* const simulate =
        app->add_option("--simulate", options->simulate,
                        "Simulate so many beacons, which come, change, fall silent and return")
            ->check(CLI::Range(1, 10000))
            ->option_text("N [8]");
    app->add_option("--scenario", options->scenario,
                    "Simulate what a JSON file describes (see docs/scenarios.md)")
        ->excludes(simulate)
        ->option_text("FILE");
    app->add_option("--seed", options->seed, "Decides all that is random in the simulation")
        ->check(CLI::Validator(checkSeed, "", "seed"))
        ->option_text("NUMBER [0]");
    app->add_flag("--virtual-time", options->virtualTime,
                  "Simulate as fast as the machine goes; the same seed gives the same output");
    app->footer(
        "Columns of the table:\n"
        "  BEACON         major and minor number: what tells beacons apart\n"
        "  VER            version of the layout of what the beacon advertises\n"
        "  AGE            since the beacon was last heard; after 20 s of silence it is soon dropped\n"
        "  as first seen  battery level and temperature as the library holds them: from when the\n"
        "                 beacon came into range. BATT is 0% in layout version 1, which has none\n"
        "  latest         signal strength, battery level and temperature as last advertised\n"
        "  BUTTON         the last action, 0 to 2, and how long ago it was heard\n"
        "\n"
        "Events of jsonl, each with its time in seconds since 1970:\n"
        "  state          of Bluetooth: 0 unknown, 1 resetting, 2 unsupported, 3 unauthorized,\n"
        "                 4 poweredOff, 5 poweredOn\n"
        "  application    0 active, 2 background\n"
        "  report         once a second: the fields of the beacons in range, as the library holds\n"
        "                 them, and under 'latest' what each last advertised\n"
        "  button         the action, and the fields of the advertisement that told it\n"
        "  summary        at the end\n"
        "\n"
        "Examples:\n"
        "  zobiconnect monitor --simulate 20\n"
        "  zobiconnect monitor --for 3600 --virtual-time --format jsonl | grep '\"event\":\"button\"'");
    return {app, [options] { return runMonitor(*options); }};
}

}  // namespace zobiconnect
