#include "tools/zobiconnect/emulate/EmulateControls.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <limits>
#include <utility>

#include "ZobiConnectKit/ZOKGATTProfile.h"
#include "tools/zobiconnect/terminal/Console.h"
#include "tools/zobiconnect/text/Text.h"

namespace zobi::tool {

namespace {

constexpr const char* keys =
    "Keys: 0 1 2 press the button, b B battery, t T temperature, a turn it over, s silence, d disconnect, "
    "q quit";
// A shell gives the terminal to this job or takes it away, and may change its modes, without telling.
constexpr double terminalInterval = 0.5;
// Far longer than any command.
constexpr std::size_t longestLine = 4096;
// The service advertises each 1.28 s: a shorter press may not be heard.
constexpr double usualPress = 3;
constexpr int buttonActions = 3;
constexpr int largestBattery = std::numeric_limits<std::uint8_t>::max();
constexpr int lowestTemperature = -4;
constexpr int highestTemperature = 65531;
constexpr int largestAxis = std::numeric_limits<std::uint16_t>::max();

std::vector<std::string_view> wordsOf(std::string_view line) {
    constexpr std::string_view spaces = " \t\r";
    std::vector<std::string_view> words;
    while (true) {
        const auto start = line.find_first_not_of(spaces);
        if (start == std::string_view::npos) return words;
        line.remove_prefix(start);
        const auto end = std::min(line.find_first_of(spaces), line.size());
        words.push_back(line.substr(0, end));
        line.remove_prefix(end);
    }
}

std::vector<std::uint8_t> bigEndian(int number) {
    return {static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number & 0xFF)};
}

/// Whether the keys of the terminal, if there is one, are for this process: reading from it or changing it
/// stops a job in the background.
bool hasKeys() {
    return ::tcgetpgrp(STDIN_FILENO) == ::getpgrp();
}

}  // namespace

EmulateControls::EmulateControls(platform::RunLoop& runLoop, SimulatedBeacon& beacon, Actions actions)
    : runLoop_(runLoop),
      beacon_(beacon),
      actions_(std::move(actions)),
      isTerminal_(::isatty(STDIN_FILENO) == 1) {
    if (!isTerminal_) {
        watchInput();
        return;
    }
    followTerminal();
    // Only now, as a key that is pressed in answer would be shown.
    if (hasKeys()) tellKeys();
    terminalTimer_ = runLoop_.every(terminalInterval, [this] { followTerminal(); });
}

EmulateControls::~EmulateControls() {
    if (terminalTimer_) terminalTimer_->invalidate();
    if (terminal_ && hasKeys()) ::tcsetattr(STDIN_FILENO, TCSANOW, &*terminal_);
}

void EmulateControls::watchInput() {
    input_ = runLoop_.addSource({STDIN_FILENO, POLLIN}, [this] { readInput(); });
}

void EmulateControls::followTerminal() {
    if (!hasKeys()) return input_.reset();
    takeTerminal();
    if (!input_) watchInput();
}

void EmulateControls::takeTerminal() {
    constexpr tcflag_t linesAndEcho = ICANON | ECHO;
    termios modes{};
    if (::tcgetattr(STDIN_FILENO, &modes) != 0 || (modes.c_lflag & linesAndEcho) == 0) return;
    terminal_ = modes;
    modes.c_lflag &= ~linesAndEcho;
    ::tcsetattr(STDIN_FILENO, TCSANOW, &modes);
}

void EmulateControls::readInput() {
    if (isTerminal_ && !hasKeys()) return input_.reset();
    std::array<char, 4096> buffer{};
    const ssize_t count = ::read(STDIN_FILENO, buffer.data(), buffer.size());
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) return;
    const std::string_view input(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    const bool isAtEnd = input.empty();
    if (isAtEnd) {
        // The beacon stays: a script that has ended may have set all that it wanted.
        input_.reset();
        if (terminalTimer_) terminalTimer_->invalidate();
    }
    if (isTerminal_) {
        for (const char key : input) obeyKey(key);
    } else {
        // The end of the script is also that of its last line.
        obeyLines(isAtEnd ? "\n" : input);
    }
}

void EmulateControls::obeyLines(std::string_view input) {
    unread_ += input;
    for (auto end = unread_.find('\n'); end != std::string::npos; end = unread_.find('\n')) {
        const std::string line = unread_.substr(0, end);
        unread_.erase(0, end + 1);
        obeyLine(line);
    }
    // More is not needed to refuse it.
    unread_.resize(std::min(unread_.size(), longestLine + 1));
}

