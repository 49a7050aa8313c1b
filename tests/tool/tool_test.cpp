#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "RunTool.h"
#include "tools/zobiconnect/scenario/ScenarioFile.h"
#include "tools/zobiconnect/terminal/Console.h"

namespace zobi::tool {
namespace {

using nlohmann::json;

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
    for (const json& event : eventsOf(outputOnScenario({"monitor", "--for", "85"}, file.name))) {
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
    const json summary =
        eventsOf(outputOnScenario({"monitor", "--for", "240"}, ZOBI_SCENARIOS "/office.json")).back();
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
        for (const Arguments& arguments :
             {Arguments{"monitor", "--simulate", "8"}, Arguments{"monitor", "--virtual-time"}}) {
            Tool tool(arguments);
            EXPECT_TRUE(tool.signalAfter("\n", signal));
            EXPECT_EQ(tool.end(), 0);
            EXPECT_EQ(eventsOf(tool.written).back()["event"], "summary");
        }
    }
}

TEST(ToolScreen, IsGivenBackWhenInterrupted) {
    Tool tool({"monitor", "--radio", "simulated"}, winsize{24, 80, 0, 0});
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

const std::string connectionsExample = ZOBI_SCENARIOS "/connections.json";

// All in range at once, so that a connection is asked for at 1 and is up soon after. "bare" has the seven
// services that make a connection, but one of them twice in place of another.
constexpr auto beaconsToConnect = R"({
    "beacons": [
        {"name": "whole", "mac": "ABCDEF123451", "major": 1, "minor": 1, "battery": 90, "temperature": 22},
        {"name": "bare", "mac": "ABCDEF123452", "major": 1, "minor": 2, "layoutVersion": 1,
         "services": ["180A", "180F", "FFE0", "FFE0", "FFA0", "FFF0", "F0002013-0451-4000-B000-000000000000"]},
        {"name": "mute", "mac": "ABCDEF123453", "major": 1, "minor": 3},
        {"name": "slow", "mac": "ABCDEF123454", "major": 1, "minor": 4, "link": {"delay": 3600}},
        {"name": "closed", "mac": "ABCDEF123455", "major": 1, "minor": 5,
         "link": {"serviceDiscoveryError": {"code": 0}}}
    ],
    "timeline": [
        {"at": 0, "beacon": "whole", "do": "comeIntoRange"},
        {"at": 0, "beacon": "bare", "do": "comeIntoRange"},
        {"at": 0, "beacon": "mute", "do": "comeIntoRange"},
        {"at": 0, "beacon": "slow", "do": "comeIntoRange"},
        {"at": 0, "beacon": "closed", "do": "comeIntoRange"},
        {"at": 2.5, "beacon": "whole", "do": "setBattery", "battery": 89},
        {"at": 0, "beacon": "mute", "do": "setReadError", "characteristic": "2A26", "error": {"code": 1}},
        {"at": 0, "beacon": "mute", "do": "setSignalReadError", "error": {"code": 1}},
        {"at": 9, "beacon": "mute", "do": "endLink", "error": {"code": 7}},
        {"at": 50, "do": "setRadio", "state": "poweredOff"}
    ]})";

