#include <algorithm>
#include <cstddef>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/zobiconnect/Command.h"
#include "tools/zobiconnect/CommandLine.h"
#include "tools/zobiconnect/terminal/Console.h"
#include "tools/zobiconnect/terminal/StopOnSignal.h"
#include "tools/zobiconnect/terminal/TextTable.h"
#include "tools/zobiconnect/text/BeaconJson.h"
#include "tools/zobiconnect/text/Text.h"
#include "zobi/platform/bluez/Diagnosis.h"
#include "zobi/platform/standard/StandardClock.h"

namespace zobi::tool {

using platform::bluez::Finding;
using platform::bluez::Hearing;

namespace {

struct Options {
    std::string adapter;
    std::optional<double> listenFor;
    std::string format = "table";
};

#ifdef ZOBI_BLUEZ

std::vector<Finding> examine(const std::string& adapter) {
    return platform::bluez::diagnose({adapter});
}

Hearing listen(const std::string& adapter, double seconds) {
    tellProgress("listening for " + numberText(seconds) + " s");
    platform::bluez::BlueZPlatform platform({adapter});
    platform.log().setSink(nullptr);
    const StopOnSignal stopOnSignal(platform.runLoop());
    return platform::bluez::listen(platform, seconds);
}

#else

std::vector<Finding> examine(const std::string& /*adapter*/) {
    return {{"radio", Finding::Severity::obstacle, "This tool was built without the radio of this machine.",
             "Build it anew where the development files of libsystemd are: apt install libsystemd-dev"}};
}

Hearing listen(const std::string& /*adapter*/, double /*seconds*/) {
    return {};
}

#endif

std::string stateText(Finding::Severity severity) {
    switch (severity) {
        case Finding::Severity::good:
            return "good";
        case Finding::Severity::limitation:
            return "limited";
        case Finding::Severity::obstacle:
            break;
    }
    return "failed";
}

std::vector<std::string> obstaclesAmong(const std::vector<Finding>& findings) {
    std::vector<std::string> subjects;
    for (const Finding& finding : findings) {
        if (finding.severity == Finding::Severity::obstacle) subjects.push_back(finding.subject);
    }
    return subjects;
}

std::string verdictName(Hearing::Verdict verdict) {
    switch (verdict) {
        case Hearing::Verdict::fine:
            return "fine";
        case Hearing::Verdict::throttled:
            return "throttled";
        case Hearing::Verdict::empty:
            return "empty";
        case Hearing::Verdict::deaf:
            return "deaf";
        case Hearing::Verdict::unclear:
            return "unclear";
        case Hearing::Verdict::unusable:
            break;
    }
    return "unusable";
}

/// With which the process ends after listening.
int exitStatusOf(Hearing::Verdict verdict) {
    switch (verdict) {
        case Hearing::Verdict::fine:
            return success;
        case Hearing::Verdict::throttled:
            return 3;
        case Hearing::Verdict::empty:
            return 4;
        case Hearing::Verdict::deaf:
            return 5;
        case Hearing::Verdict::unclear:
            return 6;
        case Hearing::Verdict::unusable:
            break;
    }
    return failure;
}

double rateOf(const Hearing::Device& device, const Hearing& hearing) {
    return static_cast<double>(device.advertisements) / hearing.seconds;
}

void printTable(const std::vector<Column>& columns, const std::vector<std::vector<std::string>>& rows) {
    for (const std::string& line : formatTable(columns, rows)) printOut(line + '\n');
}

void printDevices(const Hearing& hearing) {
    // The rest are heard so seldom that they tell little.
    constexpr std::size_t most = 10;
    constexpr auto right = Column::Alignment::right;
    std::vector<std::vector<std::string>> rows;
    for (const Hearing::Device& device : hearing.devices) {
        if (rows.size() == most) break;
        rows.push_back({device.address, std::to_string(device.advertisements),
                        tenthsText(rateOf(device, hearing)), tenthsText(device.longestGap) + 's',
                        device.rssi ? std::to_string(*device.rssi) : "-", printableASCII(device.name)});
    }
    if (rows.empty()) return;
    printOut("\n");
    printTable({{"", "DEVICE"},
                {"", "HEARD", right},
                {"", "RATE", right},
                {"", "GAP", right},
                {"", "dBm", right},
                {"", "NAME"}},
               rows);
}

void printAsTable(const std::vector<Finding>& findings, const std::optional<Hearing>& hearing) {
    std::vector<std::vector<std::string>> rows;
    rows.reserve(findings.size());
    for (const Finding& finding : findings) {
        rows.push_back({finding.subject, stateText(finding.severity), printable(finding.found)});
    }
    const auto lines = formatTable({{"", "SUBJECT"}, {"", "STATE"}, {"", "FOUND"}}, rows);
    printOut(lines.front() + '\n');
    for (std::size_t i = 0; i < findings.size(); ++i) {
        printOut(lines[i + 1] + '\n');
        if (!findings[i].advice.empty()) printOut("    " + printable(findings[i].advice) + '\n');
    }
    if (hearing) printDevices(*hearing);
    const auto obstacles = obstaclesAmong(findings);
    printOut(obstacles.empty() ? "\nBeacons can be monitored.\n"
                               : "\nBeacons cannot be monitored. In the way: " + listed(obstacles) + ".\n");
}

OrderedJson hearingJson(const Hearing& hearing) {
    OrderedJson devices = OrderedJson::array();
    for (const Hearing::Device& device : hearing.devices) {
        devices.push_back({{"address", device.address},
                           {"name", device.name},
                           {"advertisements", device.advertisements},
                           {"rate", rounded(rateOf(device, hearing))},
                           {"longestGap", rounded(device.longestGap)},
                           {"rssi", device.rssi ? OrderedJson(*device.rssi) : OrderedJson()}});
    }
    OrderedJson linked = OrderedJson::array();
    for (const auto& [address, name] : hearing.linked) {
        linked.push_back({{"address", address}, {"name", name}});
    }
    return {{"verdict", verdictName(hearing.verdict)},
            {"seconds", rounded(hearing.seconds)},
            {"advertisements", hearing.advertisements},
            {"silence", rounded(hearing.silence)},
            {"scanSwitches", hearing.scanSwitches ? OrderedJson(*hearing.scanSwitches) : OrderedJson()},
            {"devices", std::move(devices)},
            {"linked", std::move(linked)}};
}

void printAsJsonLines(const std::vector<Finding>& findings, const std::optional<Hearing>& hearing) {
    const double now = platform::SystemTime().timeIntervalSince1970();
    for (const Finding& finding : findings) {
        printOut(
            eventLine("finding", now,
                      {{"subject", finding.subject},
                       {"state", stateText(finding.severity)},
                       {"found", finding.found},
                       {"advice", finding.advice.empty() ? OrderedJson() : OrderedJson(finding.advice)}}));
    }
    if (hearing) printOut(eventLine("hearing", now, hearingJson(*hearing)));
    printOut(eventLine("verdict", now, {{"canMonitor", obstaclesAmong(findings).empty()}}));
}

int runDoctor(const Options& options) {
    std::vector<Finding> findings = examine(options.adapter);
    std::optional<Hearing> hearing;
    if (options.listenFor && obstaclesAmong(findings).empty()) {
        hearing = listen(options.adapter, *options.listenFor);
        std::ranges::copy(hearing->findings, std::back_inserter(findings));
    }
    if (options.format == "json") {
        printAsJsonLines(findings, hearing);
    } else {
        printAsTable(findings, hearing);
    }
    flushOut();
    if (hearing) return exitStatusOf(hearing->verdict);
    return obstaclesAmong(findings).empty() ? success : failure;
}

}  // namespace

Command addDoctorCommand(CLI::App& tool) {
    const auto options = std::make_shared<Options>();
    CLI::App* const app = tool.add_subcommand("doctor", "Tell whether this machine's radio can be used");
    app->group("Commands");
    app->add_option("--adapter", options->adapter,
                    "Which adapter of this machine, by its name (hci0) or address; any by default")
        ->option_text("ADAPTER");
    app->add_option("--listen", options->listenFor,
                    "Also listen for so long, and tell how well devices are heard; 12 or more, to\n"
                    "tell a room without devices from a radio that is deaf")
        ->check(isSeconds(1))
        ->option_text("SECONDS");
    addFormatOption(*app, options->format, "table");
    app->footer(
        "Examines one thing after the other that monitoring beacons depends on, as the user it runs as, and\n"
        "says what can be done about what is found. It changes nothing. docs/linux.md tells more.\n"
        "\n"
        "With --listen it then scans for all devices, as a program does, and adds what was heard:\n"
        "  air            fine; or throttled, where the controller reports each device about every 10 s;\n"
        "                 or nothing to judge by; or deaf, where the controller does not scan\n"
        "  link           each device that is linked to this machine and so was not heard\n"
        "and the ten devices that were heard most: how often, per second, the longest time in between,\n"
        "and the last signal strength. Ctrl-C ends the listening early.\n"
        "\n"
        "States:\n"
        "  good           as it should be\n"
        "  limited        beacons can be monitored; something else cannot be done\n"
        "  failed         beacons cannot be monitored. What depends on it is not examined\n"
        "\n"
        "Events of json:\n"
        "  finding        each subject: its state, what was found, and advice or null\n"
        "  hearing        fine, throttled, empty, deaf, unclear or unusable, all figures and all devices\n"
        "  verdict        at the end: whether beacons can be monitored\n"
        "\n"
        "The exit status is 0 if they can, 1 if not. After listening it is 0 if devices are heard as often\n"
        "as they advertise, 1 if the radio cannot be used, 3 if it is throttled, 4 if nothing advertises\n"
        "here, 5 if it is deaf, and 6 if there was too little to judge by.\n"
        "\n"
        "Example: zobiconnect doctor --listen 30");
    return {app, [options] { return runDoctor(*options); }};
}

}  // namespace zobi::tool
