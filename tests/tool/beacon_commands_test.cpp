#include <gmock/gmock.h>

#include <csignal>
#include <string>
#include <utility>
#include <vector>

#include "RunTool.h"

namespace zobi::tool {
namespace {

using nlohmann::json;

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

TEST(ToolBeacon, IsLeftWhenInterrupted) {
    Tool ping({"ping", "9", "9", "--radio", "simulated"}, winsize{24, 80, 0, 0});
    EXPECT_TRUE(ping.signalAfter("looking for beacon 9.9 ...", SIGINT));
    EXPECT_EQ(ping.end(), 1);
    EXPECT_TRUE(ping.written.ends_with("zobiconnect: interrupted\r\n")) << ping.written;

    Tool watch({"watch", "1", "1", "--radio", "simulated"}, winsize{24, 80, 0, 0});
    EXPECT_TRUE(watch.signalAfter("s  connected", SIGINT));
    EXPECT_EQ(watch.end(), 0);
    EXPECT_NE(watch.written.find("the link to beacon 1.1 has ended"), std::string::npos) << watch.written;
    EXPECT_NE(watch.written.find("\x1b[?1049lbeacon 1.1 | "), std::string::npos) << watch.written;
    EXPECT_NE(watch.written.find("s: 1 connection, "), std::string::npos) << watch.written;
}

}  // namespace
}  // namespace zobi::tool
