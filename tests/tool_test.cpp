#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "tools/zobiconnect/Console.h"
#include "tools/zobiconnect/ScenarioFile.h"

namespace zobiconnect {
namespace {

using nlohmann::json;
using Arguments = std::vector<std::string>;

// Where a wall clock in virtual time starts.
constexpr double startTime = 1'704'067'200;

/// The tool as a process of its own, its stdout and stderr on one pipe or, of the size given, terminal.
class Tool {
public:
    explicit Tool(Arguments arguments, std::optional<winsize> terminal = std::nullopt) {
        std::array<int, 2> ends{};
        const int opened = terminal ? ::openpty(ends.data(), ends.data() + 1, nullptr, nullptr, &*terminal)
                                    : ::pipe(ends.data());
        if (opened != 0) throw std::system_error(errno, std::generic_category(), "no terminal or pipe");
        ::setenv("TERM", "xterm", 1);
        arguments.insert(arguments.begin(), ZOBICONNECT);
        std::vector<char*> pointers;
        for (std::string& argument : arguments) pointers.push_back(argument.data());
        pointers.push_back(nullptr);
        process_ = ::fork();
        if (process_ == 0) {
            ::close(ends[0]);
            ::dup2(ends[1], STDOUT_FILENO);
            ::dup2(ends[1], STDERR_FILENO);
            ::close(ends[1]);
            ::execv(ZOBICONNECT, pointers.data());
            ::_exit(127);
        }
        ::close(ends[1]);
        output_ = ends[0];
    }
    ~Tool() { ::close(output_); }
    Tool(const Tool&) = delete;
    Tool& operator=(const Tool&) = delete;

    /// Waits until the tool has written `text`, and then sends it a signal. False when it ends without.
    bool signalAfter(const std::string& text, int signal) {
        while (written.find(text) == std::string::npos) {
            if (!readSome()) return false;
        }
        return ::kill(process_, signal) == 0;
    }

    /// Reads to the end. @returns the exit status, or -1 when a signal ended the process.
    int end() {
        while (readSome()) {
        }
        int status = 0;
        EXPECT_EQ(::waitpid(process_, &status, 0), process_);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    /// All that was read so far.
    std::string written;

private:
    bool readSome() {
        std::array<char, 4096> buffer{};
        const ssize_t count = ::read(output_, buffer.data(), buffer.size());
        if (count > 0) written.append(buffer.data(), static_cast<std::size_t>(count));
        return count > 0;
    }

    pid_t process_ = -1;
    int output_ = -1;
};

/// What the tool writes, once it has ended with `status`.
std::string outputOf(Arguments arguments, int status = 0) {
    Tool tool(std::move(arguments));
    EXPECT_EQ(tool.end(), status) << tool.written;
    return tool.written;
}

std::vector<json> eventsOf(const std::string& output) {
    std::vector<json> events;
    std::istringstream stream(output);
    for (std::string line; std::getline(stream, line);) events.push_back(json::parse(line));
    return events;
}

class ScenarioFile {
public:
    explicit ScenarioFile(const std::string& text) { std::ofstream(name) << text; }
    ~ScenarioFile() { std::remove(name.c_str()); }
    ScenarioFile(const ScenarioFile&) = delete;
    ScenarioFile& operator=(const ScenarioFile&) = delete;

