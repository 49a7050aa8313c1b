// What is shown on a terminal and typed on it.

#include <gmock/gmock.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>
#include <system_error>

#include "SilentBus.h"

namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

const std::string takeScreen = "\x1b[?1049h\x1b[?25l";
const std::string giveBackScreen = "\x1b[?25h\x1b[?1049l";
const std::string toTheEnd = "no more";
constexpr char controlC = '\x03';
constexpr char controlZ = '\x1a';

/// A shell at the top of the tree, with job control on a terminal of its own, which finds the tool in $tool.
class Shell {
public:
    explicit Shell(const std::string& line, winsize size = {24, 80, 0, 0}) {
        // What is typed would be shown in the middle of what the tool writes, and Ctrl-C would flush the
        // terminal, which then loses, now and then, what is written just before its end.
        const std::string script =
            "cd '" ZOBI_SOURCES "'; stty -echo noflsh; set -m; tool='" ZOBI_TOOL_PATH "'; " + line;
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

TEST(ToolScreen, CutsOffWhatHasNoRoom) {
    const Shell shell("$tool monitor --virtual-time --for 10 --simulate 9", {8, 30, 0, 0});
    const std::string written = shell.readTo(toTheEnd);
    const auto last = written.rfind("\x1b[H");
    ASSERT_NE(last, std::string::npos);
    const std::string lastScreen = written.substr(last);
    EXPECT_THAT(lastScreen, StartsWith("\x1b[H\x1b[KBluetooth poweredOn | foregrou\x1b[0m\r"));
    EXPECT_THAT(lastScreen, HasSubstr("BEACON  MAC           AGE  BAT\x1b[0m\r"));
    // No line feed, with which the full screen would move. What is left on the terminal is whole.
    EXPECT_THAT(lastScreen, HasSubstr("... and 6 more rows\x1b[0m" + giveBackScreen +
                                      "Bluetooth poweredOn | foreground | 10s | 9 beacons | seed 0\r\n"));
    EXPECT_THAT(lastScreen, HasSubstr("\r\n3.9  "));
}

TEST(ToolScreen, ShowsFaintWhatWasNotHeardOfLateAndErasesTheRest) {
    // On a terminal that does not control the tool.
    const Shell shell(
        "setsid -w $tool monitor --virtual-time --for 14 --scenario tests/tool/scenarios/eventful.json");
    const std::string written = shell.readTo(toTheEnd);
    EXPECT_THAT(written, HasSubstr("\x1b[K1.7     ABCDEF123456   4s"));
    EXPECT_THAT(written, ContainsRegex("\x1b\\[2m1.7     ABCDEF123456   5s.*\r\n\x1b\\[J"));
}

// With Bluetooth off there are no reports, which would draw it.
const std::string off = "tests/tool/scenarios/off.json";

TEST(ToolScreen, IsGivenBackWhileStoppedAndDrawnAnewAfterIt) {
    const Shell shell("$tool monitor --scenario " + off +
                      "; echo has stopped; fg; echo has stopped; fg; echo status $?");
    EXPECT_THAT(shell.readTo("poweredOff"), StartsWith(takeScreen));
    for (int stops = 0; stops < 2; ++stops) {
        shell.type(controlZ);
        EXPECT_THAT(shell.readTo("has stopped"), HasSubstr(giveBackScreen));
        EXPECT_THAT(shell.readTo("poweredOff"), HasSubstr(takeScreen + "\x1b[H"));
    }
    shell.type(controlC);
    // With the last table above the summary.
    EXPECT_THAT(
        shell.readTo("status 0"),
        ContainsRegex("1049lBluetooth poweredOff [^\r]*\r\nBluetooth is off[^\r]*\r\n\r\nEnded after "));
}

TEST(ToolScreen, IsNotTakenInTheBackgroundNorOnATerminalThatCannotBeDrawnOn) {
    const std::string monitor = "$tool monitor --virtual-time --for 3";
    const std::string both = monitor + "; $tool watch 1.1 --virtual-time --for 3";
    for (const std::string& line :
         {monitor + " & wait", "TERM=dumb; " + both, "TERM=; " + both, "unset TERM; " + both}) {
        const std::string written = Shell(line).readTo(toTheEnd);
        EXPECT_THAT(written, HasSubstr("seed 0\r\n\r\n"));
        EXPECT_THAT(written, Not(HasSubstr("\x1b"))) << line;
    }
}

TEST(ToolScreen, IsKeptWhenTheToolIsNotToBeStopped) {
    const Shell shell("trap '' TSTP; $tool monitor --scenario " + off + "; echo status $?");
    shell.readTo("poweredOff");
    shell.type(controlZ);
    shell.type(controlC);
    EXPECT_THAT(shell.readTo("status 0"), ContainsRegex("Ended after .*status 0"));
}

TEST(ToolBeacon, IsLeftWhenInterrupted) {
    const Shell shell(
        "$tool ping 1.1 --virtual-time --scenario tests/tool/scenarios/connectable.json;"
        "$tool ping 9 9 --radio simulated; echo status $?;"
        "$tool watch 1 1 --radio simulated; echo status $?");
    EXPECT_THAT(shell.readTo("\npinged"),
                HasSubstr("pinging beacon 1.1 ...\r\ndisconnecting from beacon 1.1 ...\r\n"));
    shell.readTo("looking for beacon 9.9 ...");
    shell.type(controlC);
    EXPECT_THAT(shell.readTo("status 1"), HasSubstr("\nzobiconnect: interrupted\r\n"));

    shell.readTo("s  connected");
    shell.type(controlC);
    const std::string written = shell.readTo("status 0");
    EXPECT_THAT(written, HasSubstr("the link to beacon 1.1 has ended"));
    EXPECT_THAT(written, Not(HasSubstr("disconnecting"))) << "the table shows it";
    EXPECT_THAT(written, HasSubstr("\x1b[?1049lbeacon 1.1 | "));
    EXPECT_THAT(written, HasSubstr("s: 1 connection, "));
}

#ifdef ZOBI_BLUEZ
[[maybe_unused]] const auto silentBus = listenAsSilentBus();

TEST(ToolEmulate, ObeysKeysAndLeavesTheTerminalAsItWas) {
    const Shell shell(
        "stty echo; modes=$(stty -g); export DBUS_SYSTEM_BUS_ADDRESS=$SILENT_BUS;"
        "$tool emulate --battery 8 --temperature -3 | sed -u 's/^[0-9]*s  //';"
        "[ $modes = $(stty -g) ] && echo as before");
    shell.readTo("q quit\r\n");
    for (const char key : std::string("2bbBtttTTaaadq")) shell.type(key);
    EXPECT_EQ(
        shell.readTo("as before"),
        "button pressed: action 2\r\n"
        "battery: 3%\r\nbattery: 0%\r\nbattery: 5%\r\n"
        "temperature: -4C\r\ntemperature: -4C\r\ntemperature: -4C\r\ntemperature: -3C\r\ntemperature: -2C\r\n"
        "accelerometer: 1000 0 0\r\naccelerometer: 0 1000 0\r\naccelerometer: 0 0 1000\r\n"
        "as before");
}
#endif

}  // namespace
