// What the tool prints, as its user sees it.
//
// In a transcript, a line that starts with "  $ " is a command for the shell, run at the top of the tree. The
// indented lines after it are all that it prints, but for empty lines, and its exit status unless that is 0.
// Other lines are comments.

#include <gmock/gmock.h>
#include <sys/wait.h>

#include <array>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "SilentBus.h"

namespace {

// A job in the background of a script ignores it, and so would the tool.
[[maybe_unused]] const auto interruptBefore = ::signal(SIGINT, SIG_DFL);
[[maybe_unused]] const auto silentBus = listenAsSilentBus();

std::string printedBy(const std::string& command) {
    const std::string directory = std::filesystem::path(ZOBI_TOOL_PATH).parent_path();
    // A tool that does not stop at its time takes no more than 20 s of the processor, and writes too
    // much.
    constexpr std::size_t tooMuch = 2'000'000;
    const std::string line =
        "exec 2>&1; ulimit -t 20; cd '" ZOBI_SOURCES "'; PATH='" + directory + "':$PATH; " + command;
    std::FILE* const output = ::popen(line.c_str(), "r");
    if (!output) return "  no shell\n";
    std::string printed;
    std::array<char, 65536> buffer{};
    while (printed.size() < tooMuch && std::fgets(buffer.data(), buffer.size(), output)) {
        const std::string_view part = buffer.data();
        if (part != "\n") printed.append("  ").append(part);
    }
    const int status = ::pclose(output);
    if (status == 0) return printed;
    return printed + "  [" + std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -1) + "]\n";
}

class ToolTranscript : public ::testing::TestWithParam<std::string> {};

TEST_P(ToolTranscript, IsWhatTheToolPrints) {
    std::ifstream file(ZOBI_SOURCES "/tests/tool/transcripts/" + GetParam() + ".txt");
    std::string expected;
    std::string actual;
    for (std::string line; std::getline(file, line);) {
        const bool isCommand = line.starts_with("  $ ");
        expected += line + '\n';
        if (isCommand || !line.starts_with("  ")) actual += line + '\n';
        if (isCommand) actual += printedBy(line.substr(4));
    }
    EXPECT_NE(expected, "");
    EXPECT_EQ(actual, expected);
}

const std::vector<std::string> transcripts{
#ifdef ZOBI_BLUEZ
    "machine_radio",
#endif
    "beacon_commands", "decode", "help", "monitor", "streams", "watch", "wrong_arguments"};

INSTANTIATE_TEST_SUITE_P(All, ToolTranscript, ::testing::ValuesIn(transcripts),
                         [](const auto& tested) { return tested.param; });

}  // namespace
