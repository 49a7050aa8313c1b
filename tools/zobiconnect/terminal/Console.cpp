#include "tools/zobiconnect/terminal/Console.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <string>
#include <system_error>
#include <utility>

#include "platform/UTF8.h"
#include "tools/zobiconnect/terminal/Screen.h"
#include "tools/zobiconnect/text/Hex.h"

namespace zobi::tool {

namespace {

/// The first error of stdout. The stream forgets what it could not write.
int outputError = 0;

constexpr std::size_t waitingAtMost = 20;
std::deque<std::string> waitingMessages;

void noteOutputError() {
    if (outputError == 0) outputError = errno;
}

[[noreturn]] void failToWrite() {
    constexpr auto message = "cannot write the output";
    if (outputError == EPIPE) throw OutputClosed(message);
    throw std::system_error(outputError, std::generic_category(), message);
}

}  // namespace

std::string printable(std::string_view text) {
    const bool isUTF8 = platform::isValidUTF8(text);
    std::string result;
    // The control characters from U+0080 to U+009F are two bytes, the first of them C2.
    bool isSecondOfControl = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const bool isFirstOfControl =
            byte == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xA0;
        if (byte < 0x20 || byte == 0x7F || isFirstOfControl || isSecondOfControl ||
            (byte >= 0x80 && !isUTF8)) {
            result += "\\x" + hexText(std::array{static_cast<std::uint8_t>(byte)});
        } else {
            result += text[i];
        }
        isSecondOfControl = isFirstOfControl;
    }
    return result;
}

std::string printableASCII(std::string_view text) {
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<std::uint8_t>(c);
        if (byte < 0x20 || byte >= 0x7F) {
            result += "\\x" + hexText(std::array{byte});
        } else {
            result += c;
        }
    }
    return result;
}

void printOut(std::string_view text) {
    if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size()) return;
    noteOutputError();
    failToWrite();
}

void flushOut() {
    if (std::fflush(stdout) != 0) noteOutputError();
    if (outputError != 0) failToWrite();
}

void tellProgress(std::string_view message) {
    if (Screen::isDrawn() || ::isatty(STDERR_FILENO) != 1) return;
    const std::string line = printable(message) + " ...\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
}

void tellMessage(std::string_view message) {
    if (!Screen::isDrawn() || ::isatty(STDERR_FILENO) != 1) return complain(message);
    waitingMessages.emplace_back(message);
    if (waitingMessages.size() > waitingAtMost) waitingMessages.pop_front();
}

void tellWaitingMessages() {
    for (const std::string& message : std::exchange(waitingMessages, {})) complain(message);
}

void complain(std::string_view message) {
    // What was printed before stands before it.
    if (std::fflush(stdout) != 0) noteOutputError();
    const std::string line = "zobiconnect: " + printable(message) + '\n';
    std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace zobi::tool
