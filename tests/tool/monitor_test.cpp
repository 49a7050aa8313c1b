#include "RunTool.h"

#include <csignal>

namespace zobi::tool {
namespace {

using nlohmann::json;
using ::testing::ContainsRegex;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

// Its beacon advertises half a second after each full second: never together with a report.
const std::string eventful = "tests/tool/scenarios/eventful.json";

TEST(ToolMonitor, GivesTheSameOutputForTheSameSeed) {
    const auto outputForSeed = [](const char* seed) {
        return outputOf({"monitor", "--virtual-time", "--for", "300", "--simulate", "12", "--seed", seed});
    };
    const std::string output = outputForSeed("7");
    EXPECT_EQ(outputForSeed("7"), output);
    EXPECT_NE(outputForSeed("8"), output);
    const json summary = eventsOf(output).back();
    EXPECT_EQ(summary.at("beacons"), 12);
    EXPECT_EQ(summary.at("reports"), 300);
    EXPECT_GE(summary.at("buttonActions"), 12);
}

TEST(ToolMonitor, TellsEachEventOfAScenario) {
    std::vector<std::string> texts;
    std::vector<double> reportsWithBeacon;
    json reportAfterChange;
    json summary;
    const std::string output =
        outputOnScenario({"monitor", "--for", "85", "--foreground-at", "82.75", "--background-at", "83.125",
                          "--foreground-at", "83.25", "--background-at", "83.375"},
                         eventful);
    for (const json& event : eventsOf(output)) {
        const double time = event.at("time").get<double>() - startTime;
        if (event.at("event") != "report") {
            const json detail = event.value("state", event.value("action", json()));
            texts.push_back(json(time).dump() + ' ' + event.at("event").get<std::string>() + ' ' +
                            detail.dump());
        } else if (!event.at("beacons").empty()) {
            reportsWithBeacon.push_back(time);
            if (time == 3) reportAfterChange = event.at("beacons")[0];
        }
        summary = event;
    }
    EXPECT_THAT(texts,
                ElementsAre("0.0 state 5", "5.5 button 1", "6.5 button 1", "40.0 state 4", "45.0 state 5",
                            "52.0 application 2", "82.75 application 0", "83.125 application 2",
                            "83.25 application 0", "83.375 application 2", "85.0 summary null"));
    // What was last heard at 8.5 is dropped after the report at 30. In the background the beacon is heard
    // once more, at 52.5, and is dropped after the report at 82; and once by the last scan.
    std::vector<double> expected{51};
    for (int time = 30; time >= 1; --time) expected.insert(expected.begin(), time);
    for (int time = 53; time <= 82; ++time) expected.push_back(time);
    expected.push_back(84.375);
    EXPECT_EQ(reportsWithBeacon, expected);
    EXPECT_EQ(reportAfterChange, json::parse(R"({
        "major": 1, "minor": 7, "macAddress": "ABCDEF123456", "scanRspVersion": 3, "advertBatteryLevel": 90,
        "temperature": 22, "advertAction": 0, "firmwareVersion": null, "timestamp": 1704067202,
        "latest": {"rssi": -71, "scanRspVersion": 3, "advertBatteryLevel": 80, "temperature": 25,
                   "advertAction": 0}})"));
    // Monitoring starts anew at 45 and at 52, before the reports there, and at 83.375 for the last time.
    // Advertisements are heard at 0.5 to 8.5, at 50.5 to 52.5 and at 83.5; two were sent once, and one is a
    // stranger's.
    EXPECT_EQ(summary, json::parse(R"({"event": "summary", "time": 1704067285.0, "seconds": 85, "beacons": 1,
                                       "reports": 81, "buttonActions": 2, "advertisements": 16,
                                       "malformedAdvertisements": 1})"));
}

TEST(ToolMonitor, DrawsFaintWhatWasNotHeardOfLateAndErasesTheRest) {
    Tool tool({"monitor", "--virtual-time", "--for", "14", "--scenario", ZOBI_SOURCES "/" + eventful},
              winsize{24, 80, 0, 0});
    EXPECT_EQ(tool.end(), 0);
    EXPECT_THAT(tool.written, HasSubstr("\x1b[K1.7     ABCDEF123456    3   4s"));
    EXPECT_THAT(tool.written, ContainsRegex("\x1b\\[2m1.7     ABCDEF123456    3   5s.*\r\n\x1b\\[J"));
}

TEST(ToolMonitor, EndsWithASummaryWhenInterrupted) {
    for (const int signal : {SIGINT, SIGTERM}) {
        for (const Arguments& arguments : {Arguments{"monitor", "--simulate", "8"},
                                           Arguments{"monitor", "--virtual-time", "--for", "1000000000"}}) {
            Tool tool(arguments);
            EXPECT_TRUE(tool.signalAfter("\n", signal));
            EXPECT_EQ(tool.end(), 0);
            EXPECT_EQ(eventsOf(tool.written).back().at("event"), "summary");
        }
    }
}

}  // namespace
}  // namespace zobi::tool
