#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/zobiconnect/Command.h"
#include "tools/zobiconnect/CommandLine.h"
#include "tools/zobiconnect/terminal/Console.h"

namespace zobi::tool {

namespace {

/// Opens /dev/null in place of closed standard descriptors, so that no later open() gets 0, 1 or 2.
void occupyStandardDescriptors() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(descriptor, F_GETFD) < 0) ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
}

int refuse(const std::string& mistake, const std::string& command = "") {
    complain(mistake);
    std::fputs(("Try: zobiconnect" + command + " --help\n").c_str(), stderr);
    return usage;
}

/// To be added last: it knows the commands before it.
Command addHelpCommand(CLI::App& tool) {
    const auto name = std::make_shared<std::string>();
    CLI::App* const app = tool.add_subcommand("help", "Print this help, or that of a command");
    app->group("Commands");
    app->add_option("COMMAND", *name, "Which command; without it, this help")
        ->check(isOneOf(commandNames(tool)))
        ->option_text(" ");
    return {app, [&tool, name]() -> int {
                const CLI::App* const about = name->empty() ? &tool : tool.get_subcommand(*name);
                const std::string title = tool.get_name() + (name->empty() ? "" : ' ' + *name);
                printOut(tool.get_formatter()->make_help(about, title, CLI::AppFormatMode::Normal));
                flushOut();
                return success;
            }};
}

/// The words after the tool's name, the last first, as CLI11 takes them. "--name=" becomes two of them: CLI11
/// would take the next word for the value.
std::vector<std::string> reversedWords(int argc, char** argv) {
    std::vector<std::string> words;
    bool hasOptions = true;
    for (int i = 1; i < argc; ++i) {
        const std::string_view word = argv[i];
        hasOptions = hasOptions && word != "--";
        if (hasOptions && word.starts_with("--") && word.find('=') == word.size() - 1) {
            words.emplace_back(word.substr(0, word.size() - 1));
            words.emplace_back();
        } else {
            words.emplace_back(word);
        }
    }
    std::ranges::reverse(words);
    return words;
}

int run(int argc, char** argv) {
    CLI::App tool("Finds beacons, connects to them, and explains what they advertise.", "zobiconnect");
    tool.set_version_flag("--version", "zobiconnect " ZOBICONNECT_VERSION, "Print the version and exit");
    tool.set_help_flag("-h,--help", "Print this help and exit");
    tool.require_subcommand(1);
    // In place of CLI11's word for it.
    tool.get_formatter()->label("SUBCOMMAND", "COMMAND");
    tool.footer(
        "Each command has its own: zobiconnect help COMMAND\n"
        "\n"
        "Exit status: 0 for success, 1 for a failure, 2 for a mistake on the command line or in a "
        "scenario.");
    const std::array commands{addMonitorCommand(tool), addInspectCommand(tool),    addWatchCommand(tool),
                              addPingCommand(tool),    addButtonModeCommand(tool), addDecodeCommand(tool),
                              addDoctorCommand(tool),
#ifdef ZOBI_BLUEZ
                              addEmulateCommand(tool),
#endif
                              addHelpCommand(tool)};
    tool.get_help_ptr()->disable_flag_override();
    tool.get_version_ptr()->disable_flag_override();
    for (const Command& command : commands) command.app->get_help_ptr()->disable_flag_override();
    // Which help is of use: the tool's own if a word before the command is wrong.
    const auto parsedCommand = [&] {
        const auto parsed = tool.get_subcommands();
        return parsed.empty() || tool.remaining_size() > 0 ? "" : ' ' + parsed.front()->get_name();
    };
    try {
        tool.parse(reversedWords(argc, argv));
        for (const Command& command : commands) {
            if (command.app->parsed()) return command.run();
        }
    } catch (const CLI::Success& call) {
        if (tool.remaining_size() > 0) return refuse(mistakeText(tool, call));
        printOut(call.get_name() == "CallForVersion" ? call.what() + std::string("\n") : tool.help());
        flushOut();
        return success;
    } catch (const CLI::ParseError& error) {
        if (argc > 1) return refuse(mistakeText(tool, error), parsedCommand());
        std::fputs(tool.help().c_str(), stderr);
        return usage;
    }
    return usage;
}

}  // namespace

}  // namespace zobi::tool

int main(int argc, char** argv) {
    using namespace zobi::tool;
    occupyStandardDescriptors();
    // A reader that has gone away ends the output. There may be a link to end, too.
    ::signal(SIGPIPE, SIG_IGN);
    try {
        return run(argc, argv);
    } catch (const OutputClosed&) {
        return success;
    } catch (const UsageError& error) {
        complain(error.what());
        return usage;
    } catch (const std::exception& error) {
        complain(error.what());
        return failure;
    }
}
