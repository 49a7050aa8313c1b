#include <gmock/gmock.h>

#include <csignal>
#include <string>

#include "RunTool.h"

namespace zobi::tool {
namespace {

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

}  // namespace
}  // namespace zobi::tool
