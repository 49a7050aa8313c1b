#include <array>
#include <exception>
#include <string>

#include "tools/zobiconnect/Command.h"
#include "tools/zobiconnect/terminal/Console.h"

namespace {

std::string usageMessage(const CLI::App* app, const CLI::Error& error) {
    const auto commands = app->get_subcommands();
    if (commands.empty() && error.get_name() == "RequiredError") {
        const auto unknown = app->remaining();
        if (unknown.empty()) return app->help();
        return "zobiconnect: there is no command \"" + zobi::tool::printable(unknown.front()) +
               "\"\nTry: zobiconnect --help\n";
    }
    const std::string command = commands.empty() ? "" : ' ' + commands.front()->get_name();
    return "zobiconnect: " + zobi::tool::printable(error.what()) + "\nTry: zobiconnect" + command +
           " --help\n";
}

}  // namespace

int main(int argc, char** argv) {
    using namespace zobi::tool;
    try {
        CLI::App tool("Finds beacons, connects to them, and explains what they advertise.", "zobiconnect");
        tool.set_version_flag("--version", "zobiconnect " ZOBICONNECT_VERSION, "Print the version and exit");
        tool.set_help_flag("-h,--help", "Print this help and exit");
        tool.require_subcommand(1);
        // In place of CLI11's word for it.
        tool.get_formatter()->label("SUBCOMMAND", "COMMAND");
        tool.failure_message(usageMessage);
        tool.footer(
            "Each command has its own: zobiconnect COMMAND --help\n"
            "\n"
            "Exit status: 0 for success, 1 for a failure, 2 for a mistake on the command line or in a "
            "scenario.");
        const std::array commands{addMonitorCommand(tool), addInspectCommand(tool),    addWatchCommand(tool),
                                  addPingCommand(tool),    addButtonModeCommand(tool), addDecodeCommand(tool),
                                  addDoctorCommand(tool),
#ifdef ZOBI_BLUEZ
                                  addEmulateCommand(tool)
#endif
        };
        try {
            tool.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            return tool.exit(error) == 0 ? success : usage;
        }
        for (const Command& command : commands) {
            if (command.app->parsed()) return command.run();
        }
        return usage;
    } catch (const UsageError& error) {
        complain(error.what());
        return usage;
    } catch (const std::exception& error) {
        complain(error.what());
        return failure;
    }
}
