#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/zobiconnect/Command.h"
#include "tools/zobiconnect/CommandLine.h"
#include "tools/zobiconnect/monitor/JsonLinesView.h"
#include "tools/zobiconnect/monitor/Monitor.h"
#include "tools/zobiconnect/monitor/ObservedPlatform.h"
#include "tools/zobiconnect/monitor/TableView.h"
#include "tools/zobiconnect/radio/RadioOptions.h"
#include "tools/zobiconnect/terminal/Console.h"
#include "tools/zobiconnect/terminal/StopOnSignal.h"

namespace zobi::tool {

using platform::UIApplicationState;

namespace {

struct Options {
    RadioOptions radio;
    std::optional<double> duration;
    std::vector<double> backgroundAt;
    std::vector<double> foregroundAt;
    std::string format;
};

std::unique_ptr<MonitorView> makeView(const Options& options) {
    const Display display = chooseDisplay(options.format, options.radio.log);
    if (display == Display::jsonLines) return std::make_unique<JsonLinesView>(!options.radio.virtualTime);
    return std::make_unique<TableView>(display, options.radio.caption());
}

void changeApplicationStateAt(const std::vector<double>& moments, UIApplicationState state) {
    platform::Platform& platform = platform::Platform::current();
    for (const double moment : moments) {
        const auto change = [&platform, state] { platform.application().setApplicationState(state); };
        if (moment > 0) {
            platform.runLoop().after(moment, change);
        } else {
            change();
        }
    }
}

int runMonitor(const Options& options) {
    Radio radio = makeRadio(options.radio, options.duration);
    auto observed = std::make_unique<ObservedPlatform>(std::move(radio.platform));
    ObservedPlatform& platform = *observed;
    platform::Platform::install(std::move(observed));

    const StopOnSignal stopOnSignal(platform.runLoop());
    const auto view = makeView(options);
    const auto monitor = std::make_shared<Monitor>(platform, *view);
    monitor->start();
    radio.play();
    changeApplicationStateAt(options.backgroundAt, UIApplicationState::background);
    changeApplicationStateAt(options.foregroundAt, UIApplicationState::active);
    if (options.duration) {
        platform.runLoop().runFor(*options.duration);
    } else {
        platform.runLoop().run();
    }
    platform.shutDown();
    monitor->end();
    flushOut();
    const bool hasWaitedInVain = options.radio.wait && !monitor->hasBeenPoweredOn();
    if (hasWaitedInVain && !StopOnSignal::take()) throw Failure(platform.radioCondition().advice());
    return success;
}

}  // namespace

Command addMonitorCommand(CLI::App& tool) {
    const auto options = std::make_shared<Options>();
    CLI::App* const app = tool.add_subcommand("monitor", "Show the beacons in range, until Ctrl-C");
    app->group("Commands");
    addFormatOption(*app, options->format, "table");
    addDurationOption(*app, options->duration);
    app->add_option("--background-at", options->backgroundAt,
                    "Send the application to the background then; may be repeated")
        ->check(isSeconds())
        ->option_text("SECONDS")
        ->allow_extra_args(false);
    app->add_option("--foreground-at", options->foregroundAt,
                    "Bring the application to the foreground then; may be repeated")
        ->check(isSeconds())
        ->option_text("SECONDS")
        ->allow_extra_args(false);
    app->add_flag("--wait", options->radio.wait,
                  "Do not fail when Bluetooth cannot be used yet: tell why, and wait until it can")
        ->disable_flag_override();
    addRadioOptions(*app, options->radio);
    app->footer(
        "Columns of the table:\n"
        "  BEACON         major and minor number: what tells beacons apart\n"
        "  AGE            since the beacon was last heard; after 20 s of silence it is soon dropped\n"
        "  first seen     battery level and temperature as the library holds them: from when the\n"
        "                 beacon came into range. BATT is 0% in layout version 1, which has none\n"
        "  latest         signal strength, battery level and temperature as last advertised\n"
        "  last minute    RATE: advertisements per second that the radio reported to the library.\n"
        "                 GAP: the longest time without one, that since the last included. In the\n"
        "                 first minute, since the first advertisement. In the background a radio\n"
        "                 reports a beacon once per scan\n"
        "  BUTTON         the last action, 0 to 2, and how long ago it was heard\n"
        "  VER            version of the layout of what the beacon advertises\n"
        "\n"
        "Events of json, each with its time in seconds since 1970:\n"
        "  state          of Bluetooth: 0 unknown, 1 resetting, 2 unsupported, 3 unauthorized,\n"
        "                 4 poweredOff, 5 poweredOn\n"
        "  radio          why Bluetooth cannot be used, and what can be done about it, as the doctor\n"
        "                 says; null for both when it can be again\n"
        "  application    0 active, 2 background\n"
        "  report         once a second: the fields of the beacons in range, as the library holds\n"
        "                 them, under 'latest' what each last advertised, and under 'lastMinute'\n"
        "                 the rate and, in seconds, the longest gap\n"
        "  button         the action, and the fields of the advertisement that told it\n"
        "  summary        at the end\n"
        "\n"
        "With --wait and --for, the time is counted from the start; the exit status is 1 if Bluetooth could\n"
        "not be used in all of it.\n"
        "\n"
        "Examples:\n"
        "  zobiconnect monitor --simulate 20\n"
        "  zobiconnect monitor --for 3600 --virtual-time --format json | grep '\"event\":\"button\"'");
    return {app, [options] { return runMonitor(*options); }};
}

}  // namespace zobi::tool
