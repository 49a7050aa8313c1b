#include "tools/zobiconnect/options/Display.h"

#include <unistd.h>

#include "tools/zobiconnect/terminal/Screen.h"

namespace zobi::tool {

void addDisplayOption(CLI::App& command, std::string& format) {
    command
        .add_option("--format", format,
                    "'table', or 'jsonl': one JSON object a line for each event.\n"
                    "Without it: a table if stdout is a terminal, else jsonl. If the log goes\n"
                    "to that terminal too, tables are printed one after another")
        ->check(CLI::IsMember({"table", "jsonl"}))
        ->option_text("FORMAT");
}

Display chooseDisplay(const std::string& format, bool logs) {
    const bool hasScreen = Screen::isAvailable();
    if (format == "jsonl" || (format.empty() && !hasScreen)) return Display::jsonLines;
    // Log lines on the same terminal would tear a live table apart.
    const bool isLive = hasScreen && !(logs && ::isatty(STDERR_FILENO) == 1);
    return isLive ? Display::liveTable : Display::printedTables;
}

}  // namespace zobi::tool