TEST(ToolBeacon, IsInspected) {
    const ScenarioFile file(beaconsToConnect);
    const json whole = json::parse(outputOnScenario({"inspect", "1", "1", "--format", "json"}, file.name));
    EXPECT_EQ(whole["firmwareVersion"], "1.0.0");
    EXPECT_EQ(whole["temperature"], 22);
    EXPECT_EQ(whole["buttonMode"], 0);
    EXPECT_EQ(whole["batteryLevel"], 89);
    EXPECT_EQ(whole["advertBatteryLevel"], 90);
    EXPECT_EQ(whole["services"].size(), 7U);
    EXPECT_EQ(whole["services"][3], json::parse(R"({"uuid": "FFE0", "name": "button", "characteristics": [
                                                      {"uuid": "FFE1", "name": "button action"}]})"));
    EXPECT_NE(outputOnScenario({"inspect", "1", "2"}, file.name).find("battery level     -\n"),
              std::string::npos);
    const std::string mute = outputOnScenario({"inspect", "1", "3", "--timeout", "5"}, file.name, 1);
    EXPECT_NE(mute.find("  firmware version  -\n  temperature       20\n"), std::string::npos) << mute;
    EXPECT_NE(mute.find("battery level     100% (as advertised)\n"), std::string::npos) << mute;
    EXPECT_TRUE(mute.ends_with("beacon 1.3 did not tell its firmware version (no answer)\n")) << mute;
}

TEST(ToolBeacon, IsCommandedOrTheFailureTold) {
    const ScenarioFile file(beaconsToConnect);
    EXPECT_EQ(outputOnScenario({"ping", "1", "1"}, file.name), "pinged beacon 1.1\n");
    EXPECT_EQ(outputOnScenario({"ping", "1", "3"}, file.name), "pinged beacon 1.3\n") << "no answer is due";
    EXPECT_EQ(outputOnScenario({"button-mode", "1", "1"}, file.name), "0\n");
    EXPECT_EQ(outputOnScenario({"button-mode", "1", "1", "255"}, file.name), "255\n");
    const std::vector<std::pair<Arguments, std::string>> failures{
        {{"ping", "1", "9"}, "no connection within 30 s: beacon 1.9 was not heard"},
        {{"ping", "1", "9", "--timeout", "60"},
         "no connection within 60 s: Bluetooth is not on, but poweredOff"},
        {{"ping", "1", "2"},
         "beacon 1.2 has no characteristic Alert Level (2A06) in a service Immediate Alert (1802)"},
        {{"inspect", "1", "3"},
         "the link to beacon 1.3 has ended: The beacon has ended the connection. (CBErrorDomain 7)"},
        {{"ping", "1", "4"}, "no connection within 30 s: beacon 1.4 did not accept one"},
        {{"ping", "1", "4", "--timeout", "60"},
         "cannot connect to beacon 1.4: Bluetooth is off. (CBErrorDomain 5)"},
        {{"ping", "1", "5"},
         "no connection within 30 s: beacon 1.5 was linked, but its services were not found"},
        {{"inspect", "2", "2"},
         "cannot connect to beacon 2.2: The connection could not be made. (CBErrorDomain 10)"},
        {{"inspect", "2", "3"},
         "no connection within 30 s: beacon 2.3 was linked, but lacks the services that make a connection: "
         "temperature (FFF0)"},
        {{"button-mode", "2", "4", "7"}, "the button mode of beacon 2.4 is 5, though 7 was written"},
    };
    for (const auto& [arguments, message] : failures) {
        const std::string& scenario = arguments[1] == "1" ? file.name : connectionsExample;
        EXPECT_EQ(outputOnScenario(arguments, scenario, 1), "zobiconnect: " + message + '\n');
    }
}

