#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "tools/zobiconnect/Command.h"
#include "tools/zobiconnect/CommandLine.h"
#include "tools/zobiconnect/terminal/Console.h"
#include "tools/zobiconnect/terminal/TextTable.h"
#include "tools/zobiconnect/text/BeaconJson.h"
#include "tools/zobiconnect/text/Text.h"
#include "zobi/platform/bluez/Diagnosis.h"
#include "zobi/platform/standard/StandardClock.h"

namespace zobi::tool {

using platform::bluez::Finding;

namespace {

struct Options {
    std::string adapter;
    std::string format = "table";
};

std::vector<Finding> examine([[maybe_unused]] const std::string& adapter) {
#ifdef ZOBI_BLUEZ
    return platform::bluez::diagnose({adapter});
#else
    return {{"radio", Finding::Severity::obstacle, "This tool was built without the radio of this machine.",
             "Build it anew where the development files of libsystemd are: apt install libsystemd-dev"}};
#endif
}

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

void printAsTable(const std::vector<Finding>& findings) {
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
    const auto obstacles = obstaclesAmong(findings);
    printOut(obstacles.empty() ? "\nBeacons can be monitored.\n"
                               : "\nBeacons cannot be monitored. In the way: " + listed(obstacles) + ".\n");
}

void printAsJsonLines(const std::vector<Finding>& findings) {
    const double now = platform::SystemTime().timeIntervalSince1970();
    for (const Finding& finding : findings) {
        printOut(
            eventLine("finding", now,
                      {{"subject", finding.subject},
                       {"state", stateText(finding.severity)},
                       {"found", finding.found},
                       {"advice", finding.advice.empty() ? OrderedJson() : OrderedJson(finding.advice)}}));
    }
    printOut(eventLine("verdict", now, {{"canMonitor", obstaclesAmong(findings).empty()}}));
}

int runDoctor(const Options& options) {
    const std::vector<Finding> findings = examine(options.adapter);
    if (options.format == "json") {
        printAsJsonLines(findings);
    } else {
        printAsTable(findings);
    }
    flushOut();
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
    addFormatOption(*app, options->format, "table");
    app->footer(
        "Examines one thing after the other that monitoring beacons depends on, as the user it runs as, and\n"
        "says what can be done about what is found. It changes nothing. docs/linux.md tells more.\n"
        "\n"
        "States:\n"
        "  good           as it should be\n"
        "  limited        beacons can be monitored; something else cannot be done\n"
        "  failed         beacons cannot be monitored. What depends on it is not examined\n"
        "\n"
        "Events of json:\n"
        "  finding        each subject: its state, what was found, and advice or null\n"
        "  verdict        at the end: whether beacons can be monitored\n"
        "\n"
        "The exit status is 0 if they can, 1 if not.\n"
        "\n"
        "Example: zobiconnect doctor --adapter hci1");
    return {app, [options] { return runDoctor(*options); }};
}

}  // namespace zobi::tool
