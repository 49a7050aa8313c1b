#include "tools/zobiconnect/terminal/Screen.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "tools/zobiconnect/terminal/Console.h"
#include "tools/zobiconnect/text/Text.h"

namespace zobi::tool {

namespace {

constexpr std::string_view takeScreenAndHideCursor = "\x1b[?1049h\x1b[?25l";
constexpr std::string_view showCursorAndGiveBackScreen = "\x1b[?25h\x1b[?1049l";
constexpr std::string_view goHome = "\x1b[H";
constexpr std::string_view eraseRestOfLine = "\x1b[K";
constexpr std::string_view eraseRestOfScreen = "\x1b[J";
constexpr std::string_view resetStyle = "\x1b[0m";

// What the signal handlers below use too. It changes only while their signals are blocked.
bool isTaken = false;
std::string frame;

/// Blocks the signals of job control, so that no handler runs in the middle of a change.
class JobControlBlocked {
public:
    JobControlBlocked() {
        sigset_t signals{};
        ::sigemptyset(&signals);
        ::sigaddset(&signals, SIGTSTP);
        ::sigaddset(&signals, SIGCONT);
        ::sigprocmask(SIG_BLOCK, &signals, &before_);
    }
    ~JobControlBlocked() { ::sigprocmask(SIG_SETMASK, &before_, nullptr); }
    JobControlBlocked(const JobControlBlocked&) = delete;
    JobControlBlocked& operator=(const JobControlBlocked&) = delete;

private:
    sigset_t before_{};
};

/// Writes past the buffer of stdout, which is empty outside of `Screen::show`. Safe in a signal handler.
void writeNow(std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(STDOUT_FILENO, text.data(), text.size());
        if (count <= 0) return;
        text.remove_prefix(static_cast<std::size_t>(count));
    }
}

void draw(void (*write)(std::string_view text)) {
    const pid_t foreground = ::tcgetpgrp(STDOUT_FILENO);
    // A terminal that does not control this process tells no foreground.
    if (foreground >= 0 && foreground != ::getpgrp()) return;
    if (!isTaken) write(takeScreenAndHideCursor);
    isTaken = true;
    write(frame);
}

/// For SIGTSTP. Its action is the default again: the process stops as soon as the handler returns.
void suspend(int signal) {
    const int interruptedErrno = errno;
    if (isTaken) writeNow(showCursorAndGiveBackScreen);
    isTaken = false;
    ::raise(signal);
    errno = interruptedErrno;
}

void handle(int signal, void (*handler)(int), unsigned flags) {
    struct sigaction action {};
    action.sa_handler = handler;
    // Each handler runs without the other in between.
    ::sigaddset(&action.sa_mask, SIGTSTP);
    ::sigaddset(&action.sa_mask, SIGCONT);
    action.sa_flags = static_cast<int>(SA_RESTART | flags);
    ::sigaction(signal, &action, nullptr);
}

/// For SIGCONT, whatever stopped the process.
void resume(int /*signal*/) {
    const int interruptedErrno = errno;
    handle(SIGTSTP, suspend, SA_RESETHAND);
    draw(writeNow);
    errno = interruptedErrno;
}

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

struct Size {
    std::size_t rows;
    std::size_t columns;
};

Size screenSize() {
    winsize size{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0)
        return {24, 80};
    return {size.ws_row, size.ws_col};
}

std::string frameOf(std::vector<Screen::Line> lines) {
    const auto [rows, columns] = screenSize();
    if (lines.size() > rows) {
        const std::size_t hidden = lines.size() - (rows - 1);
        lines.resize(rows - 1);
        lines.push_back({"... and " + counted(hidden, "more row"), Screen::Style::faint});
    }
    std::string output(goHome);
    for (std::size_t i = 0; i < lines.size(); ++i) {
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
    return output;
}

void print(const std::vector<Screen::Line>& lines) {
    std::string text;
    for (const Screen::Line& line : lines) text += line.text + '\n';
    printOut(text + '\n');
    flushOut();
}

}  // namespace

Display chooseDisplay(const std::string& format, bool logs) {
    const bool isTerminal = ::isatty(STDOUT_FILENO) == 1;
    if (format == "json" || (format.empty() && !isTerminal)) return Display::jsonLines;
    const char* const type = std::getenv("TERM");
    const bool canBeDrawnOn = isTerminal && type && *type != '\0' && std::string_view(type) != "dumb";
    // Log lines on the same terminal would tear a live table apart.
    const bool isLive = canBeDrawnOn && !(logs && ::isatty(STDERR_FILENO) == 1);
    return isLive ? Display::liveTable : Display::printedTables;
}

Screen::Screen(Display display) : isLive_(display == Display::liveTable) {
    struct sigaction inherited {};
    ::sigaction(SIGTSTP, nullptr, &inherited);
    handlesStops_ = isLive_ && inherited.sa_handler != SIG_IGN;
    if (!handlesStops_) return;
    handle(SIGTSTP, suspend, SA_RESETHAND);
    handle(SIGCONT, resume, 0);
}

Screen::~Screen() {
    giveBack();
}

bool Screen::isDrawn() {
    return isTaken;
}

void Screen::giveBack() {
    if (!std::exchange(isLive_, false)) return;
    const JobControlBlocked blocked;
    if (handlesStops_) {
        ::signal(SIGTSTP, SIG_DFL);
        ::signal(SIGCONT, SIG_DFL);
    }
    // Nobody is left to tell if it fails.
    if (std::exchange(isTaken, false)) writeNow(showCursorAndGiveBackScreen);
    tellWaitingMessages();
}

void Screen::show(std::vector<Line> lines) {
    lines_ = std::move(lines);
    if (!isLive_) return print(lines_);
    const JobControlBlocked blocked;
    frame = frameOf(lines_);
    draw(printOut);
    flushOut();
}

void Screen::end() {
    if (!isLive_) return;
    giveBack();
    print(lines_);
}

}  // namespace zobi::tool