    const std::string name = ::testing::TempDir() + "scenario-" + std::to_string(::getpid()) + ".json";
};

std::vector<json> eventsOfScenario(const std::string& file, const std::string& seconds) {
    return eventsOf(outputOf({"monitor", "--virtual-time", "--for", seconds, "--scenario", file}));
}

// Advertises half a second after each full second: never together with a report.
constexpr auto eventfulScenario = R"({
    "beacons": [{"name": "door", "mac": "AB:CD:EF:12:34:56", "major": 1, "minor": 7, "battery": 90,
                 "temperature": 22, "jitter": 0, "signalStrength": -60}],
    "timeline": [
        {"at": 0.5, "beacon": "door", "do": "comeIntoRange"},
        {"at": 2.2, "beacon": "door", "do": "setBattery", "battery": 80},
        {"at": 2.2, "beacon": "door", "do": "setTemperature", "temperature": 25},
        {"at": 2.2, "beacon": "door", "do": "setSignalStrength", "signalStrength": -71},
        {"at": 5.2, "beacon": "door", "do": "pressButton", "action": 2, "seconds": 2},
        {"at": 8.2, "beacon": "door", "do": "sendOnce", "serviceData": [{"service": "180A", "data": "00"}]},
        {"at": 8.3, "beacon": "door", "do": "sendOnce", "serviceData": [{"service": "180D", "data": ""}]},
        {"at": 9, "beacon": "door", "do": "goOutOfRange"},
        {"at": 40, "do": "setRadio", "state": "poweredOff"},
        {"at": 45, "do": "setRadio", "state": "poweredOn"},
        {"at": 50.5, "beacon": "door", "do": "comeIntoRange"},
        {"at": 52, "do": "enterBackground"}
    ]})";

TEST(ToolMonitor, GivesTheSameOutputForTheSameSeed) {
    const auto outputForSeed = [](const char* seed) {
        return outputOf({"monitor", "--virtual-time", "--for", "300", "--simulate", "12", "--seed", seed});
    };
    const std::string output = outputForSeed("7");
    EXPECT_EQ(outputForSeed("7"), output);
    EXPECT_NE(outputForSeed("8"), output);
    const json summary = eventsOf(output).back();
    EXPECT_EQ(summary["beacons"], 12);
    EXPECT_EQ(summary["reports"], 300);
    EXPECT_GE(summary["buttonActions"], 12);
}

TEST(ToolMonitor, TellsEachEventOfAScenario) {
    const ScenarioFile file(eventfulScenario);
    std::vector<std::pair<double, std::string>> events;
    std::vector<double> reportsWithBeacon;
    json reportAfterChange;
    json summary;
    for (const json& event : eventsOfScenario(file.name, "85")) {
        const double time = event["time"].get<double>() - startTime;
        const json detail = event.value("state", event.value("action", json()));
        if (event["event"] != "report") {
            events.emplace_back(time, event["event"].get<std::string>() + ' ' + detail.dump());
        } else if (!event["beacons"].empty()) {
            reportsWithBeacon.push_back(time);
            if (time == 3) reportAfterChange = event["beacons"][0];
        }
        summary = event;
    }
    using Event = std::pair<double, std::string>;
    EXPECT_EQ(events, (std::vector<Event>{{0, "state 5"},
                                          {5.5, "button 1"},
                                          {6.5, "button 1"},
                                          {40, "state 4"},
                                          {45, "state 5"},
                                          {52, "application 2"},
                                          {85, "summary null"}}));
    // What was last heard at 8.5 is dropped after the report at 30. In the background the beacon is heard
    // once more, at 52.5, and is dropped after the report at 82.
    std::vector<double> expected{51};
    for (int time = 30; time >= 1; --time) expected.insert(expected.begin(), time);
    for (int time = 53; time <= 82; ++time) expected.push_back(time);
    EXPECT_EQ(reportsWithBeacon, expected);
    EXPECT_EQ(reportAfterChange, json::parse(R"({
        "major": 1, "minor": 7, "macAddress": "ABCDEF123456", "scanRspVersion": 3, "advertBatteryLevel": 90,
        "temperature": 22, "advertAction": 0, "firmwareVersion": null, "timestamp": 1704067202,
        "latest": {"rssi": -71, "scanRspVersion": 3, "advertBatteryLevel": 80, "temperature": 25,
                   "advertAction": 0}})"));
    EXPECT_EQ(summary["beacons"], 1);
    // Monitoring starts anew at 45 and at 52, before the reports there.
    EXPECT_EQ(summary["reports"], 85 - 2);
    EXPECT_EQ(summary["buttonActions"], 2);
    // At 0.5 to 8.5, at 50.5 to 52.5, and the two that were sent once.
    EXPECT_EQ(summary["advertisements"], 9 + 3 + 2);
    EXPECT_EQ(summary["malformedAdvertisements"], 1);
}

TEST(ToolMonitor, PlaysTheExampleAgainAndAgain) {
    const json summary = eventsOfScenario(EXAMPLE_SCENARIO, "240").back();
    EXPECT_EQ(summary["beacons"], 3);
    EXPECT_EQ(summary["buttonActions"], 2 * 4);
    EXPECT_EQ(summary["malformedAdvertisements"], 2);
}

TEST(ToolMonitor, ChangesTheApplicationStateWhenAsked) {
    std::vector<std::pair<double, int>> changes;
    for (const json& event : eventsOf(outputOf({"monitor", "--virtual-time", "--for", "9", "--background-at",
                                                "2", "--background-at", "6", "--foreground-at", "4"}))) {
        if (event["event"] == "application") changes.emplace_back(event["time"], event["state"]);
    }
    EXPECT_EQ(changes, (std::vector<std::pair<double, int>>{
                           {startTime + 2, 2}, {startTime + 4, 0}, {startTime + 6, 2}}));
}

TEST(ToolMonitor, PrintsTablesAndTheLog) {
    const ScenarioFile file(eventfulScenario);
    const std::string output = outputOf(
        {"monitor", "--virtual-time", "--for", "7", "--format", "table", "--log", "--scenario", file.name});
    EXPECT_NE(output.find("Bluetooth poweredOn | foreground | 7s | 1 beacon | seed 0\n\n"
                          "                                as first seen  ------- latest -------\n"
                          "BEACON  MAC           VER  AGE  BATT     TEMP  SIGNAL dBm  BATT  TEMP  BUTTON\n"
                          "1.7     ABCDEF123456    3   1s   90%      22C   -71 ##...   80%   25C  1 (1s)\n"),
              std::string::npos)
        << output;
    EXPECT_EQ(output.find('\x1b'), std::string::npos);
    // Each advertisement once, though the tool decodes it as well.
    std::size_t logged = 0;
    for (std::size_t at = 0; (at = output.find("<ZOKBeacon", at)) != std::string::npos; ++at) ++logged;
    EXPECT_EQ(logged, 7U);
}

TEST(ToolMonitor, EndsWithASummaryWhenInterrupted) {
    for (const int signal : {SIGINT, SIGTERM}) {
        for (const Arguments& arguments : {Arguments{"monitor"}, Arguments{"monitor", "--virtual-time"}}) {
            Tool tool(arguments);
            EXPECT_TRUE(tool.signalAfter("\n", signal));
            EXPECT_EQ(tool.end(), 0);
            EXPECT_EQ(eventsOf(tool.written).back()["event"], "summary");
        }
    }
}

TEST(ToolScreen, IsGivenBackWhenInterrupted) {
    Tool tool({"monitor"}, winsize{24, 80, 0, 0});
    EXPECT_TRUE(tool.signalAfter("Bluetooth poweredOn", SIGINT));
    EXPECT_EQ(tool.end(), 0);
    EXPECT_TRUE(tool.written.starts_with("\x1b[?1049h\x1b[?25l")) << tool.written;
    EXPECT_NE(tool.written.find("\x1b[?25h\x1b[?1049lEnded after"), std::string::npos) << tool.written;
}

TEST(ToolScreen, CutsOffWhatHasNoRoom) {
    Tool tool({"monitor", "--virtual-time", "--for", "10", "--simulate", "9"}, winsize{8, 30, 0, 0});
    EXPECT_EQ(tool.end(), 0);
    const std::string lastScreen = tool.written.substr(tool.written.rfind("\x1b[H"));
    EXPECT_TRUE(lastScreen.starts_with("\x1b[H\x1b[KBluetooth poweredOn | foregrou\x1b[0m\r")) << lastScreen;
    EXPECT_NE(lastScreen.find("BEACON  MAC           VER  AGE\x1b[0m\r"), std::string::npos) << lastScreen;
    // No line feed, with which the full screen would move.
    EXPECT_NE(lastScreen.find("... and 6 more rows\x1b[0m\x1b[?25h"), std::string::npos) << lastScreen;
}

TEST(ToolDecode, ExplainsTheLayouts) {
    EXPECT_EQ(outputOf({"decode", "56:34:12:ef:cd:ab 00 0001-0007 03 5A 001a 02 FF"}),
              "563412EFCDAB0000010007035A001A02FF: 17 bytes, layout version 3\n"
              "  BYTES  HEX           FIELD               VALUE\n"
              "  0-5    563412EFCDAB  macAddress          ABCDEF123456\n"
              "  6      00                                not used\n"
              "  7-8    0001          major               1\n"
              "  9-10   0007          minor               7\n"
              "  11     03            scanRspVersion      3\n"
              "  12     5A            advertBatteryLevel  90\n"
              "  13-14  001A          temperature         22\n"
              "  15     02            advertAction        2\n"
              "  16     FF                                ignored\n");
    const auto events = eventsOf(outputOf({"decode", "--format", "json", "563412EFCDAB0000010007025AFF",
                                           "563412EFCDAB0000010007", "563412EFCDAB0000010007F95A"}));
    ASSERT_EQ(events.size(), 3U);
    EXPECT_EQ(events[0]["payload"], "563412EFCDAB0000010007025AFF");
    EXPECT_EQ(events[0]["advertAction"], -1);
    EXPECT_EQ(events[0]["temperature"], nullptr);
    EXPECT_EQ(events[1]["scanRspVersion"], 1);
    EXPECT_EQ(events[1]["advertBatteryLevel"], 0);
    EXPECT_EQ(events[2]["scanRspVersion"], -7);
    EXPECT_EQ(events[2]["advertAction"], nullptr);
}

TEST(ToolDecode, GivesOneLineForEachPayloadItRefuses) {
    const std::string common = "563412EFCDAB0000010007";
    const std::vector<std::pair<std::string, std::string>> refused{
        {"", "\"\": 0 bytes decode under no layout: the shortest, layout version 1, needs 11"},
        {"5634", "5634: 2 bytes decode under no layout: the shortest, layout version 1, needs 11"},
        {common + "03", common + "03: 12 bytes decode under no layout: layout version 3 needs 16"},
        {common + "025A", common + "025A: 13 bytes decode under no layout: layout version 2 needs 14"},
        {common + "FF", common + "FF: 12 bytes decode under no layout: layout version -1 needs 13"},
        {"56x4", "56x4: character 3 is not a hexadecimal digit"},
        {"5:6", "5:6: character 2 separates the two digits of a byte"},
        {"563", "563: odd number of hexadecimal digits"},
        // No terminal takes orders from an argument.
        {"\x1b[2J\u009b2J", R"(\x1B[2J\xC2\x9B2J: character 1 is not a hexadecimal digit)"},
    };
    for (const auto& [payload, message] : refused) {
        EXPECT_EQ(outputOf({"decode", payload}, 1), "zobiconnect: " + message + '\n');
    }
    const std::string output = outputOf({"decode", "--format", "json", "5634", common}, 1);
    EXPECT_NE(output.find("\"minor\":7"), std::string::npos) << output;
}

TEST(ToolUsage, RefusesWhatMakesNoSense) {
    const ScenarioFile file("{}");
    const std::vector<std::pair<Arguments, std::string>> mistakes{
        {{}, "Commands:"},
        {{"decode"}, "HEX is required"},
        {{"monitor", "--for", "-1"}, "--for: \"-1\" is not a number of seconds, 0 or more"},
        {{"monitor", "--for", "nan"}, "--for: \"nan\" is not"},
        {{"monitor", "--background-at", "inf"}, "--background-at: \"inf\" is not"},
        {{"monitor", "--foreground-at", "2s"}, "--foreground-at: \"2s\" is not"},
        {{"monitor", "--seed", "-1"}, "--seed: \"-1\" is not a number"},
        {{"monitor", "--simulate", "0"}, "--simulate"},
        {{"monitor", "--simulate", "2", "--scenario", "x"}, "excludes"},
        {{"monitor", "--scenario", "/nowhere"}, "/nowhere: cannot be read: No such file or directory"},
        {{"monitor", "--scenario", file.name}, ".json: beacons: missing"},
    };
    for (const auto& [arguments, message] : mistakes) {
        const std::string output = outputOf(arguments, 2);
        EXPECT_NE(output.find(message), std::string::npos) << output;
    }
    EXPECT_NE(outputOf({"monitor", "--help"}).find("as first seen"), std::string::npos);
}

std::string mistakeIn(const std::string& text) {
    try {
        scenarioFromText(text, "a.json");
    } catch (const UsageError& error) {
        return error.what();
    }
    return "none";
}

TEST(ToolScenario, IsRefusedWithThePlaceAndTheReason) {
    const auto withBeacon = [](const std::string& keys) {
        return R"({"beacons": [{"name": "a", "mac": "ABCDEF123456", "major": 1, "minor": 7)" + keys + "}]}";
    };
    const auto withEvent = [&](const std::string& keys, const std::string& more = "") {
        const std::string start = withBeacon("");
        return start.substr(0, start.size() - 1) + R"(, "timeline": [{"at": 1, )" + keys + "}]" + more + '}';
    };
    const std::vector<std::pair<std::string, std::string>> mistakes{
        {"[]", "top level: must be an object"},
        {R"({"beacons": [], "repeat": 3})",
         "repeat: unknown key; known here: beacons, repeatEvery, timeline"},
        {R"({"beacons": [], "repeatEvery": 0})", "repeatEvery: 0 is not from 1 to 1000000000"},
        {withBeacon(R"(, "minor": 8)"), "beacons[0].minor: the key is repeated"},
        {R"({"beacons": [7]})", "beacons[0]: must be an object"},
        {R"({"beacons": [{"name": "a", "mac": "ABCD"}]})", "beacons[0].mac: must be 12 hexadecimal digits"},
        {withBeacon(R"(, "battery": 18446744073709551615)"),
         "beacons[0].battery: 18446744073709551615 is not from 0 to 255"},
        {withEvent(R"("beacon": "a", "do": "pressButton", "action": 1, "seconds": 1e400)"),
         "timeline[0].seconds: the number is too large"},
        {withBeacon(R"(, "layoutVersion": 2.5)"), "beacons[0].layoutVersion: must be a whole number"},
        {withBeacon(R"(, "temperature": -5)"), "beacons[0].temperature: -5 is not from -4 to 65531"},
        {withBeacon(R"(, "interval": 0)"), "beacons[0].interval: 0 is not from 0.01 to 3600"},
        {withBeacon(R"(, "advertisedServices": ["1320", "x"])"),
         "beacons[0].advertisedServices[1]: must be a UUID of 4, 8 or 36 characters"},
        {withBeacon(R"(}, {"name": "a")"), "beacons[1].name: another beacon is named \"a\" already"},
        {withEvent(R"("beacon": "b", "do": "goOutOfRange")"), "timeline[0].beacon: there is no beacon \"b\""},
        {withEvent(R"("beacon": "a", "do": "goOutOfRange", "seconds": 2)"),
         "timeline[0].seconds: unknown key; known here: at, do, beacon"},
        {withEvent(R"("beacon": "a", "do": "pressButton", "action": 128)"),
         "timeline[0].action: 128 is not from -128 to 127"},
        {withEvent(R"("beacon": "a", "do": "sendOnce", "serviceData": [{"service": "180A", "data": "1"}])"),
         "timeline[0].serviceData[0].data: odd number of hexadecimal digits"},
        {withEvent(R"("do": "setRadio", "state": "on")"),
         "timeline[0].state: \"on\" is none of unknown, resetting, unsupported, unauthorized, poweredOff, "
         "poweredOn"},
        {withEvent(R"("do": "becomeActive")", R"(, "repeatEvery": 1)"),
         "timeline[0].at: must be less than repeatEvery"},
        {R"({"beacons": [], "timeline": [{"at": -1, "do": "becomeActive"}]})",
         "timeline[0].at: -1 is not from 0 to 1000000000"},
    };
    for (const auto& [text, message] : mistakes) EXPECT_EQ(mistakeIn(text), "a.json: " + message) << text;
    EXPECT_TRUE(mistakeIn("{\n  \"beacons\": [\n  }").starts_with("a.json: line 3, column 3: "));
    EXPECT_TRUE(
        mistakeIn(withEvent(R"("do": "dance")")).starts_with("a.json: timeline[0].do: \"dance\" is none"));
    EXPECT_EQ(mistakeIn(withEvent(R"("beacon": "a", "do": "setServiceData", "serviceData": null)")), "none");
}

}  // namespace
}  // namespace zobiconnect
