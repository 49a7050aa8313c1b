#include "tools/zobiconnect/terminal/Console.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <system_error>

#include "platform/UTF8.h"
#include "tools/zobiconnect/text/Hex.h"

namespace zobi::tool {

namespace {

[[noreturn]] void failToWrite() {
    throw std::system_error(errno, std::generic_category(), "cannot write the output");
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

void printOut(std::string_view text) {
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) failToWrite();
}

void flushOut() {
    if (std::fflush(stdout) != 0) failToWrite();
}

void tellProgress(std::string_view message) {
    if (::isatty(STDERR_FILENO) != 1) return;
    const std::string line = printable(message) + " ...\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
}

void complain(std::string_view message) {
    // What was printed before stands before it.
    std::fflush(stdout);
    const std::string line = "zobiconnect: " + printable(message) + '\n';
    std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace zobi::tool