TEST(ToolBeacon, IsWatchedOverTheEndsOfItsLink) {
    std::vector<std::string> events;
    std::map<std::string, std::vector<int>> values;
    for (const json& event :
         eventsOf(outputOnScenario({"watch", "2", "1", "--for", "40"}, connectionsExample))) {
        if (event["event"] != "value") {
            const auto time = std::lround(event["time"].get<double>() - startTime);
            const json error = event.value("error", json());
            events.push_back(std::to_string(time) + ' ' + event["event"].get<std::string>() +
                             (error.is_null() ? "" : ' ' + error["code"].dump()));
        } else if (event["value"].is_number()) {
            values[event["name"]].push_back(event["value"]);
        }
    }
    // The beacon falls silent at 15, returns at 25, and ends the link at 35.
    EXPECT_EQ(events, (std::vector<std::string>{"0 state", "1 connecting", "1 connected", "17 lost 6",
                                                "17 connecting", "25 connected", "35 ended 7",
                                                "36 connecting", "36 connected", "40 ended", "40 summary"}));
    EXPECT_EQ(values["batteryLevel"], std::vector{79});
    // Without the one that was advertised between two links.
    EXPECT_EQ(values["buttonAction"], std::vector{1});
    EXPECT_EQ(values["buttonMode"].size(), 3U);
    // Listened to in each of the connections, for 13, 9 and 3 s.
    EXPECT_EQ(values["axisX"].size(), 13U + 9U + 3U);
    // Each 2 s from 3.5 on, as long as the beacon is there.
    EXPECT_EQ(values["signalStrength"].size(), 6U + 5U + 1U);
    // At each connection, and at 5, 10 and 30.
    EXPECT_EQ(values["temperature"].size(), 3U + 3U);
    EXPECT_TRUE(outputOnScenario({"watch", "2", "3"}, connectionsExample, 1)
                    .ends_with("lacks the services that make a connection: temperature (FFF0)\n"));
}

TEST(ToolBeacon, IsKeptInSightThoughTheLibraryDropsIt) {
    // Lost at 12, heard for a moment during the attempt, and back much later. It has eight services, of which
    // the last answers after the connection is reported.
    const ScenarioFile file(R"({
        "beacons": [{"name": "it", "mac": "ABCDEF123451", "major": 1, "minor": 1, "link": {"delay": 1},
                     "services": ["180A", "180F", "1802", "FFE0", "FFE0", "FFA0", "FFF0",
                                  "F0002013-0451-4000-B000-000000000000"]}],
        "timeline": [{"at": 0, "beacon": "it", "do": "comeIntoRange"},
                     {"at": 10, "beacon": "it", "do": "goOutOfRange"},
                     {"at": 20, "beacon": "it", "do": "comeIntoRange"},
                     {"at": 20.5, "beacon": "it", "do": "goOutOfRange"},
                     {"at": 80, "beacon": "it", "do": "comeIntoRange"}]})");
    const auto events = eventsOf(outputOnScenario({"watch", "1", "1", "--for", "90"}, file.name));
    EXPECT_EQ(events.back()["connections"], 2);
    EXPECT_EQ(outputOnScenario({"button-mode", "1", "1"}, file.name), "0\n");
}

TEST(ToolBeacon, OfTheDemonstrationIsLively) {
    const json summary = eventsOf(outputOf({"watch", "1", "4", "--for", "120", "--virtual-time"})).back();
    EXPECT_EQ(summary["connections"], 2);
    EXPECT_GE(summary["values"], 400);
}

TEST(ToolBeacon, IsLeftWhenInterrupted) {
    Tool ping({"ping", "9", "9", "--radio", "simulated"}, winsize{24, 80, 0, 0});
    EXPECT_TRUE(ping.signalAfter("looking for beacon 9.9 ...", SIGINT));
    EXPECT_EQ(ping.end(), 1);
    EXPECT_TRUE(ping.written.ends_with("zobiconnect: interrupted\r\n")) << ping.written;

    Tool watch({"watch", "1", "1", "--radio", "simulated"}, winsize{24, 80, 0, 0});
    EXPECT_TRUE(watch.signalAfter("s  connected", SIGINT));
    EXPECT_EQ(watch.end(), 0);
    EXPECT_NE(watch.written.find("the link to beacon 1.1 has ended"), std::string::npos) << watch.written;
    EXPECT_NE(watch.written.find("\x1b[?1049lEnded after "), std::string::npos) << watch.written;
    EXPECT_NE(watch.written.find("s: 1 connection, "), std::string::npos) << watch.written;
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
        {{"monitor", "--simulate", "2", "--adapter", "hci0"}, "--adapter is for the radio bluez"},
        {{"monitor", "--simulate", "2", "--scenario", "x"}, "excludes"},
        {{"monitor", "--scenario", "/nowhere"}, "/nowhere: cannot be read: No such file or directory"},
        {{"monitor", "--scenario", file.name}, ".json: beacons: missing"},
        {{"inspect", "1"}, "MINOR is required"},
        {{"ping", "65536", "1"}, "MAJOR: \"65536\" is not a number from 0 to 65535"},
        {{"watch", "1", "1.0"}, "MINOR: \"1.0\" is not"},
        {{"watch", "1", "1", "--rssi-interval", "0"}, "is not a number of seconds, 0.1 or more"},
        {{"button-mode", "1", "1", "256"}, "VALUE: \"256\" is not a number from 0 to 255"},
    };
    for (const auto& [arguments, message] : mistakes) {
        const std::string output = outputOf(arguments, 2);
        EXPECT_NE(output.find(message), std::string::npos) << output;
    }
    EXPECT_NE(outputOf({"monitor", "--help"}).find("as first seen"), std::string::npos);
}

