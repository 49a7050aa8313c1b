#include "RunTool.h"

#include <cmath>
#include <map>

namespace zobi::tool {
namespace {

using nlohmann::json;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::EndsWith;

const std::string connections = "docs/scenarios/connections.json";

struct Watched {
    /// With their times since the start, in whole seconds, and the codes of their errors.
    std::vector<std::string> events;
    /// By their names.
    std::map<std::string, std::vector<json>> values;
};

Watched watch(Arguments arguments, const std::string& scenario) {
    Watched watched;
    arguments.insert(arguments.begin(), "watch");
    for (const json& event : eventsOf(outputOnScenario(std::move(arguments), scenario))) {
        if (event.at("event") == "value") {
            watched.values[event.at("name")].push_back(event.at("value"));
        } else {
            const auto time = std::lround(event.at("time").get<double>() - startTime);
            const json error = event.value("error", json());
            watched.events.push_back(std::to_string(time) + ' ' + event.at("event").get<std::string>() +
                                     (error.is_null() ? "" : ' ' + error.at("code").dump()));
        }
    }
    return watched;
}

TEST(ToolWatch, GoesOnOverTheEndsOfALink) {
    auto [events, values] = watch({"2", "1", "--for", "40"}, connections);
    // The beacon falls silent at 15, returns at 25, and ends the link at 35.
    EXPECT_THAT(events, ElementsAre("0 state", "1 connecting", "1 connected", "17 lost 6", "17 connecting",
                                    "25 connected", "35 ended 7", "36 connecting", "36 connected", "40 ended",
                                    "40 summary"));
    EXPECT_THAT(values["batteryLevel"], ElementsAre(79));
    // Without the one that was advertised between two links.
    EXPECT_THAT(values["buttonAction"], ElementsAre(1));
    EXPECT_THAT(values["buttonMode"], ElementsAre(0, 0, 0));
    EXPECT_THAT(values["firmwareVersion"], ElementsAre("1.0.0", "1.0.1", "1.0.1"));
    // Listened to in each of the connections, for 13, 9 and 3 s.
    EXPECT_EQ(values["axisX"].size(), 13U + 9U + 3U);
    // Each 2 s from 3.5 on, as long as the beacon is there.
    EXPECT_EQ(values["signalStrength"].size(), 6U + 5U + 1U);
    // At each connection, and at 5, 10 and 30.
    EXPECT_EQ(values["temperature"].size(), 3U + 3U);
    EXPECT_EQ(values.size(), 9U);
}

TEST(ToolWatch, EndsAtItsTimeWhateverTheLink) {
    // While an attempt is pending.
    auto [events, values] = watch({"2", "1", "--for", "20", "--rssi-interval", "4"}, connections);
    EXPECT_THAT(events, Contains("20 summary"));
    EXPECT_EQ(values["signalStrength"].size(), 3U);
    EXPECT_THAT(outputOnScenario({"watch", "2", "9", "--for", "5"}, connections, 1),
                EndsWith("no connection within 5 s: beacon 2.9 was not heard\n"));
    EXPECT_THAT(outputOnScenario({"watch", "2", "3", "--for", "60"}, connections, 1),
                EndsWith("lacks the services that make a connection: temperature (FFF0)\n"));
}

TEST(ToolWatch, KeepsABeaconInSightThatTheLibraryDrops) {
    // Lost at 12, heard for a moment during the attempt, and connected much later, when it advertises nothing
    // that tells who it is. It has eight services, of which the last answers after the connection is
    // reported.
    const std::string dropped = "tests/tool/scenarios/dropped.json";
    EXPECT_THAT(watch({"1", "1", "--for", "90"}, dropped).events,
                ElementsAre("0 state", "1 connecting", "3 connected", "12 lost 6", "12 connecting",
                            "82 connected", "90 ended", "90 summary"));
    EXPECT_EQ(outputOnScenario({"button-mode", "1", "1"}, dropped), "0\n");
}

}  // namespace
}  // namespace zobi::tool
