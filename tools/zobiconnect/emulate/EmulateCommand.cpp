#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "ZobiConnectKit/simulation/Scenario.h"
#include "tools/zobiconnect/Command.h"
#include "tools/zobiconnect/CommandLine.h"
#include "tools/zobiconnect/emulate/EmulateControls.h"
#include "tools/zobiconnect/emulate/EmulatedBeacon.h"
#include "tools/zobiconnect/scenario/ScenarioFile.h"
#include "tools/zobiconnect/terminal/Console.h"
#include "tools/zobiconnect/terminal/StopOnSignal.h"
#include "tools/zobiconnect/text/BeaconJson.h"
#include "tools/zobiconnect/text/Hex.h"
#include "tools/zobiconnect/text/Text.h"
#include "zobi/platform/bluez/BlueZPlatform.h"
#include "zobi/platform/bluez/PeripheralManager.h"
#include "zobi/platform/simulation/World.h"
#include "zobi/platform/standard/ExceptionKeeper.h"

namespace zobi::tool {

using platform::bluez::BlueZPlatform;
using platform::bluez::PeripheralManager;
using platform::simulation::World;

namespace {

struct Options {
    std::string adapter;
    std::optional<std::uint16_t> major;
    std::optional<std::uint16_t> minor;
    std::string macAddress = "00:00:00:00:00:00";
    int layoutVersion = 3;
    int battery = 100;
    int temperature = 20;
    std::optional<std::string> scenario;
    std::optional<double> duration;
    std::string format = "text";
    bool log = false;
};

CLI::Validator isMacAddress() {
    const auto check = [](const std::string& text) -> std::string {
        try {
            if (bytesFromHex(text).size() == BeaconDescription().macAddress.size()) return "";
        } catch (const std::invalid_argument&) {
            // It is refused as one of another length is.
        }
        return '"' + text + "\" is not 12 hexadecimal digits";
    };
    return {check, "", "MAC address"};
}

Scenario scenarioOfOneBeacon(const Options& options) {
    BeaconDescription beacon;
    std::ranges::copy(bytesFromHex(options.macAddress), beacon.macAddress.begin());
    beacon.major = options.major.value_or(1);
    beacon.minor = options.minor.value_or(1);
    beacon.layoutVersion = static_cast<std::int8_t>(options.layoutVersion);
    beacon.batteryLevel = static_cast<std::uint8_t>(options.battery);
    beacon.temperature = options.temperature;
    Scenario scenario;
    scenario.beacons.push_back(std::move(beacon));
    scenario.addBeaconEvent(0, 0, &SimulatedBeacon::comeIntoRange);
    return scenario;
}

/// The place of the beacon with the numbers that were given; of the first if none was.
std::size_t chosenBeacon(const Scenario& scenario, const Options& options) {
    const auto isChosen = [&](const BeaconDescription& beacon) {
        return beacon.major == options.major.value_or(beacon.major) &&
               beacon.minor == options.minor.value_or(beacon.minor);
    };
    const auto found = std::ranges::find_if(scenario.beacons, isChosen);
    if (found == scenario.beacons.end()) {
        std::string wanted;
        if (options.major) wanted += " --major " + std::to_string(*options.major);
        if (options.minor) wanted += " --minor " + std::to_string(*options.minor);
        throw UsageError(shownFileName(*options.scenario) + ": there is no beacon" +
                         (wanted.empty() ? "" : " for" + wanted));
    }
    return static_cast<std::size_t>(found - scenario.beacons.begin());
}

int runEmulate(const Options& options) {
    const Scenario scenario =
        options.scenario ? scenarioFromFile(*options.scenario) : scenarioOfOneBeacon(options);
    const std::size_t index = chosenBeacon(scenario, options);

    BlueZPlatform platform({options.adapter});
    if (!options.log) platform.log().setSink(nullptr);
    platform::RunLoop& runLoop = platform.runLoop();
    const StopOnSignal stopOnSignal(runLoop);
    World world(runLoop, 0);
    SimulatedBeacon& beacon = *playScenario(scenario, platform, world)[index];

    const auto start = platform.clock().monotonicTime();
    const bool asJson = options.format == "json";
    const auto tell = [&platform, start, asJson](std::string_view event, const OrderedJson& values,
                                                 const std::string& line) {
        const platform::Clock& clock = platform.clock();
        const auto elapsed = std::chrono::duration_cast<std::chrono::seconds>(clock.monotonicTime() - start);
        printOut(asJson ? eventLine(event, clock.timeIntervalSince1970(), values)
                        : secondsText(elapsed.count()) + "  " + printable(line) + '\n');
        flushOut();
    };
    const auto emulated = std::make_shared<EmulatedBeacon>(runLoop, beacon, tell);
    emulated->start([&](auto services, auto delegate) {
        return PeripheralManager::makeOnPlatform(platform, std::move(services), std::move(delegate));
    });
    bool isOver = false;
    const auto quit = [&] {
        isOver = true;
        runLoop.stop();
    };
    std::optional<EmulateControls> controls;
    controls.emplace(runLoop, beacon,
                     EmulateControls::Actions{[&] { emulated->disconnectCentrals(); }, quit, tell});
    if (options.duration) runLoop.after(*options.duration, quit);

    platform::ExceptionKeeper exceptions;
    exceptions.run([&] {
        while (!isOver && emulated->failure().empty() && !StopOnSignal::take()) runLoop.run();
    });
    controls.reset();
    if (!emulated->failure().empty()) throw Failure(emulated->failure());
    bool hasEnded = false;
    emulated->end([&] {
        hasEnded = true;
        runLoop.stop();
    });
    // What cannot be told must not keep the links up.
    while (!hasEnded && !StopOnSignal::take()) exceptions.run([&] { runLoop.run(); });
    exceptions.rethrow();
    return success;
}

}  // namespace

Command addEmulateCommand(CLI::App& tool) {
    const auto options = std::make_shared<Options>();
    CLI::App* const app = tool.add_subcommand("emulate", "Make this machine's radio a beacon, until Ctrl-C");
    app->group("Commands");
    app->add_option("--adapter", options->adapter,
                    "Which adapter of this machine, by its name (hci0) or address; any by default")
        ->option_text("ADAPTER");
    const CLI::Validator identity = wholeNumber<std::uint16_t>(0, std::numeric_limits<std::uint16_t>::max());
    app->add_option("--major", options->major, "The beacon's major number,")
        ->transform(identity)
        ->option_text("NUMBER [1]");
    app->add_option("--minor", options->minor, "and its minor number")
        ->transform(identity)
        ->option_text("NUMBER [1]");
    CLI::Option* const scenario =
        app->add_option("--scenario", options->scenario,
                        "Do what happens to a beacon of a JSON file (see docs/scenarios.md): the\n"
                        "first, or the one with these numbers; - is stdin")
            ->option_text("FILE");
    app->add_option("--mac", options->macAddress, "The MAC address that it advertises")
        ->check(isMacAddress())
        ->excludes(scenario)
        ->option_text("MAC [00:00:00:00:00:00]");
    app->add_option("--layout", options->layoutVersion, "Version of the layout of what it advertises")
        ->transform(wholeNumber(-128, 127))
        ->excludes(scenario)
        ->option_text("NUMBER [3]");
    app->add_option("--battery", options->battery, "Its battery level at first")
        ->transform(wholeNumber(0, 255))
        ->excludes(scenario)
        ->option_text("PERCENT [100]");
    app->add_option("--temperature", options->temperature, "Its temperature at first")
        ->transform(wholeNumber(-4, 65531))
        ->excludes(scenario)
        ->option_text("DEGREES [20]");
    addDurationOption(*app, options->duration);
    addFormatOption(*app, options->format, "text");
    app->add_flag("--log", options->log, "Print the library's log lines on stderr")->disable_flag_override();
    app->footer(
        "The beacon advertises and can be connected to, as real ones; what centrals do is told line by "
        "line.\n"
        "Ctrl-C takes it off the air and ends its links, which takes 2 s. While it has a link, most "
        "adapters\n"
        "do not advertise.\n"
        "\n"
        "Keys, on a terminal:\n"
        "  0 1 2          press the button: its action is advertised for 3 s, and notified\n"
        "  b B            battery level down or up by 5\n"
        "  t T            temperature down or up by 1\n"
        "  a              turn the accelerometer over\n"
        "  s              fall silent as if out of range, or be heard again\n"
        "  d              end the links\n"
        "  q              quit\n"
        "\n"
        "Lines, when stdin is no terminal; its end changes nothing:\n"
        "  press ACTION [SECONDS], battery PERCENT, temperature DEGREES, accelerometer X Y Z,\n"
        "  silence, resume, disconnect, quit\n"
        "\n"
        "Of a scenario, what concerns signal strengths, the application and the simulated radio has no\n"
        "effect here, nor have sendOnce, endLink and the errors of connections, discoveries and\n"
        "notifications. A link ends in good order where it would be lost.\n"
        "\n"
        "The Bluetooth service adds a Device Information service of its own: 180A is listed twice, and an\n"
        "application is told that it is connected a moment before the last service, usually the button\n"
        "mode's, is known. Between two machines with BlueZ values may get lost on additional channels. Both\n"
        "end with these lines of /etc/bluetooth/main.conf, once the service was restarted:\n"
        "  [General]\n"
        "  DeviceID = false\n"
        "  [GATT]\n"
        "  Channels = 1\n"
        "\n"
        "Examples:\n"
        "  zobiconnect emulate --major 300 --minor 7\n"
        "  (sleep 10; echo press 1; sleep 5; echo quit) | zobiconnect emulate --adapter hci1");
    return {app, [options] { return runEmulate(*options); }};
}

}  // namespace zobi::tool
