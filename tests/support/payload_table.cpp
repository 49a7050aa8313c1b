#include "payload_table.h"

#include <sstream>

std::vector<std::uint8_t> bytesOfHex(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::uint8_t> bytes;
    for (unsigned byte = 0; stream >> std::hex >> byte;) bytes.push_back(static_cast<std::uint8_t>(byte));
    return bytes;
}

std::vector<PayloadCase> payloadCases() {
    constexpr auto none = std::nullopt;
    const auto row = [](const char* what, const char* payload, const char* address, int major, int minor,
                        int version, int battery, std::optional<int> temperature, std::optional<int> action) {
        return PayloadCase{what,    bytesOfHex(payload), address, major, minor, version,
                           battery, temperature,         action};
    };
    return {
        row("version 3", "56 34 12 EF CD AB 07 01 2C 00 07 03 5A 00 1A 02", "ABCDEF123456", 300, 7, 3, 90, 22,
            2),
        row("version 2", "56 34 12 EF CD AB 07 01 2C 00 07 02 5A 02", "ABCDEF123456", 300, 7, 2, 90, none, 2),
        row("short layout", "56 34 12 EF CD AB 07 01 2C 00 07", "ABCDEF123456", 300, 7, 1, 0, none, 0),
        row("version 5 of 13 bytes", "01 02 03 04 05 0A FF FF FF 80 00 05 FF", "0A0504030201", 65535, 32768,
            5, 255, none, none),
        row("version 1 written out", "00 00 00 00 00 00 00 00 00 00 01 01 64", "000000000000", 0, 1, 1, 100,
            none, none),
        row("version byte FF", "00 00 00 00 00 00 00 00 01 00 02 FF 64 01 02 03", "000000000000", 1, 2, -1,
            100, none, none),
        row("lowest temperature, lowest action", "00 00 00 00 00 00 00 00 01 00 02 03 00 00 00 80",
            "000000000000", 1, 2, 3, 0, -4, -128),
        row("highest temperature, action FF, bytes to spare",
            "00 00 00 00 00 00 00 00 01 00 02 03 80 FF FF FF 11 22", "000000000000", 1, 2, 3, 128, 65531, -1),
        row("version 2 with bytes to spare", "00 00 00 00 00 00 00 00 01 00 02 02 01 7F FF 03",
            "000000000000", 1, 2, 2, 1, none, 127),
    };
}
