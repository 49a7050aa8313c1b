#include <gmock/gmock.h>

#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "RunTool.h"

namespace zobi::tool {
namespace {

using ::testing::HasSubstr;

const std::string payload = "563412EFCDAB0000010007025AFF";

/// What a line of the shell writes, where $tool is the tool and descriptor 4 a pipe that nobody reads.
std::string outputOfShell(const std::string& line) {
    const std::string script = "exec 2>&1; tool='" ZOBI_TOOL_PATH
                               "'; pipe=$(mktemp -u); mkfifo $pipe; "
                               "exec 3<>$pipe 4>$pipe 3<&-; rm $pipe; " +
                               line;
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> output(::popen(script.c_str(), "r"), ::pclose);
    std::string written;
    for (int c = 0; (c = std::fgetc(output.get())) != EOF;) written += static_cast<char>(c);
    return written;
}

TEST(ToolCommandLine, RefusesWhatMakesNoSense) {
    const ScenarioFile file("{}");
    const std::vector<std::pair<Arguments, std::string>> mistakes{
        {{}, "Commands:"},
        {{"dance"}, "\"dance\" is none of the commands monitor, inspect, "},
        {{"dance", "--help"}, "\"dance\" is none of the commands monitor, inspect, "},
        {{"help", "dance"}, "COMMAND: \"dance\" is none of monitor, inspect, "},
        {{"monitor", "now"}, "\"now\" is one argument too many for monitor"},
        {{"ping", "1.1", "1"}, "\"1\" is one argument too many for ping"},
        {{"ping", "--fro", "1"}, "\"--fro\" is not an option of ping"},
        {{"monitor", "--for"}, "--for: SECONDS is missing"},
        {{"monitor", "--for", "1", "--for", "2"}, "--for: given more than once"},
        {{"monitor", "--log=maybe"}, "--log: takes no value"},
        {{"monitor", "--virtual-time"}, "--virtual-time requires --for"},
        {{"watch", "1.1", "--virtual-time"}, "--virtual-time requires --for"},
        {{"monitor", "--format", "xml"}, "--format: \"xml\" is none of table, json"},
        {{"monitor", "--radio", "fm"}, "--radio: \"fm\" is none of "},
        {{"decode"}, "HEX is required"},
        {{"monitor", "--for", "-1"}, "--for: \"-1\" is not a number of seconds, 0 or more"},
        {{"monitor", "--for", "nan"}, "--for: \"nan\" is not"},
        {{"monitor", "--background-at", "inf"}, "--background-at: \"inf\" is not"},
        {{"monitor", "--foreground-at", "2s"}, "--foreground-at: \"2s\" is not"},
        {{"monitor", "--seed", "-1"}, "--seed: \"-1\" is not a number"},
        {{"monitor", "--simulate", "0"}, "--simulate: \"0\" is not a number from 1 to 10000"},
        {{"monitor", "--simulate", "2", "--adapter", "hci0"}, "--adapter is for the radio bluez"},
        {{"monitor", "--simulate", "2", "--scenario", "x"}, "excludes"},
        {{"monitor", "--scenario", "/nowhere"}, "/nowhere: cannot be read: No such file or directory"},
        {{"monitor", "--scenario", "/dev/zero"}, "/dev/zero: larger than 16 MiB"},
        {{"monitor", "--scenario", file.name}, ".json: beacons: missing"},
        {{"inspect", "1"}, "MINOR is required"},
        {{"inspect", "1.70000"}, "MINOR: \"70000\" is not a number from 0 to 65535"},
        {{"ping", "65536", "1"}, "MAJOR: \"65536\" is not a number from 0 to 65535"},
        {{"watch", "1", "1.0"}, "MINOR: \"1.0\" is not"},
        {{"watch", "1", "1", "--rssi-interval", "0"}, "is not a number of seconds, 0.1 or more"},
        {{"button-mode", "1", "1", "256"}, "VALUE: \"256\" is not a number from 0 to 255"},
    };
    for (const auto& [arguments, message] : mistakes) {
        EXPECT_THAT(outputOf(arguments, 2), HasSubstr(message));
    }
}

TEST(ToolCommandLine, IsExplained) {
    EXPECT_EQ(outputOf({"help"}), outputOf({"--help"}));
    EXPECT_EQ(outputOf({"help", "monitor"}), outputOf({"monitor", "--help"}));
    EXPECT_THAT(outputOf({"help", "monitor"}), HasSubstr("as first seen"));
}

TEST(ToolCommandLine, WritesABeaconAndANumberAsPeopleDo) {
    EXPECT_EQ(outputOfShell("for beacon in 1.1 '1 1'; do for mode in '' 010; do "
                            "$tool button-mode --virtual-time $beacon $mode; done; done"),
              "0\n10\n0\n10\n");
    EXPECT_THAT(outputOf({"monitor", "--virtual-time", "--for", "1", "--format", "table", "--seed", "010"}),
                HasSubstr("seed 10\n"));
}

TEST(ToolCommandLine, HasOneNameForJson) {
    EXPECT_EQ(
        outputOfShell("for command in 'monitor --virtual-time --for 3' 'watch 1.1 --virtual-time --for 3' "
                      "'inspect 1.1 --virtual-time' 'decode " +
                      payload +
                      "'; do "
                      "json=$($tool $command --format json); echo \"$json\" | head -c 1; "
                      "[ \"$($tool $command --format jsonl)\" = \"$json\" ] || echo differs; done"),
        "{{{{");
}

TEST(ToolCommandLine, ReadsStdin) {
    EXPECT_THAT(outputOfShell("printf '" + payload + "\\r\\n\\nno\\n" + payload +
                              "' | $tool decode --format json -; echo $?"),
                ::testing::MatchesRegex("\\{.*\\}\nzobiconnect: no: .*\n\\{.*\\}\n1\n"));
    EXPECT_THAT(outputOfShell("$tool decode - </dev/zero; echo $?"),
                HasSubstr("longer than any payload\n1\n"));
    const std::string command = "$tool monitor --virtual-time --for 9 --scenario ";
    EXPECT_EQ(outputOfShell(command + "- <" ZOBI_SCENARIOS "/office.json"),
              outputOfShell(command + ZOBI_SCENARIOS "/office.json"));
    EXPECT_EQ(outputOfShell("echo '{\"beacon\": []}' | " + command + "-"),
              "zobiconnect: -: beacon: unknown key; known here: beacons, repeatEvery, timeline\n");
}

TEST(ToolCommandLine, TellsWhenItCannotWriteUnlessNobodyReads) {
    // How often there is which line, for ten commands.
    const auto outputs = [](const std::string& to) {
        return outputOfShell(
            "for command in --help --version 'help watch' 'decode " + payload +
            "' doctor 'monitor --virtual-time --for 999' 'watch 1.1 --virtual-time --for 99' "
            "'inspect 1.1 --virtual-time' 'ping 1.1 --virtual-time' 'button-mode 1.1 --virtual-time'; do "
            "$tool $command " +
            to + "; echo $?; done 2>&1 | sort | uniq -c | tr -s ' '");
    };
    const std::string failure = " 10 1\n 10 zobiconnect: cannot write the output: ";
    EXPECT_EQ(outputs(">&4"), " 10 0\n");
    EXPECT_EQ(outputs(">/dev/full"), failure + "No space left on device\n");
    EXPECT_EQ(outputs(">&-"), failure + "Bad file descriptor\n");
    // Also what was to be written before a message.
    EXPECT_THAT(outputOfShell("$tool decode " + payload + " no >/dev/full"), HasSubstr("cannot write"));
}

#ifdef ZOBI_BLUEZ
TEST(ToolCommandLine, EndsAnEmulationInTime) {
    // A bus that does not answer is waited for without the option.
    EXPECT_EQ(outputOfShell("export DBUS_SYSTEM_BUS_ADDRESS=unixexec:path=tail,argv1=-f,argv2=/dev/null; "
                            "$tool emulate --for 0; echo $?"),
              "0\n");
}
#endif

}  // namespace
}  // namespace zobi::tool
