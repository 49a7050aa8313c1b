#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "RunTool.h"

namespace zobi::tool {
namespace {

TEST(ToolMachineRadio, InventsNoBeaconsWhereThereIsNoRadio) {
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

}  // namespace
}  // namespace zobi::tool
