#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>
#include <system_error>

#include "RunTool.h"

namespace zobi::tool {
namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

const std::string takeScreen = "\x1b[?1049h\x1b[?25l";
const std::string giveBackScreen = "\x1b[?25h\x1b[?1049l";

TEST(ToolScreen, CutsOffWhatHasNoRoom) {
    Tool tool({"monitor", "--virtual-time", "--for", "10", "--simulate", "9"}, winsize{8, 30, 0, 0});
    EXPECT_EQ(tool.end(), 0);
    const auto last = tool.written.rfind("\x1b[H");
    ASSERT_NE(last, std::string::npos);
    const std::string lastScreen = tool.written.substr(last);
    EXPECT_THAT(lastScreen, StartsWith("\x1b[H\x1b[KBluetooth poweredOn | foregrou\x1b[0m\r"));
    EXPECT_THAT(lastScreen, HasSubstr("BEACON  MAC           VER  AGE\x1b[0m\r"));
    // No line feed, with which the full screen would move. What is left on the terminal is whole.
    EXPECT_THAT(lastScreen, HasSubstr("... and 6 more rows\x1b[0m" + giveBackScreen +
                                      "Bluetooth poweredOn | foreground | 10s | 9 beacons | seed 0\r\n"));
    EXPECT_THAT(lastScreen, HasSubstr("\r\n3.9  "));
}

/// A shell with job control on a terminal of its own, which finds the tool in $tool.
class Shell {
public:
    explicit Shell(const std::string& line) {
        const std::string script = "set -m; tool='" ZOBI_TOOL_PATH "'; " + line;
        const winsize size{24, 80, 0, 0};
        ::setenv("TERM", "xterm", 1);
        process_ = ::forkpty(&terminal_, nullptr, nullptr, &size);
        if (process_ < 0) throw std::system_error(errno, std::generic_category(), "no terminal");
        if (process_ == 0) {
            ::execl("/bin/sh", "sh", "-c", script.c_str(), nullptr);
            ::_exit(127);
        }
    }
    ~Shell() {
        const pid_t job = ::tcgetpgrp(terminal_);
        if (job > 1) ::kill(-job, SIGKILL);
        ::kill(process_, SIGKILL);
        ::close(terminal_);
        ::waitpid(process_, nullptr, 0);
    }
    Shell(const Shell&) = delete;
    Shell& operator=(const Shell&) = delete;

    /// What is written next, up to and with `text`, or to the end if that does not come.
    std::string readTo(const std::string& text) const {
        std::string read;
        for (char c = 0; !read.ends_with(text) && ::read(terminal_, &c, 1) == 1;) read += c;
        return read;
    }

    void type(char key) const { EXPECT_EQ(::write(terminal_, &key, 1), 1); }

private:
    pid_t process_ = -1;
    int terminal_ = -1;
};

TEST(ToolScreen, IsGivenBackWhileStoppedAndDrawnAnewAfterIt) {
    // With Bluetooth off there are no reports, which would draw it.
    Shell shell(
        "$tool monitor --scenario '" ZOBI_SOURCES
        "/tests/tool/scenarios/off.json'; echo has stopped; fg; echo has stopped; fg; echo status $?");
    EXPECT_THAT(shell.readTo("poweredOff"), StartsWith(takeScreen));
    for (int stops = 0; stops < 2; ++stops) {
        shell.type('\x1a');
        EXPECT_THAT(shell.readTo("has stopped"), HasSubstr(giveBackScreen));
        EXPECT_THAT(shell.readTo("poweredOff"), HasSubstr(takeScreen + "\x1b[H"));
    }
    shell.type('\x03');
    // With the last table above the summary.
    EXPECT_THAT(shell.readTo("status 0"),
                ContainsRegex("1049lBluetooth poweredOff [^\r]*\r\n\r\nEnded after "));
}

TEST(ToolScreen, IsNotTakenInTheBackgroundNorOnATerminalThatCannotBeDrawnOn) {
    const std::string monitor = "$tool monitor --virtual-time --for 3";
    const std::string both = monitor + "; $tool watch 1.1 --virtual-time --for 3";
    for (const std::string& line :
         {monitor + " & wait", "TERM=dumb; " + both, "TERM=; " + both, "unset TERM; " + both}) {
        const std::string written = Shell(line).readTo("no more");
        EXPECT_THAT(written, HasSubstr("seed 0\r\n\r\n"));
        EXPECT_THAT(written, Not(HasSubstr("\x1b"))) << line;
    }
}

}  // namespace
}  // namespace zobi::tool
