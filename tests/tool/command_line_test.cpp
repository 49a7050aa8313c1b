#include <gmock/gmock.h>

#include <string>
#include <utility>
#include <vector>

#include "RunTool.h"

namespace zobi::tool {
namespace {

TEST(ToolCommandLine, RefusesWhatMakesNoSense) {
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

}  // namespace
}  // namespace zobi::tool