void EmulateControls::obeyKey(char key) {
    constexpr int batteryStep = 5;
    const int battery = beacon_.batteryLevel();
    const int temperature = beacon_.temperature();
    switch (key) {
        case '0':
        case '1':
        case '2':
            return press(key - '0', usualPress);
        case 'b':
            return setBattery(std::max(battery - batteryStep, 0));
        case 'B':
            return setBattery(std::min(battery + batteryStep, largestBattery));
        case 't':
            return setTemperature(std::max(temperature - 1, lowestTemperature));
        case 'T':
            return setTemperature(std::min(temperature + 1, highestTemperature));
        case 'a':
            return turn();
        case 's':
            return setSilent(beacon_.isInRange());
        case 'd':
            return actions_.disconnectCentrals();
        case 'q':
            return actions_.quit();
        default:
            return tellKeys();
    }
}

void EmulateControls::obeyLine(std::string_view line) {
    if (line.size() > longestLine) {
        return complain("not understood: a line of more than " + std::to_string(longestLine) + " characters");
    }
    const auto words = wordsOf(line);
    if (words.empty() || obeyWords(words)) return;
    complain("not understood: \"" + std::string(line) + "\". See zobiconnect emulate --help");
}

bool EmulateControls::obeyWords(const std::vector<std::string_view>& words) {
    const std::string_view command = words.front();
    const std::size_t count = words.size() - 1;
    const auto argument = [&](std::size_t index, int smallest, int largest) {
        return numberIn(words[index], smallest, largest);
    };
    if (command == "press" && (count == 1 || count == 2)) {
        const auto action = argument(1, 0, buttonActions - 1);
        const auto seconds = count == 2 ? numberIn(words[2], 0.0, longestTime) : usualPress;
        if (action && seconds) press(*action, *seconds);
        return action && seconds;
    }
    if (command == "battery" && count == 1) {
        const auto level = argument(1, 0, largestBattery);
        if (level) setBattery(*level);
        return level.has_value();
    }
    if (command == "temperature" && count == 1) {
        const auto degrees = argument(1, lowestTemperature, highestTemperature);
        if (degrees) setTemperature(*degrees);
        return degrees.has_value();
    }
    if (command == "accelerometer" && count == 3) {
        const auto x = argument(1, 0, largestAxis);
        const auto y = argument(2, 0, largestAxis);
        const auto z = argument(3, 0, largestAxis);
        if (x && y && z) setAccelerometer(*x, *y, *z);
        return x && y && z;
    }
    if (count != 0) return false;
    if (command == "silence" || command == "resume") {
        setSilent(command == "silence");
    } else if (command == "disconnect") {
        actions_.disconnectCentrals();
    } else if (command == "quit") {
        unread_.clear();
        actions_.quit();
    } else {
        return false;
    }
    return true;
}

void EmulateControls::press(int action, double seconds) {
    // On the air the actions count from 1.
    beacon_.pressButton(static_cast<std::int8_t>(action + 1), seconds);
    tellValue("buttonAction", action, "button pressed: action " + std::to_string(action));
}

void EmulateControls::setBattery(int level) {
    beacon_.setBatteryLevel(static_cast<std::uint8_t>(level));
    tellValue("batteryLevel", level, "battery: " + std::to_string(level) + '%');
}

void EmulateControls::setTemperature(int degrees) {
    beacon_.setTemperature(degrees);
    tellValue("temperature", degrees, "temperature: " + std::to_string(degrees) + 'C');
}

void EmulateControls::setAccelerometer(int x, int y, int z) {
    const std::array axes{x, y, z};
    for (std::size_t i = 0; i < axes.size(); ++i) {
        beacon_.gatt().setValueIfPresent(ZOKGATTProfile::accelerometerAxes[i], bigEndian(axes[i]));
    }
    tellValue("accelerometer", axes,
              "accelerometer: " + std::to_string(x) + ' ' + std::to_string(y) + ' ' + std::to_string(z));
}

void EmulateControls::tellKeys() const {
    actions_.tell("keys", {{"text", keys}}, keys);
}

void EmulateControls::tellValue(const char* name, const nlohmann::ordered_json& value,
                                const std::string& line) const {
    actions_.tell("value", {{"name", name}, {"value", value}}, line);
}

void EmulateControls::turn() {
    constexpr int upright = 1000;
    const std::size_t axis = turns_++ % ZOKGATTProfile::accelerometerAxes.size();
    setAccelerometer(axis == 0 ? upright : 0, axis == 1 ? upright : 0, axis == 2 ? upright : 0);
}

void EmulateControls::setSilent(bool isSilent) {
    if (isSilent) {
        beacon_.goOutOfRange();
    } else {
        beacon_.comeIntoRange();
    }
}

}  // namespace zobi::tool