#ifdef ZOBI_BLUEZ
TEST(ToolUsage, InventsNoBeaconsWhereThereIsNoRadio) {
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere", 1);
    for (const Arguments& arguments : {Arguments{"monitor"}, Arguments{"ping", "1", "1"}}) {
        const std::string output = outputOf(arguments, 1);
        EXPECT_EQ(std::ranges::count(output, '\n'), 1) << output;
        EXPECT_NE(output.find("'zobiconnect doctor' tells why, and --radio simulated needs none"),
                  std::string::npos)
            << output;
    }
    const auto findings = eventsOf(outputOf({"doctor", "--format", "jsonl"}, 1));
    ASSERT_EQ(findings.size(), 2U);
    EXPECT_EQ(findings[0]["state"], "failed");
    EXPECT_EQ(findings[1]["canMonitor"], false);
    EXPECT_NE(outputOf({"monitor", "--radio", "bluez", "--seed", "1"}, 2).find("for a simulated radio"),
              std::string::npos);
}
#endif

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
    const auto withCharacteristic = [&](const std::string& keys) {
        return withBeacon(R"(, "services": [{"uuid": "180D", "characteristics": [{"uuid": "2A37", )" + keys +
                          "}]}]");
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
        {withBeacon(R"(, "link": {"supervisionTimeout": 0})"),
         "beacons[0].link.supervisionTimeout: 0 is not from 0.01 to 3600"},
        {withBeacon(R"(, "services": ["180A", "180D"])"),
         "beacons[0].services[1]: is no usual service of beacons: describe it in an object"},
        {withCharacteristic(R"("properties": ["read", "sign"])"),
         "beacons[0].services[0].characteristics[0].properties[1]: must be read, write, "
         "writeWithoutResponse or notify"},
        {withCharacteristic(R"("value": ")" + std::string(1026, '0') + '"'),
         "beacons[0].services[0].characteristics[0].value: must be up to 512 bytes"},
        {withCharacteristic(R"("generate": {"kind": "drift", "interval": 1, "smallest": 5, "largest": 4})"),
         "beacons[0].services[0].characteristics[0].generate.largest: 4 is not from 5 to 65535"},
        {withCharacteristic(R"("generate": {"kind": "pick", "interval": 1, "values": []})"),
         "beacons[0].services[0].characteristics[0].generate.values: must not be empty"},
        {withEvent(R"("beacon": "a", "do": "endLink")"), "timeline[0].error: missing"},
        {withEvent(R"("beacon": "a", "do": "setValue", "characteristic": "2A00", "value": "")"),
         "timeline[0].characteristic: the beacon has no characteristic 2A00"},
        {withEvent(R"("beacon": "a", "do": "setDiscoveryError", "service": "180D", "error": null)"),
         "timeline[0].service: the beacon has no service 180D"},
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
}  // namespace zobi::tool
