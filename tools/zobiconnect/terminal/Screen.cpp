#include "tools/zobiconnect/terminal/Screen.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "tools/zobiconnect/terminal/Console.h"

namespace zobi::tool {

namespace {

constexpr std::string_view takeScreenAndHideCursor = "\x1b[?1049h\x1b[?25l";
constexpr std::string_view showCursorAndGiveBackScreen = "\x1b[?25h\x1b[?1049l";
constexpr std::string_view goHome = "\x1b[H";
constexpr std::string_view eraseRestOfLine = "\x1b[K";
constexpr std::string_view eraseRestOfScreen = "\x1b[J";
constexpr std::string_view resetStyle = "\x1b[0m";

std::string_view startOfStyle(Screen::Style style) {
    switch (style) {
        case Screen::Style::plain:
            return "";
        case Screen::Style::heading:
            return "\x1b[1m";
        case Screen::Style::faint:
            return "\x1b[2m";
    }
    return "";
}

}  // namespace

bool Screen::isAvailable() {
    const char* const type = std::getenv("TERM");
    return ::isatty(STDOUT_FILENO) == 1 && type != nullptr && std::string_view(type) != "dumb";
}

Screen::Screen() {
    // A log that nobody reads any more must not end the process while the screen is taken.
    ::signal(SIGPIPE, SIG_IGN);
    printOut(takeScreenAndHideCursor);
    flushOut();
}

Screen::~Screen() {
    // Nobody is left to tell if it fails.
    std::fwrite(showCursorAndGiveBackScreen.data(), 1, showCursorAndGiveBackScreen.size(), stdout);
    std::fflush(stdout);
}

Screen::Size Screen::size() {
    winsize size{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0)
        return {24, 80};
    return {size.ws_row, size.ws_col};
}

void Screen::show(const std::vector<Line>& lines) {
    const auto [rows, columns] = size();
    std::string output(goHome);
    for (std::size_t i = 0; i < std::min(rows, lines.size()); ++i) {
        if (i > 0) output += "\r\n";
        // Erased first: after a line as wide as the screen it would take away the last character.
        output += eraseRestOfLine;
        output += startOfStyle(lines[i].style);
        output += lines[i].text.substr(0, columns);
        output += resetStyle;
    }
    // A full screen has no rest, and what is erased there would be its last character.
    if (lines.size() < rows) {
        output += "\r\n";
        output += eraseRestOfScreen;
    }
    printOut(output);
    flushOut();
}

void Screen::print(const std::vector<Line>& lines) {
    std::string text;
    for (const Line& line : lines) text += line.text + '\n';
    printOut(text + '\n');
    flushOut();
}

}  // namespace zobi::tool
