#include <gmock/gmock.h>

#include <csignal>
#include <string>
#include <utility>
#include <vector>

#include "RunTool.h"

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
        for (const Arguments& arguments : {Arguments{"monitor", "--simulate", "8"},
                                           Arguments{"monitor", "--virtual-time", "--for", "1e9"}}) {
            Tool tool(arguments);
            EXPECT_TRUE(tool.signalAfter("\n", signal));
            EXPECT_EQ(tool.end(), 0);
            EXPECT_EQ(eventsOf(tool.written).back()["event"], "summary");
        }
    }
}

}  // namespace
}  // namespace zobi::tool
