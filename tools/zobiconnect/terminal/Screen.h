#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zobi::tool {

/// How a stream of events is shown.
enum class Display : std::uint8_t { jsonLines, liveTable, printedTables };

/// Without a format it is for people if stdout is a terminal.
/// @param format "table", "json" or empty.
/// @param logs whether log lines go to stderr.
Display chooseDisplay(const std::string& format, bool logs);

/// Where a table is shown again and again. A live one has the terminal's whole screen; Ctrl-Z gives it back
/// until the process is continued, if SIGTSTP is not ignored, and a process in the background does not draw.
/// Otherwise one table is printed after the other.
class Screen {
public:
    enum class Style { plain, heading, faint };

    struct Line {
        std::string text;
        Style style = Style::plain;
    };

    /// There is one live screen at a time.
    /// @param display a kind of table.
    explicit Screen(Display display);
    /// Gives the terminal's screen back as it was.
    ~Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    bool isLive() const { return isLive_; }

    /// Whether a live screen is on the terminal now.
    static bool isDrawn();

    /// Shows the lines, ASCII texts. On a live screen they replace those before, and what has no room is cut
    /// off.
    void show(std::vector<Line> lines);

    /// Gives the terminal's screen back, and leaves what was shown last on it.
    void end();

private:
    void giveBack();

    bool isLive_;
    bool handlesStops_ = false;
    std::vector<Line> lines_;
};

}  // namespace zobi::tool
