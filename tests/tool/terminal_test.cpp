#include "RunTool.h"

#include <csignal>

namespace zobi::tool {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

TEST(ToolScreen, IsGivenBackWhenInterrupted) {
    Tool tool({"monitor", "--radio", "simulated"}, winsize{24, 80, 0, 0});
    EXPECT_TRUE(tool.signalAfter("Bluetooth poweredOn", SIGINT));
    EXPECT_EQ(tool.end(), 0);
    EXPECT_THAT(tool.written, StartsWith("\x1b[?1049h\x1b[?25l"));
    EXPECT_THAT(tool.written, HasSubstr("\x1b[?25h\x1b[?1049lEnded after"));
}

TEST(ToolScreen, CutsOffWhatHasNoRoom) {
    Tool tool({"monitor", "--virtual-time", "--for", "10", "--simulate", "9"}, winsize{8, 30, 0, 0});
    EXPECT_EQ(tool.end(), 0);
    const std::string lastScreen = tool.written.substr(tool.written.rfind("\x1b[H"));
    EXPECT_THAT(lastScreen, StartsWith("\x1b[H\x1b[KBluetooth poweredOn | foregrou\x1b[0m\r"));
    EXPECT_THAT(lastScreen, HasSubstr("BEACON  MAC           VER  AGE\x1b[0m\r"));
    // No line feed, with which the full screen would move.
    EXPECT_THAT(lastScreen, HasSubstr("... and 6 more rows\x1b[0m\x1b[?25h"));
}

}  // namespace
}  // namespace zobi::tool
