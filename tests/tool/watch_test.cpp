#include <gmock/gmock.h>

#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "RunTool.h"

namespace zobi::tool {
namespace {

using nlohmann::json;

const std::string connectionsExample = ZOBI_SCENARIOS "/connections.json";

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
    EXPECT_TRUE(outputOnScenario({"watch", "2", "3", "--for", "60"}, connectionsExample, 1)
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

}  // namespace
}  // namespace zobi::tool
